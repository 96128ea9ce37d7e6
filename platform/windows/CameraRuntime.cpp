#include "platform/CameraRuntime.h"

#include "platform/windows/WinRt.h"

#include <utility>

namespace Tessel::Bridge::Platform {
namespace {

using Windows::ComPtr;
using namespace Windows::WinRt;
namespace WinRt = Windows::WinRt;

// Failures are reported under the session's name: that is what callers see.
constexpr char kSource[] = "CameraSession";

void Check(HRESULT hr, int line)
{
    ThrowIfFailed(hr, kSource, line);
}

// For calls that hand out an object: success with nothing would crash later,
// so it fails here.
template <typename T>
void Check(HRESULT hr, int line, const ComPtr<T>& result)
{
    Check(hr, line);
    if (!result) throw ResultException(E_POINTER, kSource, line);
}

// The statuses are the platform's own numbers.
DevicePropertyStatus ToDevicePropertyStatus(VideoDeviceControllerGetDevicePropertyStatus status)
{
    using From = VideoDeviceControllerGetDevicePropertyStatus;
    static_assert(static_cast<int>(DevicePropertyStatus::Success) == static_cast<int>(From::Success) &&
                  static_cast<int>(DevicePropertyStatus::UnknownFailure) == static_cast<int>(From::UnknownFailure) &&
                  static_cast<int>(DevicePropertyStatus::BufferTooSmall) == static_cast<int>(From::BufferTooSmall) &&
                  static_cast<int>(DevicePropertyStatus::NotSupported) == static_cast<int>(From::NotSupported) &&
                  static_cast<int>(DevicePropertyStatus::DeviceNotAvailable) ==
                      static_cast<int>(From::DeviceNotAvailable) &&
                  static_cast<int>(DevicePropertyStatus::MaxPropertyValueSizeTooSmall) ==
                      static_cast<int>(From::MaxPropertyValueSizeTooSmall) &&
                  static_cast<int>(DevicePropertyStatus::MaxPropertyValueSizeRequired) ==
                      static_cast<int>(From::MaxPropertyValueSizeRequired));
    return static_cast<DevicePropertyStatus>(status);
}

// The panel numbers are the platform's own.
static_assert(static_cast<int>(Platform::Panel::Unknown) == static_cast<int>(WinRt::Panel::Unknown) &&
              static_cast<int>(Platform::Panel::Front) == static_cast<int>(WinRt::Panel::Front) &&
              static_cast<int>(Platform::Panel::Back) == static_cast<int>(WinRt::Panel::Back) &&
              static_cast<int>(Platform::Panel::Top) == static_cast<int>(WinRt::Panel::Top) &&
              static_cast<int>(Platform::Panel::Bottom) == static_cast<int>(WinRt::Panel::Bottom) &&
              static_cast<int>(Platform::Panel::Left) == static_cast<int>(WinRt::Panel::Left) &&
              static_cast<int>(Platform::Panel::Right) == static_cast<int>(WinRt::Panel::Right));

class CameraCapture final : public ICameraCapture {
public:
    explicit CameraCapture(ComPtr<IMediaCapture> capture) noexcept : capture_(std::move(capture)) {}

    std::wstring VideoDeviceId() override
    {
        ComPtr<IMediaCaptureSettings> settings;
        Check(capture_->get_MediaCaptureSettings(settings.Put()), __LINE__, settings);
        UniqueHString id;
        Check(settings->get_VideoDeviceId(id.Put()), __LINE__);
        return ToWString(id.Get());
    }

    bool IsZoomSupported() override
    {
        ::boolean supported = 0;
        Check(Zoom()->get_Supported(&supported), __LINE__);
        return supported != 0;
    }

    ZoomRange GetZoomRange() override
    {
        const ComPtr<IZoomControl> zoom = Zoom();
        ZoomRange range{};
        Check(zoom->get_Min(&range.min), __LINE__);
        Check(zoom->get_Max(&range.max), __LINE__);
        Check(zoom->get_Value(&range.value), __LINE__);
        return range;
    }

    ControlCapabilities GetBrightnessCapabilities() override
    {
        ComPtr<IMediaDeviceControlCapabilities> capabilities;
        Check(Brightness()->get_Capabilities(capabilities.Put()), __LINE__, capabilities);
        ::boolean supported = 0;
        ControlCapabilities result{};
        Check(capabilities->get_Supported(&supported), __LINE__);
        result.supported = supported != 0;
        // The range of a control the device lacks is never asked for: its
        // read may fail, and an unsupported control is an answer, not an error.
        if (!result.supported) return result;
        Check(capabilities->get_Min(&result.min), __LINE__);
        Check(capabilities->get_Max(&result.max), __LINE__);
        return result;
    }

    double TryGetBrightnessValue() override
    {
        DOUBLE value = -1.0;
        ::boolean succeeded = 0;
        Check(Brightness()->TryGetValue(&value, &succeeded), __LINE__);
        return value;
    }

