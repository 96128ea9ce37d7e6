#pragma once

#include "CameraDefaultControl.h"
#include "platform/CameraRuntime.h"

#include <memory>

namespace Tessel::Bridge::Server::Services::Kestrel {

// The process's one camera: found, opened for video, and its four persisted
// defaults controllers. Failures throw ResultException; nothing is caught.
class CameraSession {
public:
    // Runs EnsureInitialized once.
    CameraSession(std::shared_ptr<Platform::ICameraRuntime> runtime,
                  std::shared_ptr<Platform::ICameraDefaultsPlatform> defaults);
    // Closes the capture object first; a failed close throws.
    ~CameraSession() noexcept(false);
    CameraSession(const CameraSession&) = delete;
    CameraSession& operator=(const CameraSession&) = delete;

    // Finds the camera (the last front-panel one, else the first), opens it
    // and creates the controllers. Run again while not initialised.
    void EnsureInitialized();

    const std::shared_ptr<Platform::ICameraCapture>& MediaCapture() const noexcept { return mediaCapture_; }
    const std::shared_ptr<DefaultController>& BlurController() const noexcept { return blurController_; }
    const std::shared_ptr<DefaultController>& AutoFrameController() const noexcept { return autoFrameController_; }
    const std::shared_ptr<DefaultController>& BrightnessController() const noexcept { return brightnessController_; }
    const std::shared_ptr<DefaultController>& ZoomController() const noexcept { return zoomController_; }
    bool Initialized() const noexcept { return initialized_; }
    bool CameraFound() const noexcept { return cameraFound_; }

private:
    std::shared_ptr<Platform::ICameraRuntime> runtime_;
    std::shared_ptr<Platform::ICameraDefaultsPlatform> defaults_;

    std::shared_ptr<Platform::ICameraCapture> mediaCapture_;
    std::shared_ptr<DefaultControlManager> defaultControlManager_;
    std::shared_ptr<DefaultController> blurController_;
    std::shared_ptr<DefaultController> autoFrameController_;
    std::shared_ptr<DefaultController> brightnessController_;
    std::shared_ptr<DefaultController> zoomController_;
    bool initialized_ = false;
    bool cameraFound_ = false;
};

} // namespace Tessel::Bridge::Server::Services::Kestrel
