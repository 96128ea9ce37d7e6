// Stand-ins for the capture classes the camera runtime activates, registered in
// the test prefix. The cameras come from the file KESTREL_TEST_CAMERAS names,
// else the fresh PC's one camera, one per line: id, panel (a Panel number or
// "none"), open (0, "cancel" or the failure code in hexadecimal), zoom and
// brightness (supported min max value each), and the statuses of the device
// properties whose ids end in 41 and 43. Every open appends its id to that
// file's name plus ".opened". Enumeration and failed opens finish on another
// thread once a handler is set.
//
// Objects are slot tables, not classes, so only the slots the runtime calls
// need code. Each entry takes the object first, where x64 passes "this"; the
// shared "not implemented" entry ignores its arguments, which x64 allows.
#include "platform/windows/WinRtCapture.h"

#include <activation.h>
#include <objbase.h>
#include <winstring.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

using namespace Tessel::Bridge::Platform::Windows::WinRt;

namespace {

struct Camera {
    std::wstring id, panel, open;
    double zoom[4]{}, brightness[4]{}; // supported, min, max, value
    INT32 status41 = 0, status43 = 0;
};

std::filesystem::path CamerasFile()
{
    wchar_t path[MAX_PATH] = L"";
    GetEnvironmentVariableW(L"KESTREL_TEST_CAMERAS", path, MAX_PATH);
    return path;
}

// Without a file, the built-in camera of the emulated PC.
std::vector<Camera> Cameras()
{
    std::vector<Camera> cameras;
    std::wifstream file(CamerasFile());
    std::wistringstream builtIn(L"integrated-camera 1 0 1 100 400 100 1 -64 64 0 0 0");
    std::wistream& in = CamerasFile().empty() ? static_cast<std::wistream&>(builtIn) : file;
    for (Camera camera; in >> camera.id >> camera.panel >> camera.open;) {
        for (double& value : camera.zoom) in >> value;
        for (double& value : camera.brightness) in >> value;
        if (in >> camera.status41 >> camera.status43) cameras.push_back(camera);
    }
    return cameras;
}

// What an object and the objects it hands out share.
struct State {
    std::vector<Camera> cameras; // of an enumeration
    Camera camera;
    std::wstring videoDeviceId;
    StreamingCaptureMode mode = StreamingCaptureMode::AudioAndVideo;
    std::atomic<AsyncStatus> status = AsyncStatus::Completed;
    AsyncStatus outcome = AsyncStatus::Completed;
    HRESULT error = S_OK;
    INT32 propertyStatus = 0;
    std::atomic<bool> closed = false;
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
Slot S(Function function)
{
    return reinterpret_cast<Slot>(+function);
}

HRESULT NotImplemented()
{
    return E_NOTIMPL;
}
const Slot NI = S(NotImplemented);

std::vector<const Interface*> g_interfaces;

struct Interface {
    Interface(const IID& id, std::initializer_list<Slot> own);
    IID iid;
    std::vector<Slot> vtable;
};

Object* New(const Interface& type, std::shared_ptr<State> state = std::make_shared<State>())
{
    return new Object{type.vtable.data(), &type, std::move(state)};
}

ULONG AddRef(Object* self)
{
    return ++self->references;
}

ULONG Release(Object* self)
{
    const ULONG left = --self->references;
    if (left == 0) delete self;
    return left;
}

// Any other interface of the bed is a new object over the same state.
HRESULT QueryInterface(Object* self, REFIID iid, Object** out)
{
    *out = nullptr;
    if (iid == __uuidof(::IUnknown) || iid == __uuidof(::IInspectable) || iid == __uuidof(::IAgileObject) ||
        iid == self->type->iid) {
        AddRef(self);
        *out = self;
    }
    for (const Interface* type : g_interfaces) {
        if (*out == nullptr && type->iid == iid) *out = New(*type, self->state);
    }
    return *out != nullptr ? S_OK : E_NOINTERFACE;
}

Interface::Interface(const IID& id, std::initializer_list<Slot> own)
    : iid(id), vtable{S(QueryInterface), S(AddRef), S(Release), NI, NI, NI}
{
    vtable.insert(vtable.end(), own);
    g_interfaces.push_back(this);
}

template <double (Camera::*Field)[4], int Index, typename T>
HRESULT Read(Object* self, T* value)
{
    *value = static_cast<T>((self->state->camera.*Field)[Index]);
    return S_OK;
}

template <const Interface& Type>
HRESULT Give(Object* self, Object** out)
{
    *out = New(Type, self->state);
    return S_OK;
}

HRESULT Text(const std::wstring& text, HSTRING* out)
{
    return WindowsCreateString(text.c_str(), static_cast<UINT32>(text.size()), out);
}

// Both completion handlers have Invoke(sender, status) in slot 3.
HRESULT SetCompleted(Object* self, IAsyncActionCompletedHandler* handler)
{
    const auto sender = reinterpret_cast<IAsyncAction*>(self);
    if (self->state->status != AsyncStatus::Started) return handler->Invoke(sender, self->state->status);
    AddRef(self);
    handler->AddRef();
    std::thread([=] {
        Sleep(50);
        handler->Invoke(sender, self->state->status = self->state->outcome);
        handler->Release();
        Release(self);
    }).detach();
    return S_OK;
}

const Interface kAsyncInfo{__uuidof(IAsyncInfo),
    {NI, S([](Object* self, AsyncStatus* status) { return *status = self->state->status, S_OK; }),
     S([](Object* self, HRESULT* error) { return *error = self->state->error, S_OK; }), NI, NI}};
// A panel that is not a number fails to read.
const Interface kEnclosure{__uuidof(IEnclosureLocation), {NI, NI, S([](Object* self, Panel* panel) {
    const std::wstring& text = self->state->camera.panel;
    if (text.find_first_not_of(L"0123456789") != std::wstring::npos) return E_FAIL;
    return *panel = static_cast<Panel>(std::stoi(text)), S_OK;
})}};
const Interface kDevice{__uuidof(IDeviceInformation),
    {S([](Object* self, HSTRING* id) { return Text(self->state->camera.id, id); }), NI, NI, NI,
     S([](Object* self, Object** out) {
         *out = self->state->camera.panel == L"none" ? nullptr : New(kEnclosure, self->state);
         return S_OK;
     })}};
const Interface kDevices{__uuidof(IVectorViewOfDeviceInformation),
    {S([](Object* self, UINT32 index, Object** out) {
         auto device = std::make_shared<State>();
         device->camera = self->state->cameras.at(index);
         return *out = New(kDevice, device), S_OK;
     }),
     S([](Object* self, UINT32* size) { return *size = static_cast<UINT32>(self->state->cameras.size()), S_OK; })}};
const Interface kFindAll{__uuidof(IAsyncOperationOfDeviceInformationCollection),
    {S(SetCompleted), NI, S([](Object* self, Object** out) { return *out = New(kDevices, self->state), S_OK; })}};
const Interface kInitialize{__uuidof(IAsyncAction), {S(SetCompleted), NI, S([](Object* self) {
    return self->state->status == AsyncStatus::Completed ? S_OK : E_FAIL;
})}};

const Interface kZoom{__uuidof(IZoomControl),
    {S(Read<&Camera::zoom, 0, ::boolean>), S(Read<&Camera::zoom, 1, FLOAT>), S(Read<&Camera::zoom, 2, FLOAT>), NI,
     S(Read<&Camera::zoom, 3, FLOAT>)}};
// The range of a brightness the device lacks fails to read.
template <int Index>
HRESULT BrightnessBound(Object* self, DOUBLE* value)
{
    return self->state->camera.brightness[0] != 0 ? Read<&Camera::brightness, Index>(self, value) : E_NOTIMPL;
}
const Interface kCapabilities{__uuidof(IMediaDeviceControlCapabilities),
    {S(Read<&Camera::brightness, 0, ::boolean>), S(BrightnessBound<1>), S(BrightnessBound<2>)}};
// Without brightness there is no value, as on a real device.
const Interface kBrightness{__uuidof(IMediaDeviceControl),
    {S(Give<kCapabilities>), S([](Object* self, DOUBLE* value, ::boolean* read) {
         const double* brightness = self->state->camera.brightness;
         if (brightness[0] != 0) *value = brightness[3];
         return *read = brightness[0] != 0, S_OK;
     })}};
const Interface kProperty{__uuidof(IVideoDeviceControllerGetDevicePropertyResult),
    {S([](Object* self, INT32* status) { return *status = self->state->propertyStatus, S_OK; })}};
const Interface kController{__uuidof(IVideoDeviceController), {S(Give<kBrightness>)}};
const Interface kController3{__uuidof(IAdvancedVideoCaptureDeviceController3), {NI, NI, S(Give<kZoom>)}};
// Only reads without a maximum size are answered.
const Interface kController5{__uuidof(IAdvancedVideoCaptureDeviceController5),
    {NI, S([](Object* self, HSTRING id, void* maxSize, Object** out) {
         const std::wstring_view name = WindowsGetStringRawBuffer(id, nullptr);
         const Camera& camera = self->state->camera;
         self->state->propertyStatus = name.ends_with(L"41")   ? camera.status41
                                       : name.ends_with(L"43") ? camera.status43
                                                               : 3; // NotSupported
         return maxSize != nullptr ? E_INVALIDARG : (*out = New(kProperty, self->state), S_OK);
     })}};
const Interface kCaptureSettings{__uuidof(IMediaCaptureSettings),
    {NI, S([](Object* self, HSTRING* id) { return Text(self->state->camera.id, id); })}};
// RO_E_CLOSED for a second close, so that tests see the first one arrive.
const Interface kClosable{__uuidof(IClosable),
    {S([](Object* self) { return self->state->closed.exchange(true) ? static_cast<HRESULT>(0x80000013) : S_OK; })}};

HRESULT InitializeWithSettings(Object* self, Object* settings, Object** out)
{
    const State& chosen = *settings->state;
    if (chosen.mode != StreamingCaptureMode::Video) return E_INVALIDARG;
    if (!CamerasFile().empty()) {
        std::wofstream(CamerasFile() += L".opened", std::ios::app) << chosen.videoDeviceId << L'\n';
    }
    for (const Camera& camera : Cameras()) {
        if (camera.id != chosen.videoDeviceId) continue;
        self->state->camera = camera;
        auto initialization = std::make_shared<State>();
        if (camera.open == L"cancel") initialization->outcome = AsyncStatus::Canceled;
        if (camera.open != L"0" && camera.open != L"cancel") {
            initialization->outcome = AsyncStatus::Error;
            initialization->error = static_cast<HRESULT>(std::stoul(camera.open, nullptr, 16));
        }
        if (camera.open != L"0") initialization->status = AsyncStatus::Started;
        return *out = New(kInitialize, initialization), S_OK;
    }
    return HRESULT_FROM_WIN32(ERROR_NOT_FOUND);
}

const Interface kCapture{__uuidof(IMediaCapture),
    {NI, S(InitializeWithSettings), NI, NI, NI, NI, NI, NI, NI, NI, NI, NI, NI, NI, NI, NI, NI, // slots 6 to 22
     S(Give<kCaptureSettings>), NI, S(Give<kController>)}};
const Interface kSettings{__uuidof(IMediaCaptureInitializationSettings),
    {NI, NI, S([](Object* self, HSTRING id) {
         return self->state->videoDeviceId = WindowsGetStringRawBuffer(id, nullptr), S_OK;
     }),
     NI, S([](Object* self, StreamingCaptureMode mode) { return self->state->mode = mode, S_OK; })}};

// DeviceInformation's factory is its statics; the others answer IActivationFactory.
const Interface kStatics{__uuidof(IDeviceInformationStatics),
    {NI, NI, NI, S([](Object*, DeviceClass deviceClass, Object** out) {
         auto enumeration = std::make_shared<State>();
         enumeration->cameras = Cameras();
         enumeration->status = AsyncStatus::Started;
         return deviceClass != DeviceClass::VideoCapture ? E_INVALIDARG : (*out = New(kFindAll, enumeration), S_OK);
     })}};
const Interface kCaptureFactory{__uuidof(IActivationFactory), {S(Give<kCapture>)}};
const Interface kSettingsFactory{__uuidof(IActivationFactory), {S(Give<kSettings>)}};

} // namespace

extern "C" HRESULT STDAPICALLTYPE DllGetActivationFactory(HSTRING classId, Object** factory)
{
    // Windows refuses activation on a thread outside any apartment; Wine's
    // combase does not check, so the stand-ins do.
    APTTYPE type{};
    APTTYPEQUALIFIER qualifier{};
    if (FAILED(CoGetApartmentType(&type, &qualifier))) return CO_E_NOTINITIALIZED;
    const std::wstring name = WindowsGetStringRawBuffer(classId, nullptr);
    *factory = New(name == RuntimeClass_Windows_Media_Capture_MediaCapture ? kCaptureFactory
                   : name == RuntimeClass_Windows_Media_Capture_MediaCaptureInitializationSettings ? kSettingsFactory
                                                                                                   : kStatics);
    return S_OK;
}

extern "C" HRESULT STDAPICALLTYPE DllCanUnloadNow()
{
    return S_FALSE;
}