    DevicePropertyStatus GetDevicePropertyStatus(const std::wstring& propertyId) override
    {
        ComPtr<IAdvancedVideoCaptureDeviceController5> controller;
        Check(Controller().QueryTo(__uuidof(IAdvancedVideoCaptureDeviceController5), controller), __LINE__, controller);
        UniqueHString id;
        Check(CreateHString(propertyId, id), __LINE__);
        ComPtr<IVideoDeviceControllerGetDevicePropertyResult> result;
        Check(controller->GetDevicePropertyById(id.Get(), nullptr, result.Put()), __LINE__, result);
        VideoDeviceControllerGetDevicePropertyStatus status{};
        Check(result->get_Status(&status), __LINE__);
        return ToDevicePropertyStatus(status);
    }

    void Close() override
    {
        ComPtr<IClosable> closable;
        Check(capture_.QueryTo(__uuidof(IClosable), closable), __LINE__, closable);
        Check(closable->Close(), __LINE__);
    }

private:
    ComPtr<IVideoDeviceController> Controller()
    {
        ComPtr<IVideoDeviceController> controller;
        Check(capture_->get_VideoDeviceController(controller.Put()), __LINE__, controller);
        return controller;
    }

    ComPtr<IZoomControl> Zoom()
    {
        ComPtr<IAdvancedVideoCaptureDeviceController3> advanced;
        Check(Controller().QueryTo(__uuidof(IAdvancedVideoCaptureDeviceController3), advanced), __LINE__, advanced);
        ComPtr<IZoomControl> zoom;
        Check(advanced->get_ZoomControl(zoom.Put()), __LINE__, zoom);
        return zoom;
    }

    ComPtr<IMediaDeviceControl> Brightness()
    {
        ComPtr<IMediaDeviceControl> brightness;
        Check(Controller()->get_Brightness(brightness.Put()), __LINE__, brightness);
        return brightness;
    }

    ComPtr<IMediaCapture> capture_;
};

class CameraRuntime final : public ICameraRuntime {
public:
    std::vector<VideoCaptureDevice> FindVideoCaptureDevices() override
    {
        ComPtr<IDeviceInformationStatics> statics;
        Check(GetActivationFactory(RuntimeClass_Windows_Devices_Enumeration_DeviceInformation,
                                   __uuidof(IDeviceInformationStatics), statics.PutVoid()),
              __LINE__, statics);
        ComPtr<IAsyncOperationOfDeviceInformationCollection> operation;
        Check(statics->FindAllAsyncDeviceClass(DeviceClass::VideoCapture, operation.Put()), __LINE__, operation);
        Check(AwaitCompletion<IAsyncOperationCompletedHandlerOfDeviceInformationCollection>(*operation.Get()),
              __LINE__);
        ComPtr<IVectorViewOfDeviceInformation> collection;
        Check(operation->GetResults(collection.Put()), __LINE__, collection);

        UINT32 count = 0;
        Check(collection->get_Size(&count), __LINE__);
        std::vector<VideoCaptureDevice> devices;
        devices.reserve(count);
        for (UINT32 index = 0; index < count; ++index) {
            ComPtr<IDeviceInformation> information;
            Check(collection->GetAt(index, information.Put()), __LINE__, information);
            VideoCaptureDevice& device = devices.emplace_back();
            UniqueHString id;
            Check(information->get_Id(id.Put()), __LINE__);
            device.id = ToWString(id.Get());
            // Panels only choose between cameras: with one there is nothing
            // to read, and a failing read must not end the run.
            if (count < 2) continue;
            // A device without an enclosure location has no panel.
            ComPtr<IEnclosureLocation> location;
            Check(information->get_EnclosureLocation(location.Put()), __LINE__);
            if (location) {
                WinRt::Panel panel{};
                Check(location->get_Panel(&panel), __LINE__);
                device.panel = static_cast<Platform::Panel>(panel);
            }
        }
        return devices;
    }

    std::shared_ptr<ICameraCapture> OpenForVideo(const std::wstring& deviceId) override
    {
        ComPtr<::IInspectable> instance;
        Check(ActivateInstance(RuntimeClass_Windows_Media_Capture_MediaCapture, instance), __LINE__, instance);
        ComPtr<IMediaCapture> capture;
        Check(instance.QueryTo(__uuidof(IMediaCapture), capture), __LINE__, capture);

        Check(ActivateInstance(RuntimeClass_Windows_Media_Capture_MediaCaptureInitializationSettings, instance),
              __LINE__, instance);
        ComPtr<IMediaCaptureInitializationSettings> settings;
        Check(instance.QueryTo(__uuidof(IMediaCaptureInitializationSettings), settings), __LINE__, settings);
        Check(settings->put_StreamingCaptureMode(StreamingCaptureMode::Video), __LINE__);
        UniqueHString id;
        Check(CreateHString(deviceId, id), __LINE__);
        Check(settings->put_VideoDeviceId(id.Get()), __LINE__);

        ComPtr<IAsyncAction> initialization;
        Check(capture->InitializeWithSettingsAsync(settings.Get(), initialization.Put()), __LINE__, initialization);
        Check(AwaitCompletion<IAsyncActionCompletedHandler>(*initialization.Get()), __LINE__);
        Check(initialization->GetResults(), __LINE__);
        return std::make_shared<CameraCapture>(std::move(capture));
    }
};

} // namespace

std::shared_ptr<ICameraRuntime> CreateCameraRuntime()
{
    return std::make_shared<CameraRuntime>();
}

} // namespace Tessel::Bridge::Platform
