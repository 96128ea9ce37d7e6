#include "platform/MouseSettings.h"

#include <windows.h>

namespace Tessel::Bridge::Platform {
namespace {

class User32MouseSettings final : public IMouseSettings {
public:
    bool GetSpeed(int& speed) override
    {
        return SystemParametersInfoW(SPI_GETMOUSESPEED, 0, &speed, 0) != FALSE;
    }

    bool SetSpeed(int speed) override
    {
        // The speed travels in the pointer parameter itself, sign-extended.
        return SystemParametersInfoW(SPI_SETMOUSESPEED, 0, reinterpret_cast<PVOID>(static_cast<INT_PTR>(speed)),
                                     SPIF_UPDATEINIFILE | SPIF_SENDCHANGE) != FALSE;
    }

    int GetSwapState() override { return GetSystemMetrics(SM_SWAPBUTTON); }

    bool SetSwapState(bool swapped) override { return SwapMouseButton(swapped ? TRUE : FALSE) != FALSE; }
};

} // namespace

std::unique_ptr<IMouseSettings> CreateMouseSettings()
{
    return std::make_unique<User32MouseSettings>();
}

} // namespace Tessel::Bridge::Platform
