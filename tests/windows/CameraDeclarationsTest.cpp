// Pins the hand-written camera declarations to what Windows publishes: each IID
// against its text form in the Windows SDK headers, and each method the camera
// code calls (or, for handlers, Windows calls) against its published vtable slot. A wrong slot compiles and links
// and only misbehaves on a real camera, so it is caught here instead.
#include "platform/windows/KsCameraLayouts.h"
#include "platform/windows/MfCameraConfiguration.h"
#include "platform/windows/WinRtCapture.h"

#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <utility>

using namespace Tessel::Bridge::Platform::Windows::WinRt;

namespace {

// Published enumeration values (Windows metadata) the camera code relies on.
static_assert(static_cast<int>(DeviceClass::VideoCapture) == 4);
static_assert(static_cast<int>(Panel::Front) == 1);
static_assert(static_cast<int>(StreamingCaptureMode::Video) == 2);
static_assert(static_cast<int>(VideoDeviceControllerGetDevicePropertyStatus::Success) == 0);
static_assert(static_cast<int>(VideoDeviceControllerGetDevicePropertyStatus::NotSupported) == 3);
static_assert(static_cast<int>(VideoDeviceControllerGetDevicePropertyStatus::MaxPropertyValueSizeRequired) == 6);
static_assert(MF_CAMERA_CONTROL_CONFIGURATION_TYPE_PRESTART == 0 && MF_CAMERA_CONTROL_CONFIGURATION_TYPE_POSTSTART == 1);

struct IidCase {
    const char* name;
    const GUID& declared;
    const wchar_t* published;
};

// Copied from the SDK's mfidl.h, windows.foundation.h, windows.devices.enumeration.h,
// windows.media.capture.h and windows.media.devices.h.
const IidCase kIids[] = {
    {"IMFCameraConfigurationManager", __uuidof(IMFCameraConfigurationManager), L"{A624F617-4704-4206-8A6D-EBDA4A093985}"},
    {"IID_IMFCameraConfigurationManager", IID_IMFCameraConfigurationManager, L"{A624F617-4704-4206-8A6D-EBDA4A093985}"},
    {"IMFCameraControlDefaultsCollection", __uuidof(IMFCameraControlDefaultsCollection), L"{92D43D0F-54A8-4BAE-96DA-356D259A5C26}"},
    {"IID_IMFCameraControlDefaultsCollection", IID_IMFCameraControlDefaultsCollection, L"{92D43D0F-54A8-4BAE-96DA-356D259A5C26}"},
    {"IMFCameraControlDefaults", __uuidof(IMFCameraControlDefaults), L"{75510662-B034-48F4-88A7-8DE61DAA4AF9}"},
    {"IID_IMFCameraControlDefaults", IID_IMFCameraControlDefaults, L"{75510662-B034-48F4-88A7-8DE61DAA4AF9}"},
    {"CLSID_CameraConfigurationManager", CLSID_CameraConfigurationManager, L"{6C92B540-5854-4A17-92B6-AC89C96E9683}"},
    {"MF_DEVSOURCE_ATTRIBUTE_SOURCE_TYPE_VIDCAP_SYMBOLIC_LINK", MF_DEVSOURCE_ATTRIBUTE_SOURCE_TYPE_VIDCAP_SYMBOLIC_LINK, L"{58F0AAD8-22BF-4F8A-BB3D-D2C4978C6E2F}"},
    {"IAsyncInfo", __uuidof(IAsyncInfo), L"{00000036-0000-0000-C000-000000000046}"},
    {"IClosable", __uuidof(IClosable), L"{30D5A829-7FA4-4026-83BB-D75BAE4EA99E}"},
    {"IAsyncAction", __uuidof(IAsyncAction), L"{5A648006-843A-4DA9-865B-9D26E5DFAD7B}"},
    {"AsyncActionCompletedHandler", __uuidof(IAsyncActionCompletedHandler), L"{A4ED5C81-76C9-40BD-8BE6-B1D90FB20AE7}"},
    {"IReference<UINT32>", __uuidof(IReferenceOfUInt32), L"{513EF3AF-E784-5325-A91E-97C2B8111CF3}"},
    {"IDeviceInformationStatics", __uuidof(IDeviceInformationStatics), L"{C17F100E-3A46-4A78-8013-769DC9B97390}"},
    {"IDeviceInformation", __uuidof(IDeviceInformation), L"{ABA0FB95-4398-489D-8E44-E6130927011F}"},
    {"IEnclosureLocation", __uuidof(IEnclosureLocation), L"{42340A27-5810-459C-AABB-C65E1F813ECF}"},
    {"IVectorView<DeviceInformation>", __uuidof(IVectorViewOfDeviceInformation), L"{E170688F-3495-5BF6-AAB5-9CAC17E0F10F}"},
    {"IAsyncOperation<DeviceInformationCollection>", __uuidof(IAsyncOperationOfDeviceInformationCollection), L"{45180254-082E-5274-B2E7-AC0517F44D07}"},
    {"AsyncOperationCompletedHandler<DeviceInformationCollection>", __uuidof(IAsyncOperationCompletedHandlerOfDeviceInformationCollection), L"{4A458732-527E-5C73-9A68-A73DA370F782}"},
    {"IMediaCapture", __uuidof(IMediaCapture), L"{C61AFBB4-FB10-4A34-AC18-CA80D9C8E7EE}"},
    {"IMediaCaptureInitializationSettings", __uuidof(IMediaCaptureInitializationSettings), L"{9782BA70-EA65-4900-9356-8CA887726884}"},
    {"IMediaCaptureSettings", __uuidof(IMediaCaptureSettings), L"{1D83AAFE-6D45-4477-8DC4-AC5BC01C4091}"},
    {"IVideoDeviceController", __uuidof(IVideoDeviceController), L"{99555575-2E2E-40B8-B6C7-F82D10013210}"},
    {"IMediaDeviceControl", __uuidof(IMediaDeviceControl), L"{EFA8DFA9-6F75-4863-BA0B-583F3036B4DE}"},
    {"IMediaDeviceControlCapabilities", __uuidof(IMediaDeviceControlCapabilities), L"{23005816-EB85-43E2-B92B-8240D5EE70EC}"},
    {"IAdvancedVideoCaptureDeviceController3", __uuidof(IAdvancedVideoCaptureDeviceController3), L"{A98B8F34-EE0D-470C-B9F0-4229C4BBD089}"},
    {"IZoomControl", __uuidof(IZoomControl), L"{3A1E0B12-32DA-4C17-BFD7-8D0C73C8F5A5}"},
    {"IAdvancedVideoCaptureDeviceController5", __uuidof(IAdvancedVideoCaptureDeviceController5), L"{33512B17-B9CB-4A23-B875-F9EAAB535492}"},
    {"IVideoDeviceControllerGetDevicePropertyResult", __uuidof(IVideoDeviceControllerGetDevicePropertyResult), L"{C5D88395-6ED5-4790-8B5D-0EF13935D0F8}"},
};

// A fake object whose vtable entry N records N: calling a method through its
// declaration tells which slot the declaration uses. The entries ignore the
// arguments, which is harmless on x64 and ARM64 where the caller owns them.
constexpr HRESULT kMarker = 0x0BADCA11;
int g_calledSlot = -1;

template <std::size_t Slot>
HRESULT STDMETHODCALLTYPE RecordSlot(void*)
{
    g_calledSlot = static_cast<int>(Slot);
    return kMarker;
}

using VtableEntry = HRESULT(STDMETHODCALLTYPE*)(void*);

template <std::size_t... Slots>
constexpr std::array<VtableEntry, sizeof...(Slots)> MakeVtable(std::index_sequence<Slots...>)
{
    return {&RecordSlot<Slots>...};
}

constexpr auto kVtable = MakeVtable(std::make_index_sequence<64>{});

template <typename Interface, typename Call>
int SlotCalled(Call call)
{
    const VtableEntry* vptr = kVtable.data();
    void* object = &vptr;
    // Keep the optimiser from reasoning about what the object really is.
    __asm__ __volatile__("" : "+r"(object) : : "memory");
    g_calledSlot = -1;
    call(static_cast<Interface*>(object));
    return g_calledSlot;
}

struct SlotCase {
    const char* name;
    int published;
    int (*measure)();
};

#define SLOT(Interface, Method, Args, Published)                                                  \
    SlotCase{#Interface "::" #Method, Published,                                                   \
             [] { return SlotCalled<Interface>([](Interface* self) { (void)self->Method Args; }); }}

const GUID kAnyGuid{};
constexpr auto kPrestart = MF_CAMERA_CONTROL_CONFIGURATION_TYPE_PRESTART;

// IUnknown is 0..2, IMFAttributes 3..32, IInspectable 3..5.
const SlotCase kSlots[] = {
    SLOT(IMFCameraConfigurationManager, LoadDefaults, (nullptr, nullptr), 3),
    SLOT(IMFCameraConfigurationManager, SaveDefaults, (nullptr), 4),
    SLOT(IMFCameraConfigurationManager, Shutdown, (), 5),
    SLOT(IMFCameraControlDefaultsCollection, GetControlCount, (), 33),
    SLOT(IMFCameraControlDefaultsCollection, GetControl, (0ul, nullptr), 34),
    SLOT(IMFCameraControlDefaultsCollection, GetOrAddExtendedControl, (kPrestart, 0ul, 0ul, 0ul, nullptr), 35),
    SLOT(IMFCameraControlDefaultsCollection, GetOrAddControl, (kPrestart, kAnyGuid, 0ul, 0ul, 0ul, nullptr), 36),
    SLOT(IMFCameraControlDefaults, LockControlData, (nullptr, nullptr, nullptr, nullptr), 5),
    SLOT(IMFCameraControlDefaults, UnlockControlData, (), 6),
    SLOT(IAsyncInfo, get_Status, (nullptr), 7),
    SLOT(IAsyncInfo, get_ErrorCode, (nullptr), 8),
    SLOT(IClosable, Close, (), 6),
    SLOT(IAsyncAction, put_Completed, (nullptr), 6),
    SLOT(IAsyncAction, GetResults, (), 8),
    SLOT(IAsyncActionCompletedHandler, Invoke, (nullptr, Completed), 3),
    SLOT(IReferenceOfUInt32, get_Value, (nullptr), 6),
    SLOT(IDeviceInformationStatics, FindAllAsyncDeviceClass, (DeviceClass::VideoCapture, nullptr), 9),
    SLOT(IDeviceInformation, get_Id, (nullptr), 6),
    SLOT(IDeviceInformation, get_EnclosureLocation, (nullptr), 10),
    SLOT(IEnclosureLocation, get_Panel, (nullptr), 8),
    SLOT(IVectorViewOfDeviceInformation, GetAt, (0u, nullptr), 6),
    SLOT(IVectorViewOfDeviceInformation, get_Size, (nullptr), 7),
    SLOT(IAsyncOperationOfDeviceInformationCollection, put_Completed, (nullptr), 6),
    SLOT(IAsyncOperationOfDeviceInformationCollection, GetResults, (nullptr), 8),
    SLOT(IAsyncOperationCompletedHandlerOfDeviceInformationCollection, Invoke, (nullptr, Completed), 3),
    SLOT(IMediaCapture, InitializeWithSettingsAsync, (nullptr, nullptr), 7),
    SLOT(IMediaCapture, get_MediaCaptureSettings, (nullptr), 23),
    SLOT(IMediaCapture, get_VideoDeviceController, (nullptr), 25),
    SLOT(IMediaCaptureInitializationSettings, put_VideoDeviceId, (nullptr), 8),
    SLOT(IMediaCaptureInitializationSettings, put_StreamingCaptureMode, (StreamingCaptureMode::Video), 10),
    SLOT(IMediaCaptureSettings, get_VideoDeviceId, (nullptr), 7),
    SLOT(IVideoDeviceController, get_Brightness, (nullptr), 6),
    SLOT(IMediaDeviceControl, get_Capabilities, (nullptr), 6),
    SLOT(IMediaDeviceControl, TryGetValue, (nullptr, nullptr), 7),
    SLOT(IMediaDeviceControlCapabilities, get_Supported, (nullptr), 6),
    SLOT(IMediaDeviceControlCapabilities, get_Min, (nullptr), 7),
    SLOT(IMediaDeviceControlCapabilities, get_Max, (nullptr), 8),
    SLOT(IAdvancedVideoCaptureDeviceController3, get_ZoomControl, (nullptr), 8),
    SLOT(IZoomControl, get_Supported, (nullptr), 6),
    SLOT(IZoomControl, get_Min, (nullptr), 7),
    SLOT(IZoomControl, get_Max, (nullptr), 8),
    SLOT(IZoomControl, get_Value, (nullptr), 10),
    SLOT(IAdvancedVideoCaptureDeviceController5, GetDevicePropertyById, (nullptr, nullptr, nullptr), 7),
    SLOT(IVideoDeviceControllerGetDevicePropertyResult, get_Status, (nullptr), 6),
    SLOT(IVideoDeviceControllerGetDevicePropertyResult, get_Value, (nullptr), 7),
};

#undef SLOT

} // namespace

TEST(CameraDeclarations, IidsAreThePublishedOnes)
{
    for (const IidCase& iid : kIids) {
        GUID published{};
        ASSERT_EQ(IIDFromString(iid.published, &published), S_OK) << iid.name;
        EXPECT_EQ(iid.declared, published) << iid.name;
    }
}

TEST(CameraDeclarations, MethodsUseThePublishedVtableSlots)
{
    for (const SlotCase& slot : kSlots) EXPECT_EQ(slot.measure(), slot.published) << slot.name;
}
