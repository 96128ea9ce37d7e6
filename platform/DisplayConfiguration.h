#pragma once

#include <cstdint>
#include <memory>
#include <vector>

namespace Tessel::Bridge::Platform {

// A display target as the display configuration names it: its adapter's
// locally unique identifier and the target's id on that adapter.
struct DisplayTarget {
    std::uint32_t adapterLow = 0;
    std::int32_t adapterHigh = 0;
    std::uint32_t targetId = 0;

    bool operator==(const DisplayTarget&) const = default;
};

// The advanced-colour flag word of a target.
namespace AdvancedColor {
inline constexpr std::uint32_t kSupported = 1u << 0;
inline constexpr std::uint32_t kEnabled = 1u << 1;
inline constexpr std::uint32_t kWideColorEnforced = 1u << 2;
} // namespace AdvancedColor

// The current display configuration of the PC.
class IDisplayConfiguration {
public:
    virtual ~IDisplayConfiguration() = default;

    // The targets of the active paths, in the configuration's order. False when
    // the configuration cannot be read (or changed while it was being read).
    virtual bool ListActiveTargets(std::vector<DisplayTarget>& targets) = 0;

    // The target's advanced-colour flag word; false when the query fails.
    virtual bool GetAdvancedColorFlags(const DisplayTarget& target, std::uint32_t& flags) = 0;

    // Turns the target's advanced colour on or off; false when refused.
    virtual bool SetAdvancedColorState(const DisplayTarget& target, bool enable) = 0;
};

std::unique_ptr<IDisplayConfiguration> CreateDisplayConfiguration();

} // namespace Tessel::Bridge::Platform
