#pragma once

// Raw ABI of the Windows Runtime camera interfaces the camera code calls.
// Debian's mingw-w64 10 has none of them, and its windows.foundation.h does not
// compile as C++ (a forward-declared enum), so IClosable, IAsyncAction and
// IReference are declared here too. Taken from mingw: IInspectable, HSTRING,
// boolean, EventRegistrationToken, and the global IAsyncInfo and AsyncStatus of
// asyncinfo.h.
//
// Each interface declares every slot up to the last one used, in published
// order; slots the camera code never calls keep their published names but take
// opaque parameters, marked "slot only". Slot orders are those of the Windows
// SDK 10.0.17134 C++/WinRT projection (winrt/impl/<namespace>.0.h, generated
// from the Windows metadata). The project namespace keeps these apart from any
// ABI:: declarations a newer mingw-w64 brings.
//
// mingw's IAsyncOperation<T> and IVectorView<T> templates are not used: its
// IAsyncOperation_impl::GetResults takes one indirection more than the SDK's.
// The instances used here are declared as plain interfaces; their IIDs come from
// the Windows Runtime parameterized-interface rule (UUID v5, SHA-1 over
// 11f47ad5-7b73-42c0-abae-878b1e16adee and the signature in the comment) and
// equal the values the SDK headers publish.

#include <windows.h>

#include <asyncinfo.h>
#include <eventtoken.h>
#include <hstring.h>
#include <inspectable.h>

// COM interfaces are released through Release, never deleted through a base.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor"

