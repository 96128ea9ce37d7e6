#include "AccessoryCommand.h"

#include "NumberParsing.h"

namespace Tessel::Bridge::Server::Services::Kestrel {

void HandleAccessoryCommand(Platform::IMouseSettings& mouse, const std::wstring& function, const std::wstring& value,
                            std::wstring& result)
{
    if (function == L"GetMouseSpeed") {
        int speed = -1;
        result = mouse.GetSpeed(speed) ? std::to_wstring(speed) : L"-1";
    } else if (function == L"SetMouseSpeed") {
        // No range check here: the platform is the only judge of the speed.
        const int speed = StringToInt(value);
        result = mouse.SetSpeed(speed) ? L"1" : L"0";
    } else if (function == L"SwapMouseButton") {
        // Toggle from the state read now; the swap call's answer is not used.
        mouse.SetSwapState(mouse.GetSwapState() == 0);
        result = L"1";
    } else if (function == L"GetMouseSwapStatus") {
        result = std::to_wstring(mouse.GetSwapState());
    } else if (function == L"SetMouseLeftHanded") {
        const int leftHanded = StringToInt(value);
        mouse.SetSwapState(leftHanded != 0);
        result = L"1";
    }
}

} // namespace Tessel::Bridge::Server::Services::Kestrel
