#include "platform/DisplayConfiguration.h"

#include "platform/emulated/EmulatedDisplays.h"

namespace Tessel::Bridge::Platform {
namespace {

using Emulated::EmulatedDisplayPath;
using Emulated::EmulatedPc;
using Emulated::State;

const EmulatedDisplayPath* FindPath(const Emulated::EmulatedDisplays& displays, const DisplayTarget& target)
{
    for (const EmulatedDisplayPath& path : displays.paths) {
        if (path.target == target) return &path;
    }
    return nullptr;
}

class EmulatedDisplayConfiguration final : public IDisplayConfiguration {
public:
    explicit EmulatedDisplayConfiguration(EmulatedPc pc) : pc_(std::move(pc)) {}

    bool ListActiveTargets(std::vector<DisplayTarget>& targets) override
    {
        const Emulated::EmulatedDisplays displays = Emulated::ReadDisplays(pc_, pc_.Read());
        if (displays.readFails) return false;
        targets.clear();
        for (const EmulatedDisplayPath& path : displays.paths) targets.push_back(path.target);
        return true;
    }

    bool GetAdvancedColorFlags(const DisplayTarget& target, std::uint32_t& flags) override
    {
        const Emulated::EmulatedDisplays displays = Emulated::ReadDisplays(pc_, pc_.Read());
        const EmulatedDisplayPath* path = FindPath(displays, target);
        if (path == nullptr || path->queryFails) return false;
        flags = path->advancedColorFlags;
        return true;
    }

    bool SetAdvancedColorState(const DisplayTarget& target, bool enable) override
    {
        bool done = false;
        pc_.Update([&](State& state) {
            const Emulated::EmulatedDisplays displays = Emulated::ReadDisplays(pc_, state);
            const EmulatedDisplayPath* path = FindPath(displays, target);
            // A display without advanced colour refuses it, as a driver does.
            if (path == nullptr || path->setFails || (path->advancedColorFlags & AdvancedColor::kSupported) == 0) return;
            done = Emulated::WriteAdvancedColorEnabled(pc_, state, target, enable);
        });
        return done;
    }

private:
    EmulatedPc pc_;
};

} // namespace

std::unique_ptr<IDisplayConfiguration> CreateDisplayConfiguration()
{
    return std::make_unique<EmulatedDisplayConfiguration>(EmulatedPc::FromEnvironment());
}

} // namespace Tessel::Bridge::Platform