namespace Tessel::Bridge::Platform::Windows::WinRt {

// ---- Windows.Foundation (C++/WinRT base.h and Windows.Foundation.0.h) -------

// asyncinfo.h (mingw): Started 0, Completed 1, Canceled 2, Error 3.
using AsyncStatus = ::AsyncStatus;
// asyncinfo.h (mingw): get_Id, get_Status, get_ErrorCode, Cancel, Close at 6..10.
using IAsyncInfo = ::IAsyncInfo;

// Windows.Foundation.IClosable; C++/WinRT Windows.Foundation.0.h.
struct IClosable : public ::IInspectable {
    virtual HRESULT STDMETHODCALLTYPE Close() = 0;
};

struct IAsyncAction;

// Windows.Foundation.AsyncActionCompletedHandler, a delegate (IUnknown based); C++/WinRT base.h.
struct IAsyncActionCompletedHandler : public ::IUnknown {
    virtual HRESULT STDMETHODCALLTYPE Invoke(IAsyncAction* asyncInfo, AsyncStatus status) = 0;
};

// Windows.Foundation.IAsyncAction; C++/WinRT base.h.
struct IAsyncAction : public ::IInspectable {
    virtual HRESULT STDMETHODCALLTYPE put_Completed(IAsyncActionCompletedHandler* handler) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_Completed(IAsyncActionCompletedHandler** handler) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetResults() = 0;
};

// Windows.Foundation.IReference`1<UInt32>, as the SDK's windows.media.capture.h
// declares it; signature pinterface({61c17706-2d65-11e0-9ae8-d48564015472};u4).
struct IReferenceOfUInt32 : public ::IInspectable {
    virtual HRESULT STDMETHODCALLTYPE get_Value(UINT32* value) = 0;
};

// ---- Windows.Devices.Enumeration (Windows.Devices.Enumeration.0.h) ---------

// Windows.Devices.Enumeration.DeviceClass; Windows.Devices.Enumeration.0.h.
enum class DeviceClass : INT32 {
    All = 0,
    AudioCapture = 1,
    AudioRender = 2,
    PortableStorageDevice = 3,
    VideoCapture = 4,
    ImageScanner = 5,
    Location = 6,
};

// Windows.Devices.Enumeration.Panel; Windows.Devices.Enumeration.0.h.
enum class Panel : INT32 {
    Unknown = 0,
    Front = 1,
    Back = 2,
    Top = 3,
    Bottom = 4,
    Left = 5,
    Right = 6,
};

// Windows.Devices.Enumeration.IEnclosureLocation; Windows.Devices.Enumeration.0.h.
struct IEnclosureLocation : public ::IInspectable {
    virtual HRESULT STDMETHODCALLTYPE get_InDock(::boolean* value) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_InLid(::boolean* value) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_Panel(Panel* value) = 0;
};

// Windows.Devices.Enumeration.IDeviceInformation; Windows.Devices.Enumeration.0.h.
struct IDeviceInformation : public ::IInspectable {
    virtual HRESULT STDMETHODCALLTYPE get_Id(HSTRING* value) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_Name(HSTRING* value) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_IsEnabled(::boolean* value) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_IsDefault(::boolean* value) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_EnclosureLocation(IEnclosureLocation** value) = 0;
};

// Windows.Foundation.Collections.IVectorView`1<DeviceInformation>, the default
// interface of DeviceInformationCollection; SDK windows.devices.enumeration.h; signature
// pinterface({bbe1fa4c-b0e3-4583-baef-1f1b2e483e56};rc(Windows.Devices.Enumeration.DeviceInformation;{aba0fb95-4398-489d-8e44-e6130927011f})).
struct IVectorViewOfDeviceInformation : public ::IInspectable {
    virtual HRESULT STDMETHODCALLTYPE GetAt(UINT32 index, IDeviceInformation** item) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_Size(UINT32* size) = 0;
};

struct IAsyncOperationOfDeviceInformationCollection;

// Windows.Foundation.AsyncOperationCompletedHandler`1<DeviceInformationCollection>;
// SDK windows.devices.enumeration.h; signature
// pinterface({fcdcf02c-e5d8-4478-915a-4d90b74b83a5};rc(Windows.Devices.Enumeration.DeviceInformationCollection;pinterface({bbe1fa4c-b0e3-4583-baef-1f1b2e483e56};rc(Windows.Devices.Enumeration.DeviceInformation;{aba0fb95-4398-489d-8e44-e6130927011f})))).
struct IAsyncOperationCompletedHandlerOfDeviceInformationCollection : public ::IUnknown {
    virtual HRESULT STDMETHODCALLTYPE Invoke(IAsyncOperationOfDeviceInformationCollection* asyncInfo,
                                             AsyncStatus status) = 0;
};

// Windows.Foundation.IAsyncOperation`1<DeviceInformationCollection>;
// SDK windows.devices.enumeration.h; signature
// pinterface({9fc2b0bb-e446-44e2-aa61-9cab8f636af2};rc(Windows.Devices.Enumeration.DeviceInformationCollection;pinterface({bbe1fa4c-b0e3-4583-baef-1f1b2e483e56};rc(Windows.Devices.Enumeration.DeviceInformation;{aba0fb95-4398-489d-8e44-e6130927011f})))).
struct IAsyncOperationOfDeviceInformationCollection : public ::IInspectable {
    virtual HRESULT STDMETHODCALLTYPE put_Completed(
        IAsyncOperationCompletedHandlerOfDeviceInformationCollection* handler) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_Completed(
        IAsyncOperationCompletedHandlerOfDeviceInformationCollection** handler) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetResults(IVectorViewOfDeviceInformation** results) = 0;
};

// Windows.Devices.Enumeration.IDeviceInformationStatics, the activation factory of
// RuntimeClass_Windows_Devices_Enumeration_DeviceInformation; Windows.Devices.Enumeration.0.h.
struct IDeviceInformationStatics : public ::IInspectable {
    // Slot only.
    virtual HRESULT STDMETHODCALLTYPE CreateFromIdAsync(HSTRING deviceId, void** asyncOp) = 0;
    // Slot only.
    virtual HRESULT STDMETHODCALLTYPE CreateFromIdAsyncAdditionalProperties(HSTRING deviceId, void* additionalProperties,
                                                                            void** asyncOp) = 0;
    virtual HRESULT STDMETHODCALLTYPE FindAllAsync(IAsyncOperationOfDeviceInformationCollection** asyncOp) = 0;
    virtual HRESULT STDMETHODCALLTYPE FindAllAsyncDeviceClass(DeviceClass deviceClass,
                                                              IAsyncOperationOfDeviceInformationCollection** asyncOp) = 0;
};

// ---- Windows.Media.Devices (Windows.Media.Devices.0.h) ---------------------

// Windows.Media.Devices.IMediaDeviceControlCapabilities; Windows.Media.Devices.0.h.
struct IMediaDeviceControlCapabilities : public ::IInspectable {
    virtual HRESULT STDMETHODCALLTYPE get_Supported(::boolean* value) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_Min(DOUBLE* value) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_Max(DOUBLE* value) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_Step(DOUBLE* value) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_Default(DOUBLE* value) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_AutoModeSupported(::boolean* value) = 0;
};

// Windows.Media.Devices.IMediaDeviceControl; Windows.Media.Devices.0.h.
struct IMediaDeviceControl : public ::IInspectable {
    virtual HRESULT STDMETHODCALLTYPE get_Capabilities(IMediaDeviceControlCapabilities** value) = 0;
    virtual HRESULT STDMETHODCALLTYPE TryGetValue(DOUBLE* value, ::boolean* succeeded) = 0;
};

// Windows.Media.Devices.IVideoDeviceController; Windows.Media.Devices.0.h. Its own
// slots only: the IMediaDeviceController it requires is a separate interface.
struct IVideoDeviceController : public ::IInspectable {
    virtual HRESULT STDMETHODCALLTYPE get_Brightness(IMediaDeviceControl** value) = 0;
};

// Windows.Media.Devices.IZoomControl; Windows.Media.Devices.0.h.
struct IZoomControl : public ::IInspectable {
    virtual HRESULT STDMETHODCALLTYPE get_Supported(::boolean* value) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_Min(FLOAT* value) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_Max(FLOAT* value) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_Step(FLOAT* value) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_Value(FLOAT* value) = 0;
};

// Windows.Media.Devices.IAdvancedVideoCaptureDeviceController3, the one of the
// series that carries ZoomControl; Windows.Media.Devices.0.h.
struct IAdvancedVideoCaptureDeviceController3 : public ::IInspectable {
    // Slot only.
    virtual HRESULT STDMETHODCALLTYPE get_VariablePhotoSequenceController(void** value) = 0;
    // Slot only.
    virtual HRESULT STDMETHODCALLTYPE get_PhotoConfirmationControl(void** value) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_ZoomControl(IZoomControl** value) = 0;
};

// Windows.Media.Devices.VideoDeviceControllerGetDevicePropertyStatus; Windows.Media.Devices.0.h.
enum class VideoDeviceControllerGetDevicePropertyStatus : INT32 {
    Success = 0,
    UnknownFailure = 1,
    BufferTooSmall = 2,
    NotSupported = 3,
    DeviceNotAvailable = 4,
    MaxPropertyValueSizeTooSmall = 5,
    MaxPropertyValueSizeRequired = 6,
};

// Windows.Media.Devices.IVideoDeviceControllerGetDevicePropertyResult; Windows.Media.Devices.0.h.
struct IVideoDeviceControllerGetDevicePropertyResult : public ::IInspectable {
    virtual HRESULT STDMETHODCALLTYPE get_Status(VideoDeviceControllerGetDevicePropertyStatus* value) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_Value(::IInspectable** value) = 0;
};

// Windows.Media.Devices.IAdvancedVideoCaptureDeviceController5; Windows.Media.Devices.0.h.
struct IAdvancedVideoCaptureDeviceController5 : public ::IInspectable {
    // Slot only.
    virtual HRESULT STDMETHODCALLTYPE get_Id(HSTRING* value) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetDevicePropertyById(HSTRING propertyId, IReferenceOfUInt32* maxPropertyValueSize,
                                                            IVideoDeviceControllerGetDevicePropertyResult** value) = 0;
};

// ---- Windows.Media.Capture (Windows.Media.Capture.0.h) ---------------------

// Windows.Media.Capture.StreamingCaptureMode; Windows.Media.Capture.0.h.
enum class StreamingCaptureMode : INT32 {
    AudioAndVideo = 0,
    Audio = 1,
    Video = 2,
};

// Windows.Media.Capture.IMediaCaptureInitializationSettings, the default interface of
// RuntimeClass_Windows_Media_Capture_MediaCaptureInitializationSettings; Windows.Media.Capture.0.h.
struct IMediaCaptureInitializationSettings : public ::IInspectable {
    virtual HRESULT STDMETHODCALLTYPE put_AudioDeviceId(HSTRING value) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_AudioDeviceId(HSTRING* value) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_VideoDeviceId(HSTRING value) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_VideoDeviceId(HSTRING* value) = 0;
    virtual HRESULT STDMETHODCALLTYPE put_StreamingCaptureMode(StreamingCaptureMode value) = 0;
};

// Windows.Media.Capture.IMediaCaptureSettings; Windows.Media.Capture.0.h.
struct IMediaCaptureSettings : public ::IInspectable {
    virtual HRESULT STDMETHODCALLTYPE get_AudioDeviceId(HSTRING* value) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_VideoDeviceId(HSTRING* value) = 0;
};

// Windows.Media.Capture.IMediaCapture, the default interface of
// RuntimeClass_Windows_Media_Capture_MediaCapture; Windows.Media.Capture.0.h.
struct IMediaCapture : public ::IInspectable {
    virtual HRESULT STDMETHODCALLTYPE InitializeAsync(IAsyncAction** asyncInfo) = 0;
    virtual HRESULT STDMETHODCALLTYPE InitializeWithSettingsAsync(IMediaCaptureInitializationSettings* settings,
                                                                  IAsyncAction** asyncInfo) = 0;
    // Slots 8 to 22: slot only.
    virtual HRESULT STDMETHODCALLTYPE StartRecordToStorageFileAsync(void* encodingProfile, void* file, void** asyncInfo) = 0;
    virtual HRESULT STDMETHODCALLTYPE StartRecordToStreamAsync(void* encodingProfile, void* stream, void** asyncInfo) = 0;
    virtual HRESULT STDMETHODCALLTYPE StartRecordToCustomSinkAsync(void* encodingProfile, void* customMediaSink,
                                                                   void** asyncInfo) = 0;
    virtual HRESULT STDMETHODCALLTYPE StartRecordToCustomSinkIdAsync(void* encodingProfile, HSTRING customSinkActivationId,
                                                                     void* customSinkSettings, void** asyncInfo) = 0;
    virtual HRESULT STDMETHODCALLTYPE StopRecordAsync(void** asyncInfo) = 0;
    virtual HRESULT STDMETHODCALLTYPE CapturePhotoToStorageFileAsync(void* type, void* file, void** asyncInfo) = 0;
    virtual HRESULT STDMETHODCALLTYPE CapturePhotoToStreamAsync(void* type, void* stream, void** asyncInfo) = 0;
    virtual HRESULT STDMETHODCALLTYPE AddEffectAsync(INT32 mediaStreamType, HSTRING effectActivationId,
                                                     void* effectSettings, void** asyncInfo) = 0;
    virtual HRESULT STDMETHODCALLTYPE ClearEffectsAsync(INT32 mediaStreamType, void** asyncInfo) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetEncoderProperty(INT32 mediaStreamType, GUID propertyId, void* propertyValue) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetEncoderProperty(INT32 mediaStreamType, GUID propertyId,
                                                         void** propertyValue) = 0;
    virtual HRESULT STDMETHODCALLTYPE add_Failed(void* errorEventHandler, EventRegistrationToken* eventCookie) = 0;
    virtual HRESULT STDMETHODCALLTYPE remove_Failed(EventRegistrationToken eventCookie) = 0;
    virtual HRESULT STDMETHODCALLTYPE add_RecordLimitationExceeded(void* handler, EventRegistrationToken* eventCookie) = 0;
    virtual HRESULT STDMETHODCALLTYPE remove_RecordLimitationExceeded(EventRegistrationToken eventCookie) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_MediaCaptureSettings(IMediaCaptureSettings** value) = 0;
    // Slot only.
    virtual HRESULT STDMETHODCALLTYPE get_AudioDeviceController(void** value) = 0;
    virtual HRESULT STDMETHODCALLTYPE get_VideoDeviceController(IVideoDeviceController** value) = 0;
};

// Runtime class names (Windows metadata), as RoGetActivationFactory and
// RoActivateInstance take them.
inline constexpr wchar_t RuntimeClass_Windows_Devices_Enumeration_DeviceInformation[] =
    L"Windows.Devices.Enumeration.DeviceInformation";
inline constexpr wchar_t RuntimeClass_Windows_Media_Capture_MediaCapture[] = L"Windows.Media.Capture.MediaCapture";
inline constexpr wchar_t RuntimeClass_Windows_Media_Capture_MediaCaptureInitializationSettings[] =
    L"Windows.Media.Capture.MediaCaptureInitializationSettings";

} // namespace Tessel::Bridge::Platform::Windows::WinRt

