#include "CameraDefaultControl.h"

#include "CameraArithmetic.h"

#include <bit>
#include <cmath>
#include <cstring>

namespace Tessel::Bridge::Server::Services::Kestrel {
namespace {

using Platform::HResult;
using Platform::ResultException;

static_assert(std::endian::native == std::endian::little, "payloads are read and written in place");

// Failures carry this source name and the line that raised them.
#define CAMERA_THROW(code) throw ResultException((code), "CameraDefaultControl", __LINE__)
#define CAMERA_THROW_IF_FAILED(expression)                                                                 \
    do {                                                                                                   \
        const HResult camera_hr_ = (expression);                                                           \
        if (camera_hr_ < 0) CAMERA_THROW(camera_hr_);                                                      \
    } while (false)

// KSPROPERTY and the payloads after it; offsets in bytes.
constexpr std::uint32_t kPropertyHeaderSize = 24;
constexpr std::size_t kPropertySet = 0;
constexpr std::size_t kPropertyId = 16;
constexpr std::size_t kPropertyFlags = 20;
constexpr std::uint32_t kPropertyTypeSet = 2; // KSPROPERTY_TYPE_SET

constexpr std::uint32_t kVideoProcAmpSize = 40; // KSPROPERTY_VIDEOPROCAMP_S
constexpr std::size_t kVideoProcAmpValue = 24;
constexpr std::size_t kVideoProcAmpFlags = 28;
constexpr std::size_t kVideoProcAmpCopied = 32; // everything before Capabilities
constexpr std::uint32_t kVideoProcAmpManual = 2; // KSPROPERTY_VIDEOPROCAMP_FLAGS_MANUAL

constexpr std::uint32_t kExtendedHeaderSize = 32; // KSCAMERA_EXTENDEDPROP_HEADER
constexpr std::size_t kHeaderPinId = 4;
constexpr std::size_t kHeaderSize = 8;
constexpr std::size_t kHeaderFlags = 16;
constexpr std::uint32_t kFilterScope = 0xFFFFFFFF; // KSCAMERA_EXTENDEDPROP_FILTERSCOPE
constexpr std::size_t kExtendedValue = 32;       // the 8-byte value after the header
constexpr std::uint32_t kExtendedValueEnd = 40;

constexpr std::uint32_t kEvCompensationSize = 56; // header + KSCAMERA_EXTENDEDPROP_EVCOMPENSATION
constexpr std::size_t kModeField = 32;
constexpr std::size_t kMinField = 36;
constexpr std::size_t kMaxField = 40;
constexpr std::size_t kEvCompensationValue = 44;

constexpr std::uint32_t kVideoProcSettingSize = 64; // header + KSCAMERA_EXTENDEDPROP_VIDEOPROCSETTING
constexpr std::size_t kVideoProcValue = 48;

constexpr std::uint32_t kAutoFramingControl = 43;
constexpr std::uint32_t kEvCompensationControl = 16;
constexpr std::uint32_t kZoomControl = 24;

template <typename T>
T Load(const void* buffer, std::size_t offset)
{
    T value;
    std::memcpy(&value, static_cast<const unsigned char*>(buffer) + offset, sizeof value);
    return value;
}

template <typename T>
void Store(void* buffer, std::size_t offset, T value)
{
    std::memcpy(static_cast<unsigned char*>(buffer) + offset, &value, sizeof value);
}

// A default's buffers while it is locked.
struct LockedBuffers {
    void* control = nullptr;
    std::uint32_t controlSize = 0;
    void* data = nullptr;
    std::uint32_t dataSize = 0;
};

LockedBuffers Lock(Platform::ICameraControlDefaults& entry)
{
    LockedBuffers buffers;
    CAMERA_THROW_IF_FAILED(entry.LockControlData(&buffers.control, &buffers.controlSize, &buffers.data,
                                                 &buffers.dataSize));
    return buffers;
}

void RequireSizes(std::uint32_t controlSize, std::uint32_t controlMinimum, std::uint32_t dataSize,
                  std::uint32_t dataMinimum)
{
    if (controlSize < controlMinimum || dataSize < dataMinimum) CAMERA_THROW(Platform::kUnexpected);
}

std::shared_ptr<Platform::ICameraControlDefaults> GetOrAddExtended(
    const std::shared_ptr<Platform::ICameraControlDefaultsCollection>& collection, std::uint32_t controlId,
    std::uint32_t dataSize)
{
    if (!collection) CAMERA_THROW(Platform::kInvalidArgument);
    std::shared_ptr<Platform::ICameraControlDefaults> entry;
    CAMERA_THROW_IF_FAILED(collection->GetOrAddExtendedControl(Platform::kPostStartConfiguration, controlId,
                                                               Platform::kFilterStream, dataSize, entry));
    return entry;
}

// The extended header of a value that applies to the whole filter.
void StampFilterHeader(void* control, void* data, std::uint32_t size)
{
    Store<std::uint32_t>(control, kPropertyFlags, kPropertyTypeSet);
    Store<std::uint32_t>(data, kHeaderPinId, kFilterScope);
    Store<std::uint32_t>(data, kHeaderSize, size);
    Store<std::uint64_t>(data, kHeaderFlags, 0);
    Store<std::uint32_t>(data, kModeField, 0);
}

} // namespace

DefaultControlManager::DefaultControlManager(Platform::ICameraDefaultsPlatform& platform,
                                             const std::wstring& symbolicLink)
{
    CAMERA_THROW_IF_FAILED(platform.CreateConfigurationManager(configurationManager_));
    CAMERA_THROW_IF_FAILED(platform.CreateAttributes(1, cameraAttributes_));
    CAMERA_THROW_IF_FAILED(cameraAttributes_->SetString(Platform::kVideoCaptureSymbolicLink, symbolicLink));
}

std::shared_ptr<Platform::ICameraControlDefaultsCollection> DefaultControlManager::LoadDefaults()
{
    std::shared_ptr<Platform::ICameraControlDefaultsCollection> collection;
    CAMERA_THROW_IF_FAILED(configurationManager_->LoadDefaults(*cameraAttributes_, collection));
    return collection;
}

void DefaultControlManager::SaveDefaults(const std::shared_ptr<Platform::ICameraControlDefaultsCollection>& collection)
{
    if (!collection) CAMERA_THROW(Platform::kInvalidArgument);
    CAMERA_THROW_IF_FAILED(configurationManager_->SaveDefaults(*collection));
}

void DefaultControllerVidCapVideoProcAmp::WriteValue(void* control, std::uint32_t controlSize, void* data,
                                                     std::uint32_t dataSize, std::int32_t value)
{
    RequireSizes(controlSize, kVideoProcAmpSize, dataSize, kVideoProcAmpSize);
    Store<std::uint32_t>(control, kPropertyFlags, kPropertyTypeSet);
    Store<std::int32_t>(control, kVideoProcAmpValue, value);
    Store<std::uint32_t>(control, kVideoProcAmpFlags, kVideoProcAmpManual);
    std::memcpy(data, control, kVideoProcAmpCopied);
}

std::int32_t DefaultControllerVidCapVideoProcAmp::ReadValue(const void* control, std::uint32_t controlSize,
                                                            const void*, std::uint32_t)
{
    RequireSizes(controlSize, kVideoProcAmpSize, 0, 0);
    // The control's copy is the one read back, whatever the data holds.
    return Load<std::int32_t>(control, kVideoProcAmpValue);
}

std::shared_ptr<Platform::ICameraControlDefaults> DefaultControllerVidCapVideoProcAmp::GetOrAddDefault(
    const std::shared_ptr<Platform::ICameraControlDefaultsCollection>& collection, const Guid& controlSet,
    std::uint32_t controlId)
{
    if (!collection) CAMERA_THROW(Platform::kInvalidArgument);
    std::shared_ptr<Platform::ICameraControlDefaults> entry;
    CAMERA_THROW_IF_FAILED(collection->GetOrAddControl(Platform::kPostStartConfiguration, controlSet, controlId,
                                                       kVideoProcAmpSize, kVideoProcAmpSize, entry));
    return entry;
}

void DefaultControllerExtendedControl::WriteValue(void* control, std::uint32_t controlSize, void* data,
                                                  std::uint32_t dataSize, std::int32_t value)
{
    RequireSizes(controlSize, kPropertyHeaderSize, dataSize, kExtendedHeaderSize);
    Store<std::uint32_t>(control, kPropertyFlags, kPropertyTypeSet);
    // The value field lies past the smallest payload accepted; a payload
    // without it keeps only the flags.
    if (dataSize >= kExtendedValueEnd) Store<std::uint64_t>(data, kExtendedValue, 0);
    Store<std::int64_t>(data, kHeaderFlags, value);
}

std::int32_t DefaultControllerExtendedControl::ReadValue(const void*, std::uint32_t, const void* data,
                                                         std::uint32_t dataSize)
{
    RequireSizes(0, 0, dataSize, kExtendedHeaderSize);
    return static_cast<std::int32_t>(Load<std::uint64_t>(data, kHeaderFlags) & 0xFFFFFFFFu);
}

std::shared_ptr<Platform::ICameraControlDefaults> DefaultControllerExtendedControl::GetOrAddDefault(
    const std::shared_ptr<Platform::ICameraControlDefaultsCollection>& collection, const Guid&,
    std::uint32_t controlId)
{
    // Automatic framing gets eight bytes more than the plain 40-byte payload.
    return GetOrAddExtended(collection, controlId, controlId == kAutoFramingControl ? 48 : kExtendedValueEnd);
}

void DefaultControllerEVCompExtendedControl::WriteValue(void* control, std::uint32_t controlSize, void* data,
                                                        std::uint32_t dataSize, std::int32_t value)
{
    RequireSizes(controlSize, kPropertyHeaderSize, dataSize, kEvCompensationSize);
    StampFilterHeader(control, data, kEvCompensationSize);
    Store<std::int32_t>(data, kEvCompensationValue, value);
}

std::int32_t DefaultControllerEVCompExtendedControl::ReadValue(const void*, std::uint32_t, const void* data,
                                                               std::uint32_t dataSize)
{
    RequireSizes(0, 0, dataSize, kEvCompensationSize);
    return Load<std::int32_t>(data, kEvCompensationValue);
}

std::shared_ptr<Platform::ICameraControlDefaults> DefaultControllerEVCompExtendedControl::GetOrAddDefault(
    const std::shared_ptr<Platform::ICameraControlDefaultsCollection>& collection, const Guid&,
    std::uint32_t controlId)
{
    return GetOrAddExtended(collection, controlId, kEvCompensationSize);
}

void DefaultControllerZoomExtendedControl::WriteValue(void* control, std::uint32_t controlSize, void* data,
                                                      std::uint32_t dataSize, std::int32_t value)
{
    RequireSizes(controlSize, kPropertyHeaderSize, dataSize, kVideoProcSettingSize);
    StampFilterHeader(control, data, kVideoProcSettingSize);
    // The range is whatever the platform or an earlier save left in the payload;
    // rounding up is deliberate.
    const double min = Load<std::int32_t>(data, kMinField);
    const double max = Load<std::int32_t>(data, kMaxField);
    const double raw = std::ceil((max - min) * value / 100.0 + min);
    Store<std::uint32_t>(data, kVideoProcValue, SaturatingCast<std::uint32_t>(raw));
}

std::int32_t DefaultControllerZoomExtendedControl::ReadValue(const void*, std::uint32_t, const void* data,
                                                             std::uint32_t dataSize)
{
    RequireSizes(0, 0, dataSize, kVideoProcSettingSize);
    const auto min = Load<std::uint32_t>(data, kMinField);
    const auto max = Load<std::uint32_t>(data, kMaxField);
    const auto raw = Load<std::uint32_t>(data, kVideoProcValue);
    // An empty range ends the run the same way on every processor (ARM64
    // would otherwise divide to 0 where x64 traps).
    if (max == min) CAMERA_THROW(Platform::kIntegerDivideByZero);
    return static_cast<std::int32_t>((raw - min) * 100u / (max - min));
}

std::shared_ptr<Platform::ICameraControlDefaults> DefaultControllerZoomExtendedControl::GetOrAddDefault(
    const std::shared_ptr<Platform::ICameraControlDefaultsCollection>& collection, const Guid&,
    std::uint32_t controlId)
{
    return GetOrAddExtended(collection, controlId, kVideoProcSettingSize);
}

std::shared_ptr<DefaultController> DefaultController::Create(const std::shared_ptr<DefaultControlManager>& manager,
                                                             ControlKind kind, std::uint32_t controlId)
{
    std::shared_ptr<DefaultController> controller(new DefaultController());
    controller->manager_ = manager;
    controller->controlId_ = controlId;
    switch (kind) {
    case ControlKind::VideoProcAmp:
        controller->controlSet_ = kPropSetVideoProcAmp;
        controller->strategy_ = std::make_unique<DefaultControllerVidCapVideoProcAmp>();
        break;
    case ControlKind::CameraControl:
        // Same 40-byte payload as the video-proc-amp set.
        controller->controlSet_ = kPropSetCameraControl;
        controller->strategy_ = std::make_unique<DefaultControllerVidCapVideoProcAmp>();
        break;
    case ControlKind::ExtendedCameraControl:
        controller->controlSet_ = kPropSetExtendedCameraControl;
        if (controlId == kEvCompensationControl) {
            controller->strategy_ = std::make_unique<DefaultControllerEVCompExtendedControl>();
        } else if (controlId == kZoomControl) {
            controller->strategy_ = std::make_unique<DefaultControllerZoomExtendedControl>();
        } else {
            controller->strategy_ = std::make_unique<DefaultControllerExtendedControl>();
        }
        break;
    }
    return controller;
}

bool DefaultController::GetDefaultValue(std::int32_t& value)
{
    if (!strategy_) CAMERA_THROW(Platform::kUnexpected);
    const std::shared_ptr<Platform::ICameraControlDefaultsCollection> collection = manager_->LoadDefaults();
    if (!collection) CAMERA_THROW(Platform::kInvalidArgument);
    const std::uint32_t count = collection->GetControlCount();
    bool found = false;
    for (std::uint32_t index = 0; index < count && !found; ++index) {
        std::shared_ptr<Platform::ICameraControlDefaults> entry;
        CAMERA_THROW_IF_FAILED(collection->GetControl(index, entry));
        if (!entry) CAMERA_THROW(Platform::kUnexpected);
        const auto [control, controlSize, data, dataSize] = Lock(*entry);
        // An entry too small for a property header is passed over still
        // locked: that is how the platform's own readers behave.
        if (controlSize < kPropertyHeaderSize) continue;
        if (control == nullptr) CAMERA_THROW(Platform::kOutOfMemory);
        if (Load<std::uint32_t>(control, kPropertyId) == controlId_ &&
            std::memcmp(static_cast<const unsigned char*>(control) + kPropertySet, &controlSet_, sizeof controlSet_) ==
                0) {
            value = strategy_->ReadValue(control, controlSize, data, dataSize);
            found = true;
        }
        CAMERA_THROW_IF_FAILED(entry->UnlockControlData());
    }
    return found;
}

void DefaultController::SetDefaultValue(const std::int32_t* value)
{
    if (!strategy_) CAMERA_THROW(Platform::kUnexpected);
    if (value == nullptr) CAMERA_THROW(Platform::kInvalidArgument);
    const std::shared_ptr<Platform::ICameraControlDefaultsCollection> collection = manager_->LoadDefaults();
    const std::shared_ptr<Platform::ICameraControlDefaults> entry =
        strategy_->GetOrAddDefault(collection, controlSet_, controlId_);
    if (!entry) CAMERA_THROW(Platform::kUnexpected);
    const auto [control, controlSize, data, dataSize] = Lock(*entry);
    if (control == nullptr || data == nullptr) CAMERA_THROW(Platform::kOutOfMemory);
    try {
        strategy_->WriteValue(control, controlSize, data, dataSize, *value);
    } catch (...) {
        entry->UnlockControlData(); // the write's failure is the one reported
        throw;
    }
    CAMERA_THROW_IF_FAILED(entry->UnlockControlData());
    manager_->SaveDefaults(collection);
}

} // namespace Tessel::Bridge::Server::Services::Kestrel
