#include "platform/CameraRuntime.h"

#include "platform/emulated/EmulatedCameras.h"

namespace Tessel::Bridge::Platform {
namespace {

using Emulated::EmulatedCamera;
using Emulated::EmulatedPc;

#define RUNTIME_THROW(code) throw ResultException((code), "CameraSession", __LINE__)

constexpr HResult kObjectClosed = ToHResult(0x80000013); // RO_E_CLOSED
constexpr std::wstring_view kExtendedPropertyPrefix = L"{1CB79112-C0D2-4213-9CA6-CD4FDB927972}, ";

// The opened camera. Its live values are those it had when it was opened; only
// its saved defaults change during a run.
class EmulatedCapture final : public ICameraCapture {
public:
    explicit EmulatedCapture(EmulatedCamera camera) : camera_(std::move(camera)) {}

    std::wstring VideoDeviceId() override { return Open().id; }
    bool IsZoomSupported() override { return Open().zoomSupported; }
    ZoomRange GetZoomRange() override { return Open().zoom; }
    ControlCapabilities GetBrightnessCapabilities() override { return Open().brightness; }
    double TryGetBrightnessValue() override { return Open().brightnessValue; }

    DevicePropertyStatus GetDevicePropertyStatus(const std::wstring& propertyId) override
    {
        const EmulatedCamera& camera = Open();
        if (propertyId.starts_with(kExtendedPropertyPrefix)) {
            const std::wstring number = propertyId.substr(kExtendedPropertyPrefix.size());
            const auto found = camera.properties.find(std::string(number.begin(), number.end()));
            if (found != camera.properties.end()) return found->second;
        }
        return DevicePropertyStatus::NotSupported;
    }

    void Close() override
    {
        Open();
        closed_ = true;
    }

private:
    const EmulatedCamera& Open() const
    {
        if (closed_) RUNTIME_THROW(kObjectClosed);
        return camera_;
    }

    EmulatedCamera camera_;
    bool closed_ = false;
};

class EmulatedCameraRuntime final : public ICameraRuntime {
public:
    std::vector<VideoCaptureDevice> FindVideoCaptureDevices() override
    {
        std::vector<VideoCaptureDevice> devices;
        const EmulatedPc pc = EmulatedPc::FromEnvironment();
        for (const EmulatedCamera& camera : Emulated::ReadCameras(pc, pc.Read())) {
            devices.push_back({camera.id, camera.panel});
        }
        return devices;
    }

    std::shared_ptr<ICameraCapture> OpenForVideo(const std::wstring& deviceId) override
    {
        const EmulatedPc pc = EmulatedPc::FromEnvironment();
        for (EmulatedCamera& camera : Emulated::ReadCameras(pc, pc.Read())) {
            if (camera.id != deviceId) continue;
            // What the platform answers when the camera may not be used.
            if (!camera.canOpen) RUNTIME_THROW(kAccessDenied);
            return std::make_shared<EmulatedCapture>(std::move(camera));
        }
        RUNTIME_THROW(kNotFound);
    }
};

} // namespace

std::shared_ptr<ICameraRuntime> CreateCameraRuntime()
{
    return std::make_shared<EmulatedCameraRuntime>();
}

} // namespace Tessel::Bridge::Platform
