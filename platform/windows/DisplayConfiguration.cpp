#include "platform/DisplayConfiguration.h"

#include <windows.h>

#include <algorithm>
#include <cstddef>

namespace Tessel::Bridge::Platform {
namespace {

// The request layouts the display driver interface expects.
static_assert(QDC_ONLY_ACTIVE_PATHS == 2);
static_assert(DISPLAYCONFIG_DEVICE_INFO_GET_ADVANCED_COLOR_INFO == 9);
static_assert(DISPLAYCONFIG_DEVICE_INFO_SET_ADVANCED_COLOR_STATE == 10);
static_assert(sizeof(DISPLAYCONFIG_DEVICE_INFO_HEADER) == 20);
static_assert(offsetof(DISPLAYCONFIG_DEVICE_INFO_HEADER, adapterId) == 8);
static_assert(offsetof(DISPLAYCONFIG_DEVICE_INFO_HEADER, id) == 16);
static_assert(sizeof(DISPLAYCONFIG_GET_ADVANCED_COLOR_INFO) == 32);
static_assert(offsetof(DISPLAYCONFIG_GET_ADVANCED_COLOR_INFO, value) == 20);
static_assert(sizeof(DISPLAYCONFIG_SET_ADVANCED_COLOR_STATE) == 24);
static_assert(offsetof(DISPLAYCONFIG_SET_ADVANCED_COLOR_STATE, value) == 20);

DISPLAYCONFIG_DEVICE_INFO_HEADER Header(DISPLAYCONFIG_DEVICE_INFO_TYPE type, UINT32 size, const DisplayTarget& target)
{
    DISPLAYCONFIG_DEVICE_INFO_HEADER header{};
    header.type = type;
    header.size = size;
    header.adapterId.LowPart = target.adapterLow;
    header.adapterId.HighPart = target.adapterHigh;
    header.id = target.targetId;
    return header;
}

class User32DisplayConfiguration final : public IDisplayConfiguration {
public:
    bool ListActiveTargets(std::vector<DisplayTarget>& targets) override
    {
        UINT32 pathCount = 0;
        UINT32 modeCount = 0;
        if (GetDisplayConfigBufferSizes(QDC_ONLY_ACTIVE_PATHS, &pathCount, &modeCount) != ERROR_SUCCESS) return false;
        // One record at least, so that no array is passed as a null pointer.
        std::vector<DISPLAYCONFIG_PATH_INFO> paths(std::max<UINT32>(pathCount, 1));
        std::vector<DISPLAYCONFIG_MODE_INFO> modes(std::max<UINT32>(modeCount, 1));
        // No retry: a configuration that grew in between is a failed read.
        if (QueryDisplayConfig(QDC_ONLY_ACTIVE_PATHS, &pathCount, paths.data(), &modeCount, modes.data(), nullptr) !=
            ERROR_SUCCESS) {
            return false;
        }
        paths.resize(pathCount);
        targets.clear();
        for (const DISPLAYCONFIG_PATH_INFO& path : paths) {
            targets.push_back({path.targetInfo.adapterId.LowPart, path.targetInfo.adapterId.HighPart, path.targetInfo.id});
        }
        return true;
    }

    bool GetAdvancedColorFlags(const DisplayTarget& target, std::uint32_t& flags) override
    {
        DISPLAYCONFIG_GET_ADVANCED_COLOR_INFO info{};
        info.header = Header(DISPLAYCONFIG_DEVICE_INFO_GET_ADVANCED_COLOR_INFO, sizeof info, target);
        if (DisplayConfigGetDeviceInfo(&info.header) != ERROR_SUCCESS) return false;
        flags = info.value;
        return true;
    }

    bool SetAdvancedColorState(const DisplayTarget& target, bool enable) override
    {
        DISPLAYCONFIG_SET_ADVANCED_COLOR_STATE state{};
        state.header = Header(DISPLAYCONFIG_DEVICE_INFO_SET_ADVANCED_COLOR_STATE, sizeof state, target);
        state.value = enable ? 1 : 0; // enableAdvancedColor only
        return DisplayConfigSetDeviceInfo(&state.header) == ERROR_SUCCESS;
    }
};

} // namespace

std::unique_ptr<IDisplayConfiguration> CreateDisplayConfiguration()
{
    return std::make_unique<User32DisplayConfiguration>();
}

} // namespace Tessel::Bridge::Platform
