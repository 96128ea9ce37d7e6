#include "CameraSession.h"

#include <utility>

namespace Tessel::Bridge::Server::Services::Kestrel {

namespace {
constexpr std::uint32_t kBackgroundSegmentation = 41;
constexpr std::uint32_t kDigitalWindow = 43;
constexpr std::uint32_t kBrightness = 0; // KSPROPERTY_VIDEOPROCAMP_BRIGHTNESS
constexpr std::uint32_t kZoom = 24;
} // namespace

CameraSession::CameraSession(std::shared_ptr<Platform::ICameraRuntime> runtime,
                             std::shared_ptr<Platform::ICameraDefaultsPlatform> defaults)
    : runtime_(std::move(runtime)), defaults_(std::move(defaults))
{
    EnsureInitialized();
}

CameraSession::~CameraSession() noexcept(false)
{
    if (mediaCapture_) mediaCapture_->Close();
    // The capture object goes first, then the controllers, then their manager.
    mediaCapture_.reset();
    zoomController_.reset();
    brightnessController_.reset();
    autoFrameController_.reset();
    blurController_.reset();
    defaultControlManager_.reset();
}

void CameraSession::EnsureInitialized()
{
    const std::vector<Platform::VideoCaptureDevice> devices = runtime_->FindVideoCaptureDevices();
    if (devices.empty()) {
        cameraFound_ = false;
        initialized_ = false;
        return;
    }
    cameraFound_ = true;

    // The last camera on the front panel, else the first one.
    std::wstring chosen = devices.front().id;
    if (devices.size() > 1) {
        for (const Platform::VideoCaptureDevice& device : devices) {
            if (device.panel == Platform::Panel::Front) chosen = device.id;
        }
    }

    mediaCapture_ = runtime_->OpenForVideo(chosen);
    initialized_ = true;

    defaultControlManager_ = std::make_shared<DefaultControlManager>(*defaults_, mediaCapture_->VideoDeviceId());
    blurController_ =
        DefaultController::Create(defaultControlManager_, ControlKind::ExtendedCameraControl, kBackgroundSegmentation);
    autoFrameController_ =
        DefaultController::Create(defaultControlManager_, ControlKind::ExtendedCameraControl, kDigitalWindow);
    brightnessController_ = DefaultController::Create(defaultControlManager_, ControlKind::VideoProcAmp, kBrightness);
    zoomController_ = DefaultController::Create(defaultControlManager_, ControlKind::ExtendedCameraControl, kZoom);
}

} // namespace Tessel::Bridge::Server::Services::Kestrel
