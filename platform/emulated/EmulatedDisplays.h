#pragma once

#include "platform/DisplayConfiguration.h"
#include "platform/PortraitDisplays.h"
#include "platform/emulated/EmulatedPc.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace Tessel::Bridge::Platform::Emulated {

// One active display path, and the failures it is set up to give.
struct EmulatedDisplayPath {
    DisplayTarget target;
    std::uint32_t advancedColorFlags = 0;
    bool queryFails = false;
    bool setFails = false;
};

struct EmulatedDisplays {
    bool readFails = false; // the configuration cannot be read at all
    std::vector<EmulatedDisplayPath> paths;
};

// The "displays" area of the built-in PC: one display, HDR capable and off.
State BuiltInDisplays();
// A malformed area, or two paths with one target, throws the malformed-file error.
EmulatedDisplays ReadDisplays(const EmulatedPc& pc, const State& state);
// Sets the enabled bit of the path with this target; false when there is none.
bool WriteAdvancedColorEnabled(const EmulatedPc& pc, State& state, const DisplayTarget& target, bool enabled);

// The portrait panel behind the display vendor's plug-in.
struct EmulatedPortraitPanel {
    std::int32_t platformSupported = 0; // what "IsPlatformSupported" answers
    std::vector<std::int32_t> modes;
    std::int32_t currentMode = 0;
    std::vector<std::string> missingExports; // names the plug-in does not export
};

struct EmulatedPortraitDisplays {
    bool serviceInstalled = false;
    std::optional<FileVersion> serviceVersion; // nothing: no version resource
    EmulatedPortraitPanel panel;
};

// The "portraitDisplays" area of the built-in PC: the vendor's service at
// 5.0.1.2 and a supported panel with modes 0, 1 and 2, in mode 0.
State BuiltInPortraitDisplays();
EmulatedPortraitDisplays ReadPortraitDisplays(const EmulatedPc& pc, const State& state);
void WritePortraitCurrentMode(State& state, std::int32_t mode);

} // namespace Tessel::Bridge::Platform::Emulated
