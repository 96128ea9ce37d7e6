#include "platform/CameraRuntime.h"

#include "platform/emulated/EmulatedCameras.h"

namespace Tessel::Bridge::Platform {
namespace {

using Emulated::EmulatedCamera;
using Emulated::EmulatedPc;

#define RUNTIME_THROW(code) throw ResultException((code), "CameraSession", __LINE__)

constexpr HResult kObjectClosed = ToHResult(0x80000013); // RO_E_CLOSED
constexpr std::wstring_view kExtendedPropertyPrefix = L"{1CB79112-C0D2-4213-9CA6-CD4FDB927972}, ";

// The opened camera; its live values are read from the PC at each query.
class EmulatedCapture final : public ICameraCapture {
public:
    EmulatedCapture(EmulatedPc pc, std::wstring id) : pc_(std::move(pc)), id_(std::move(id)) {}

    std::wstring VideoDeviceId() override { return Camera().id; }
    bool IsZoomSupported() override { return Camera().zoomSupported; }
    ZoomRange GetZoomRange() override { return Camera().zoom; }
    ControlCapabilities GetBrightnessCapabilities() override { return Camera().brightness; }
    double TryGetBrightnessValue() override { return Camera().brightnessValue; }

    DevicePropertyStatus GetDevicePropertyStatus(const std::wstring& propertyId) override
    {
        const EmulatedCamera camera = Camera();
        if (propertyId.starts_with(kExtendedPropertyPrefix)) {
            const std::wstring number = propertyId.substr(kExtendedPropertyPrefix.size());
            const auto found = camera.properties.find(std::string(number.begin(), number.end()));
            if (found != camera.properties.end()) return found->second;
        }
        return DevicePropertyStatus::NotSupported;
    }

    void Close() override
    {
        if (closed_) RUNTIME_THROW(kObjectClosed);
        closed_ = true;
    }

private:
    EmulatedCamera Camera()
    {
        if (closed_) RUNTIME_THROW(kObjectClosed);
        for (EmulatedCamera& camera : Emulated::ReadCameras(pc_, pc_.Read())) {
            if (camera.id == id_) return std::move(camera);
        }
        // The camera was taken away while open.
        RUNTIME_THROW(kNotFound);
    }

    EmulatedPc pc_;
    std::wstring id_;
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
        EmulatedPc pc = EmulatedPc::FromEnvironment();
        for (const EmulatedCamera& camera : Emulated::ReadCameras(pc, pc.Read())) {
            if (camera.id != deviceId) continue;
            // What the platform answers when the camera may not be used.
            if (!camera.canOpen) RUNTIME_THROW(kAccessDenied);
            return std::make_shared<EmulatedCapture>(std::move(pc), camera.id);
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
