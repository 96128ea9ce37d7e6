// The Wine prefix's camera platform with one camera: the capture classes'
// Windows Runtime factories and the configuration manager COM class (defaults
// in defaults.bin of KESTREL_TEST_CAMERA_DEFAULTS). Enumeration and opening
// finish on another thread, as on Windows. Objects are slot tables: only slots
// the product calls have code, taking the object first.
#include "platform/windows/KsCameraLayouts.h"
#include "platform/windows/MfCameraConfiguration.h"
#include "platform/windows/WinRtCapture.h"

#include <activation.h>
#include <objbase.h>
#include <winstring.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

using namespace Tessel::Bridge::Platform::Windows::WinRt;

namespace {

constexpr const wchar_t* kCameraId = L"\\\\?\\USB#VID_5986&PID_2113&MI_00#integrated-camera";

// A saved default; its control buffer starts with the KSPROPERTY naming it.
struct Entry {
    std::vector<char> control, data;
};

// What an object and the objects it hands out share.
struct State {
    std::wstring videoDeviceId;
    StreamingCaptureMode mode = StreamingCaptureMode::AudioAndVideo;
    std::atomic<AsyncStatus> status = AsyncStatus::Started;
    std::vector<std::shared_ptr<Entry>> entries; // of a defaults collection
    std::shared_ptr<Entry> entry;                // of one default
};

using Slot = void (*)();
struct Interface;
struct Object {
    const Slot* vtable;
    const Interface* type;
    std::shared_ptr<State> state;
    std::atomic<ULONG> references = 1;
};

template <typename Function>
Slot S(Function function) { return reinterpret_cast<Slot>(+function); }

HRESULT NotImplemented() { return E_NOTIMPL; }
HRESULT Succeed() { return S_OK; }
const Slot NI = S(NotImplemented);

std::vector<const Interface*> g_interfaces;

struct Interface { // unused: slots after IUnknown's the product never calls
    Interface(const IID& id, std::size_t unused, std::initializer_list<Slot> own);
    IID iid;
    std::vector<Slot> vtable;
};
constexpr std::size_t kInspectable = 3;

Object* New(const Interface& type, std::shared_ptr<State> state = std::make_shared<State>())
{ return new Object{type.vtable.data(), &type, std::move(state)}; }

ULONG AddRef(Object* self) { return ++self->references; }

ULONG Release(Object* self)
{
    const ULONG left = --self->references;
    if (left == 0) delete self;
    return left;
}

// Any other interface of the bed is a new object over the same state.
HRESULT QueryInterface(Object* self, REFIID iid, void** out)
{
    *out = nullptr;
    const bool same = iid == __uuidof(::IUnknown) || iid == __uuidof(::IInspectable) || iid == __uuidof(::IAgileObject);
    if (same || iid == self->type->iid) return AddRef(self), *out = self, S_OK;
    for (const Interface* type : g_interfaces) {
        if (type->iid == iid) return *out = New(*type, self->state), S_OK;
    }
    return E_NOINTERFACE;
}

Interface::Interface(const IID& id, std::size_t unused, std::initializer_list<Slot> own)
    : iid(id), vtable{S(QueryInterface), S(AddRef), S(Release)}
{
    vtable.insert(vtable.end(), unused, NI);
    vtable.insert(vtable.end(), own);
    g_interfaces.push_back(this);
}

template <const Interface& Type>
HRESULT Give(Object* self, Object** out) { return *out = New(Type, self->state), S_OK; }
template <typename T, int Value>
HRESULT Answer(Object*, T* value) { return *value = static_cast<T>(Value), S_OK; }
HRESULT CameraId(Object*, HSTRING* id) { return WindowsCreateString(kCameraId, static_cast<UINT32>(wcslen(kCameraId)), id); }

// Both completion handlers have Invoke(sender, status) in slot 3.
HRESULT SetCompleted(Object* self, IAsyncActionCompletedHandler* handler)
{
    AddRef(self);
    handler->AddRef();
    std::thread([=] {
        Sleep(50);
        handler->Invoke(reinterpret_cast<IAsyncAction*>(self), self->state->status = AsyncStatus::Completed);
        handler->Release();
        Release(self);
    }).detach();
    return S_OK;
}

const Interface kAsyncInfo{__uuidof(IAsyncInfo), kInspectable,
    {NI, S([](Object* self, AsyncStatus* status) { return *status = self->state->status, S_OK; }),
     S(Answer<HRESULT, S_OK>)}};
const Interface kDevice{__uuidof(IDeviceInformation), kInspectable, {S(CameraId)}};
const Interface kDevices{__uuidof(IVectorViewOfDeviceInformation), kInspectable,
    {S([](Object*, UINT32, Object** out) { return *out = New(kDevice), S_OK; }),
     S(Answer<UINT32, 1>)}};
const Interface kFindAll{__uuidof(IAsyncOperationOfDeviceInformationCollection), kInspectable,
    {S(SetCompleted), NI, S(Give<kDevices>)}};
const Interface kInitialize{__uuidof(IAsyncAction), kInspectable, {S(SetCompleted), NI, S(Succeed)}};

// Zoom from 100 to 400 at 100; brightness from -64 to 64 at 0.
const Interface kZoom{__uuidof(IZoomControl), kInspectable,
    {S(Answer<::boolean, 1>), S(Answer<FLOAT, 100>), S(Answer<FLOAT, 400>), NI, S(Answer<FLOAT, 100>)}};
const Interface kCapabilities{__uuidof(IMediaDeviceControlCapabilities), kInspectable,
    {S(Answer<::boolean, 1>), S(Answer<DOUBLE, -64>), S(Answer<DOUBLE, 64>)}};
const Interface kBrightness{__uuidof(IMediaDeviceControl), kInspectable,
    {S(Give<kCapabilities>), S([](Object*, DOUBLE* value, ::boolean* read) { return *value = 0, *read = 1, S_OK; })}};
const Interface kProperty{__uuidof(IVideoDeviceControllerGetDevicePropertyResult), kInspectable, {S(Answer<INT32, 0>)}};
const Interface kController{__uuidof(IVideoDeviceController), kInspectable, {S(Give<kBrightness>)}};
const Interface kController3{__uuidof(IAdvancedVideoCaptureDeviceController3), kInspectable, {NI, NI, S(Give<kZoom>)}};
// Every device property (blur, automatic framing) reads with Success.
const Interface kController5{__uuidof(IAdvancedVideoCaptureDeviceController5), kInspectable,
    {NI, S([](Object*, HSTRING, void* maxSize, Object** out) { return maxSize ? E_INVALIDARG : (*out = New(kProperty), S_OK); })}};
const Interface kCaptureSettings{__uuidof(IMediaCaptureSettings), kInspectable, {NI, S(CameraId)}};
const Interface kClosable{__uuidof(IClosable), kInspectable, {S(Succeed)}};

HRESULT InitializeWithSettings(Object*, Object* settings, Object** out)
{
    if (settings->state->mode != StreamingCaptureMode::Video) return E_INVALIDARG;
    if (settings->state->videoDeviceId != kCameraId) return HRESULT_FROM_WIN32(ERROR_NOT_FOUND);
    return *out = New(kInitialize), S_OK;
}

const Interface kCapture{__uuidof(IMediaCapture), kInspectable,
    {NI, S(InitializeWithSettings), NI, NI, NI, NI, NI, NI, NI, NI, NI, NI, NI, NI, NI, NI, NI, // slots 6 to 22
     S(Give<kCaptureSettings>), NI, S(Give<kController>)}};
const Interface kSettings{__uuidof(IMediaCaptureInitializationSettings), kInspectable,
    {NI, NI, S([](Object* self, HSTRING id) { return self->state->videoDeviceId = WindowsGetStringRawBuffer(id, nullptr), S_OK; }),
     NI, S([](Object* self, StreamingCaptureMode mode) { return self->state->mode = mode, S_OK; })}};
// DeviceInformation's factory is its statics; the others answer IActivationFactory.
const Interface kStatics{__uuidof(IDeviceInformationStatics), kInspectable,
    {NI, NI, NI, S([](Object*, DeviceClass deviceClass, Object** out) {
         return deviceClass != DeviceClass::VideoCapture ? E_INVALIDARG : (*out = New(kFindAll), S_OK);
     })}};
const Interface kCaptureFactory{__uuidof(IActivationFactory), kInspectable, {S(Give<kCapture>)}};
const Interface kSettingsFactory{__uuidof(IActivationFactory), kInspectable, {S(Give<kSettings>)}};

std::filesystem::path StoreFile()
{
    wchar_t folder[MAX_PATH] = L"";
    GetEnvironmentVariableW(L"KESTREL_TEST_CAMERA_DEFAULTS", folder, MAX_PATH);
    return std::filesystem::path(folder) / L"defaults.bin";
}

const Interface kControl{__uuidof(IMFCameraControlDefaults), 2,
    {S([](Object* self, void** control, ULONG* controlSize, void** data, ULONG* dataSize) {
         Entry& entry = *self->state->entry;
         *control = entry.control.data(), *controlSize = static_cast<ULONG>(entry.control.size());
         *data = entry.data.data(), *dataSize = static_cast<ULONG>(entry.data.size());
         return S_OK;
     }),
     S(Succeed)}};

Object* ControlOf(std::shared_ptr<Entry> entry)
{
    auto control = std::make_shared<State>();
    control->entry = std::move(entry);
    return New(kControl, control);
}

// A default is found by its property set and id.
HRESULT GetOrAdd(Object* self, REFGUID set, ULONG id, ULONG controlSize, ULONG dataSize, Object** out)
{
    if (controlSize < sizeof(KSPROPERTY)) return E_INVALIDARG;
    KSPROPERTY property{};
    property.Set = set;
    property.Id = id;
    std::vector<std::shared_ptr<Entry>>& entries = self->state->entries;
    auto found = std::find_if(entries.begin(), entries.end(), [&](const std::shared_ptr<Entry>& entry) {
        return std::memcmp(entry->control.data(), &property, offsetof(KSPROPERTY, Flags)) == 0;
    });
    if (found == entries.end()) {
        auto entry = std::make_shared<Entry>(Entry{std::vector<char>(controlSize), std::vector<char>(dataSize)});
        std::memcpy(entry->control.data(), &property, sizeof property);
        found = entries.insert(entries.end(), std::move(entry));
    }
    return *out = ControlOf(*found), S_OK;
}

// ksmedia.h: KSPROPERTYSETID_ExtendedCameraControl.
constexpr GUID kExtendedControlSet{0x1cb79112, 0xc0d2, 0x4213, {0x9c, 0xa6, 0xcd, 0x4f, 0xdb, 0x92, 0x79, 0x72}};

// IMFAttributes' 30 slots come first: nothing reads a collection's own attributes.
const Interface kCollection{__uuidof(IMFCameraControlDefaultsCollection), 30,
    {S([](Object* self) { return static_cast<ULONG>(self->state->entries.size()); }),
     S([](Object* self, ULONG index, Object** out) {
         return index >= self->state->entries.size() ? E_INVALIDARG : (*out = ControlOf(self->state->entries[index]), S_OK);
     }),
     S([](Object* self, ULONG, ULONG id, DWORD, ULONG dataSize, Object** out) {
         return GetOrAdd(self, kExtendedControlSet, id, sizeof(KSPROPERTY), dataSize, out);
     }),
     S([](Object* self, ULONG, REFGUID set, ULONG id, ULONG controlSize, ULONG dataSize, Object** out) {
         return GetOrAdd(self, set, id, controlSize, dataSize, out);
     })}};

// Only the camera's own defaults: the attributes name it by its symbolic link.
HRESULT LoadDefaults(Object*, IMFAttributes* attributes, Object** out)
{
    wchar_t* link = nullptr;
    UINT32 length = 0;
    if (FAILED(attributes->GetAllocatedString(MF_DEVSOURCE_ATTRIBUTE_SOURCE_TYPE_VIDCAP_SYMBOLIC_LINK, &link, &length))) return E_INVALIDARG;
    const bool ours = std::wstring(link, length) == kCameraId;
    CoTaskMemFree(link);
    if (!ours) return E_INVALIDARG;
    auto collection = std::make_shared<State>();
    std::ifstream in(StoreFile(), std::ios::binary);
    for (ULONG sizes[2]; in.read(reinterpret_cast<char*>(sizes), sizeof sizes);) {
        auto entry = std::make_shared<Entry>(Entry{std::vector<char>(sizes[0]), std::vector<char>(sizes[1])});
        in.read(entry->control.data(), sizes[0]).read(entry->data.data(), sizes[1]);
        collection->entries.push_back(std::move(entry));
    }
    return *out = New(kCollection, collection), S_OK;
}

HRESULT SaveDefaults(Object*, Object* collection)
{
    std::ofstream out(StoreFile(), std::ios::binary | std::ios::trunc);
    for (const std::shared_ptr<Entry>& entry : collection->state->entries) {
        const ULONG sizes[2] = {static_cast<ULONG>(entry->control.size()), static_cast<ULONG>(entry->data.size())};
        out.write(reinterpret_cast<const char*>(sizes), sizeof sizes).write(entry->control.data(), sizes[0]).write(entry->data.data(), sizes[1]);
    }
    out.close();
    return out ? S_OK : HRESULT_FROM_WIN32(ERROR_WRITE_FAULT);
}

const Interface kManager{__uuidof(IMFCameraConfigurationManager), 0, {S(LoadDefaults), S(SaveDefaults), S([](Object*) {})}};

HRESULT Hand(Object* object, REFIID iid, void** out)
{
    const HRESULT result = QueryInterface(object, iid, out);
    Release(object);
    return result;
}

const Interface kClassFactory{__uuidof(IClassFactory), 0,
    {S([](Object*, IUnknown* outer, REFIID iid, void** out) { return outer != nullptr ? CLASS_E_NOAGGREGATION : Hand(New(kManager), iid, out); }),
     S(Succeed)}};

} // namespace

extern "C" HRESULT STDAPICALLTYPE DllGetActivationFactory(HSTRING classId, Object** factory)
{
    // Windows refuses activation outside any apartment; Wine does not check.
    APTTYPE type{};
    APTTYPEQUALIFIER qualifier{};
    if (FAILED(CoGetApartmentType(&type, &qualifier))) return CO_E_NOTINITIALIZED;
    const std::wstring name = WindowsGetStringRawBuffer(classId, nullptr);
    *factory = New(name == RuntimeClass_Windows_Media_Capture_MediaCapture ? kCaptureFactory
                   : name == RuntimeClass_Windows_Media_Capture_MediaCaptureInitializationSettings ? kSettingsFactory
                                                                                                   : kStatics);
    return S_OK;
}

STDAPI DllGetClassObject(REFCLSID clsid, REFIID iid, void** object)
{
    return clsid != CLSID_CameraConfigurationManager ? CLASS_E_CLASSNOTAVAILABLE : Hand(New(kClassFactory), iid, object);
}

STDAPI DllCanUnloadNow()
{
    return S_FALSE;
}
