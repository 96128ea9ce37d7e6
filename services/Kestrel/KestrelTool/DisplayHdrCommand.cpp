#include "DisplayHdrCommand.h"

#include "NumberParsing.h"

#include <cstdint>
#include <vector>

namespace Tessel::Bridge::Server::Services::Kestrel {
namespace {

using Platform::DisplayTarget;
namespace AdvancedColor = Platform::AdvancedColor;

bool Qualifies(std::uint32_t flags)
{
    return (flags & AdvancedColor::kSupported) != 0 && (flags & AdvancedColor::kWideColorEnforced) == 0;
}

bool Enabled(std::uint32_t flags)
{
    return (flags & AdvancedColor::kEnabled) != 0;
}

// The platform fills the flag word, which starts zeroed for every query.
bool Query(Platform::IDisplayConfiguration& display, const DisplayTarget& target, std::uint32_t& flags)
{
    flags = 0;
    return display.GetAdvancedColorFlags(target, flags);
}

} // namespace

bool ReadHdrSupport(Platform::IDisplayConfiguration& display, bool& supported)
{
    std::vector<DisplayTarget> targets;
    if (!display.ListActiveTargets(targets)) return false;
    for (const DisplayTarget& target : targets) {
        std::uint32_t flags = 0;
        if (!Query(display, target, flags)) return false;
        supported = Qualifies(flags);
        if (supported) return true;
    }
    return true;
}

bool ReadHdrState(Platform::IDisplayConfiguration& display, int& state)
{
    std::vector<DisplayTarget> targets;
    if (!display.ListActiveTargets(targets)) return false;
    for (const DisplayTarget& target : targets) {
        std::uint32_t flags = 0;
        if (!Query(display, target, flags)) return false;
        // A later qualifying target overwrites an earlier one.
        if (Qualifies(flags)) state = Enabled(flags) ? 1 : 0;
    }
    return true;
}

bool WriteHdrState(Platform::IDisplayConfiguration& display, bool enable)
{
    std::vector<DisplayTarget> targets;
    if (!display.ListActiveTargets(targets)) return false;
    bool result = false;
    for (const DisplayTarget& target : targets) {
        std::uint32_t flags = 0;
        if (!Query(display, target, flags)) break;
        if (!Qualifies(flags)) continue;
        if (Enabled(flags) != enable && !display.SetAdvancedColorState(target, enable)) break;
        result = true;
    }
    return result;
}

void HandleDisplayHdrCommand(Platform::IDisplayConfiguration& display, std::wstring function, std::wstring value,
                             std::wstring& result)
{
    if (function == L"IsHDRSupported") {
        bool supported = false;
        result = ReadHdrSupport(display, supported) ? std::to_wstring(supported ? 1 : 0) : L"-1";
    } else if (function == L"GetHDROnOff") {
        int state = -1;
        result = ReadHdrState(display, state) ? std::to_wstring(state) : L"-1";
    } else if (function == L"SetHDROnOff") {
        const bool enable = StringToInt(value) != 0;
        result = WriteHdrState(display, enable) ? L"1" : L"0";
    }
}

} // namespace Tessel::Bridge::Server::Services::Kestrel