// IIDs for __uuidof. Plain interfaces: the SDK 10.0.17134 C++/WinRT projection
// (guid<> entries of winrt/impl/Windows.*.0.h and base.h). Parameterized
// instances: computed from the signatures above and equal to the SDK's
// windows.devices.enumeration.h (IAsyncOperation, the handler, IVectorView) and
// windows.media.capture.h (IReference<UINT32>) declarations.
__CRT_UUID_DECL(Tessel::Bridge::Platform::Windows::WinRt::IClosable,
                0x30d5a829, 0x7fa4, 0x4026, 0x83, 0xbb, 0xd7, 0x5b, 0xae, 0x4e, 0xa9, 0x9e)
__CRT_UUID_DECL(Tessel::Bridge::Platform::Windows::WinRt::IAsyncActionCompletedHandler,
                0xa4ed5c81, 0x76c9, 0x40bd, 0x8b, 0xe6, 0xb1, 0xd9, 0x0f, 0xb2, 0x0a, 0xe7)
__CRT_UUID_DECL(Tessel::Bridge::Platform::Windows::WinRt::IAsyncAction,
                0x5a648006, 0x843a, 0x4da9, 0x86, 0x5b, 0x9d, 0x26, 0xe5, 0xdf, 0xad, 0x7b)
__CRT_UUID_DECL(Tessel::Bridge::Platform::Windows::WinRt::IReferenceOfUInt32,
                0x513ef3af, 0xe784, 0x5325, 0xa9, 0x1e, 0x97, 0xc2, 0xb8, 0x11, 0x1c, 0xf3)
