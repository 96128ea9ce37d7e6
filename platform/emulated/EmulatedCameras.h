#pragma once

#include "platform/CameraDefaults.h"
#include "platform/CameraRuntime.h"
#include "platform/emulated/EmulatedPc.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace Tessel::Bridge::Platform::Emulated {

// One persisted default, kept as the camera platform keeps it.
struct DefaultEntry {
    std::uint32_t configType = 0;
    Guid set{};
    std::uint32_t id = 0;
    std::uint32_t streamId = 0;
    std::vector<unsigned char> control;
    std::vector<unsigned char> data;
};

// One camera of the emulated PC: what the capture API reports live, and its
// persisted defaults.
struct EmulatedCamera {
    std::wstring id;
    std::optional<Panel> panel;
    bool canOpen = true;
    bool zoomSupported = false;
    ZoomRange zoom{};
    ControlCapabilities brightness{};
    double brightnessValue = 0;
    std::map<std::string, DevicePropertyStatus> properties; // by property number ("41")
    std::vector<DefaultEntry> defaults;
};

// The "cameras" area of the built-in PC: one front camera.
State BuiltInCameras();

// The PC's cameras; every field a camera leaves out has the built-in camera's
// value. A malformed area throws the malformed-file error.
std::vector<EmulatedCamera> ReadCameras(const EmulatedPc& pc, const State& state);

// Replaces the saved defaults of the camera with this id; false when the PC
// has no such camera.
bool WriteCameraDefaults(const EmulatedPc& pc, State& state, const std::wstring& cameraId,
                         const std::vector<DefaultEntry>& defaults);

} // namespace Tessel::Bridge::Platform::Emulated
