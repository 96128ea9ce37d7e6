// libTesselVNT.so: the display vendor's plug-in for the emulated PC. Its panel
// is the emulated PC's: the state file KestrelTool itself uses.
#include "platform/PortraitDisplays.h"
#include "platform/emulated/EmulatedDisplays.h"

#include <algorithm>
#include <cstdint>
#include <type_traits>

namespace {

using namespace Tessel::Bridge::Platform;
using Emulated::EmulatedPc;

// A C caller cannot take an exception: a PC that cannot be read is a panel
// that answers nothing (the program reports a malformed file before it loads
// the plug-in).
template <typename Action>
std::int32_t Guarded(std::int32_t failed, Action action) noexcept
{
    try {
        return action();
    } catch (...) {
        return failed;
    }
}

Emulated::EmulatedPortraitPanel Panel(const EmulatedPc& pc)
{
    return Emulated::ReadPortraitDisplays(pc, pc.Read()).panel;
}

} // namespace

extern "C" {

__attribute__((visibility("default"))) std::int32_t IsPlatformSupported()
{
    return Guarded(0, [] { return Panel(EmulatedPc::FromEnvironment()).platformSupported; });
}

__attribute__((visibility("default"))) std::int32_t Start()
{
    return 0;
}

__attribute__((visibility("default"))) std::int32_t GetSupportedDisplayModes(std::int32_t* modes, std::int32_t capacity)
{
    return Guarded(0, [&] {
        const std::vector<std::int32_t> supported = Panel(EmulatedPc::FromEnvironment()).modes;
        const auto count = std::min<std::size_t>(supported.size(), static_cast<std::size_t>(std::max(capacity, 0)));
        std::copy_n(supported.begin(), count, modes);
        return static_cast<std::int32_t>(count);
    });
}

__attribute__((visibility("default"))) std::int32_t GetCurrentDisplayMode()
{
    return Guarded(-1, [] { return Panel(EmulatedPc::FromEnvironment()).currentMode; });
}

// A mode the panel does not list is refused: the current mode stays.
__attribute__((visibility("default"))) std::int32_t SetDisplayMode(std::int32_t mode)
{
    return Guarded(0, [&] {
        const EmulatedPc pc = EmulatedPc::FromEnvironment();
        std::int32_t done = 0;
        pc.Update([&](Emulated::State& state) {
            const std::vector<std::int32_t> modes = Emulated::ReadPortraitDisplays(pc, state).panel.modes;
            if (std::find(modes.begin(), modes.end(), mode) == modes.end()) return;
            Emulated::WritePortraitCurrentMode(state, mode);
            done = 1;
        });
        return done;
    });
}

} // extern "C"

static_assert(std::is_same_v<decltype(&IsPlatformSupported), PortraitExports::IsPlatformSupported>);
static_assert(std::is_same_v<decltype(&Start), PortraitExports::Start>);
static_assert(std::is_same_v<decltype(&GetSupportedDisplayModes), PortraitExports::GetSupportedDisplayModes>);
static_assert(std::is_same_v<decltype(&GetCurrentDisplayMode), PortraitExports::GetCurrentDisplayMode>);
static_assert(std::is_same_v<decltype(&SetDisplayMode), PortraitExports::SetDisplayMode>);