__CRT_UUID_DECL(Tessel::Bridge::Platform::Windows::WinRt::IEnclosureLocation,
                0x42340a27, 0x5810, 0x459c, 0xaa, 0xbb, 0xc6, 0x5e, 0x1f, 0x81, 0x3e, 0xcf)
__CRT_UUID_DECL(Tessel::Bridge::Platform::Windows::WinRt::IDeviceInformation,
                0xaba0fb95, 0x4398, 0x489d, 0x8e, 0x44, 0xe6, 0x13, 0x09, 0x27, 0x01, 0x1f)
__CRT_UUID_DECL(Tessel::Bridge::Platform::Windows::WinRt::IVectorViewOfDeviceInformation,
                0xe170688f, 0x3495, 0x5bf6, 0xaa, 0xb5, 0x9c, 0xac, 0x17, 0xe0, 0xf1, 0x0f)
__CRT_UUID_DECL(Tessel::Bridge::Platform::Windows::WinRt::IAsyncOperationCompletedHandlerOfDeviceInformationCollection,
                0x4a458732, 0x527e, 0x5c73, 0x9a, 0x68, 0xa7, 0x3d, 0xa3, 0x70, 0xf7, 0x82)
__CRT_UUID_DECL(Tessel::Bridge::Platform::Windows::WinRt::IAsyncOperationOfDeviceInformationCollection,
                0x45180254, 0x082e, 0x5274, 0xb2, 0xe7, 0xac, 0x05, 0x17, 0xf4, 0x4d, 0x07)
