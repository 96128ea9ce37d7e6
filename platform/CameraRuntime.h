#pragma once

#include "platform/ResultException.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Tessel::Bridge::Platform {

// The capture side of the camera platform (Windows.Devices.Enumeration and
// Windows.Media.Capture). Every failure throws a ResultException with the
// platform's status code.

// Where a device sits in the enclosure (Windows.Devices.Enumeration.Panel).
enum class Panel : std::int32_t { Unknown = 0, Front = 1, Back = 2, Top = 3, Bottom = 4, Left = 5, Right = 6 };

struct VideoCaptureDevice {
    std::wstring id;
    std::optional<Panel> panel; // nothing: the device reports no enclosure location
};

struct ZoomRange {
    float min;
    float max;
    float value;
};

struct ControlCapabilities {
    bool supported;
    double min;
    double max;
};

// Status of a device property read (VideoDeviceControllerGetDevicePropertyStatus).
enum class DevicePropertyStatus : std::int32_t {
    Success = 0,
    UnknownFailure = 1,
    BufferTooSmall = 2,
    NotSupported = 3,
    DeviceNotAvailable = 4,
    MaxPropertyValueSizeTooSmall = 5,
    MaxPropertyValueSizeRequired = 6,
};

// A capture object initialised for video on one device.
class ICameraCapture {
public:
    virtual ~ICameraCapture() = default;
    // MediaCaptureSettings.VideoDeviceId; empty when the platform gives none.
    virtual std::wstring VideoDeviceId() = 0;
    // The video device controller's zoom control.
    virtual bool IsZoomSupported() = 0;
    virtual ZoomRange GetZoomRange() = 0;
    // The video device controller's brightness control. TryGetValue's own
    // success flag is not reported: the value starts at -1.0.
    virtual ControlCapabilities GetBrightnessCapabilities() = 0;
    virtual double TryGetBrightnessValue() = 0;
    // GetDevicePropertyById with no maximum size; only the status is used.
    virtual DevicePropertyStatus GetDevicePropertyStatus(const std::wstring& propertyId) = 0;
    // IClosable.Close.
    virtual void Close() = 0;
};

class ICameraRuntime {
public:
    virtual ~ICameraRuntime() = default;
    // DeviceInformation.FindAllAsync(VideoCapture), waited for.
    virtual std::vector<VideoCaptureDevice> FindVideoCaptureDevices() = 0;
    // A new MediaCapture initialised with StreamingCaptureMode Video and the
    // device id, nothing else set; InitializeAsync waited for.
    virtual std::shared_ptr<ICameraCapture> OpenForVideo(const std::wstring& deviceId) = 0;
};

std::shared_ptr<ICameraRuntime> CreateCameraRuntime();

} // namespace Tessel::Bridge::Platform