__CRT_UUID_DECL(Tessel::Bridge::Platform::Windows::WinRt::IDeviceInformationStatics,
                0xc17f100e, 0x3a46, 0x4a78, 0x80, 0x13, 0x76, 0x9d, 0xc9, 0xb9, 0x73, 0x90)
__CRT_UUID_DECL(Tessel::Bridge::Platform::Windows::WinRt::IMediaDeviceControlCapabilities,
                0x23005816, 0xeb85, 0x43e2, 0xb9, 0x2b, 0x82, 0x40, 0xd5, 0xee, 0x70, 0xec)
__CRT_UUID_DECL(Tessel::Bridge::Platform::Windows::WinRt::IMediaDeviceControl,
                0xefa8dfa9, 0x6f75, 0x4863, 0xba, 0x0b, 0x58, 0x3f, 0x30, 0x36, 0xb4, 0xde)
__CRT_UUID_DECL(Tessel::Bridge::Platform::Windows::WinRt::IVideoDeviceController,
                0x99555575, 0x2e2e, 0x40b8, 0xb6, 0xc7, 0xf8, 0x2d, 0x10, 0x01, 0x32, 0x10)
__CRT_UUID_DECL(Tessel::Bridge::Platform::Windows::WinRt::IZoomControl,
                0x3a1e0b12, 0x32da, 0x4c17, 0xbf, 0xd7, 0x8d, 0x0c, 0x73, 0xc8, 0xf5, 0xa5)
__CRT_UUID_DECL(Tessel::Bridge::Platform::Windows::WinRt::IAdvancedVideoCaptureDeviceController3,
                0xa98b8f34, 0xee0d, 0x470c, 0xb9, 0xf0, 0x42, 0x29, 0xc4, 0xbb, 0xd0, 0x89)
__CRT_UUID_DECL(Tessel::Bridge::Platform::Windows::WinRt::IVideoDeviceControllerGetDevicePropertyResult,
                0xc5d88395, 0x6ed5, 0x4790, 0x8b, 0x5d, 0x0e, 0xf1, 0x39, 0x35, 0xd0, 0xf8)
__CRT_UUID_DECL(Tessel::Bridge::Platform::Windows::WinRt::IAdvancedVideoCaptureDeviceController5,
                0x33512b17, 0xb9cb, 0x4a23, 0xb8, 0x75, 0xf9, 0xea, 0xab, 0x53, 0x54, 0x92)
__CRT_UUID_DECL(Tessel::Bridge::Platform::Windows::WinRt::IMediaCaptureInitializationSettings,
                0x9782ba70, 0xea65, 0x4900, 0x93, 0x56, 0x8c, 0xa8, 0x87, 0x72, 0x68, 0x84)
__CRT_UUID_DECL(Tessel::Bridge::Platform::Windows::WinRt::IMediaCaptureSettings,
                0x1d83aafe, 0x6d45, 0x4477, 0x8d, 0xc4, 0xac, 0x5b, 0xc0, 0x1c, 0x40, 0x91)
__CRT_UUID_DECL(Tessel::Bridge::Platform::Windows::WinRt::IMediaCapture,
                0xc61afbb4, 0xfb10, 0x4a34, 0xac, 0x18, 0xca, 0x80, 0xd9, 0xc8, 0xe7, 0xee)

#pragma GCC diagnostic pop
