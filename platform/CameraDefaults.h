#pragma once

#include "platform/ResultException.h"

#include <cstdint>
#include <memory>
#include <string>

namespace Tessel::Bridge::Platform {

// A GUID, laid out as the platform lays it out (16 bytes, little-endian fields).
struct Guid {
    std::uint32_t data1;
    std::uint16_t data2;
    std::uint16_t data3;
    std::uint8_t data4[8];

    bool operator==(const Guid&) const = default;
};
static_assert(sizeof(Guid) == 16);

// The camera platform's store of persisted camera defaults: the values applied
// whenever any application starts the camera. Each interface mirrors one
// Media Foundation interface; every operation answers the platform's status
// code, and outputs are written only on success.

// One persisted default (IMFCameraControlDefaults). The buffers handed out by
// LockControlData stay valid until UnlockControlData: the control buffer is
// the kernel-streaming property header, the data buffer the value payload.
class ICameraControlDefaults {
public:
    virtual ~ICameraControlDefaults() = default;
    virtual HResult LockControlData(void** control, std::uint32_t* controlSize, void** data,
                                    std::uint32_t* dataSize) = 0;
    virtual HResult UnlockControlData() = 0;
};

// A camera's persisted defaults (IMFCameraControlDefaultsCollection).
class ICameraControlDefaultsCollection {
public:
    virtual ~ICameraControlDefaultsCollection() = default;
    virtual std::uint32_t GetControlCount() = 0;
    virtual HResult GetControl(std::uint32_t index, std::shared_ptr<ICameraControlDefaults>& control) = 0;
    // Entries of the extended camera control set, per stream.
    virtual HResult GetOrAddExtendedControl(std::uint32_t configType, std::uint32_t controlId,
                                            std::uint32_t streamId, std::uint32_t dataSize,
                                            std::shared_ptr<ICameraControlDefaults>& control) = 0;
    // Entries of any property set, with both buffer sizes given.
    virtual HResult GetOrAddControl(std::uint32_t configType, const Guid& controlSet, std::uint32_t controlId,
                                    std::uint32_t controlSize, std::uint32_t dataSize,
                                    std::shared_ptr<ICameraControlDefaults>& control) = 0;
};

// An attribute store (IMFAttributes) that names the camera.
class ICameraAttributes {
public:
    virtual ~ICameraAttributes() = default;
    virtual HResult SetString(const Guid& key, const std::wstring& value) = 0;
};

// IMFCameraConfigurationManager.
class ICameraConfigurationManager {
public:
    virtual ~ICameraConfigurationManager() = default;
    virtual HResult LoadDefaults(ICameraAttributes& cameraAttributes,
                                 std::shared_ptr<ICameraControlDefaultsCollection>& collection) = 0;
    // Only collections that this platform's LoadDefaults handed out.
    virtual HResult SaveDefaults(ICameraControlDefaultsCollection& collection) = 0;
};

// Creates the configuration manager (the COM class of the camera platform,
// in-process) and an attribute store of the given initial size.
class ICameraDefaultsPlatform {
public:
    virtual ~ICameraDefaultsPlatform() = default;
    virtual HResult CreateConfigurationManager(std::unique_ptr<ICameraConfigurationManager>& manager) = 0;
    virtual HResult CreateAttributes(std::uint32_t initialSize, std::unique_ptr<ICameraAttributes>& attributes) = 0;
};

std::shared_ptr<ICameraDefaultsPlatform> CreateCameraDefaultsPlatform();

// MF_DEVSOURCE_ATTRIBUTE_SOURCE_TYPE_VIDCAP_SYMBOLIC_LINK: the camera's device id.
inline constexpr Guid kVideoCaptureSymbolicLink{
    0x58F0AAD8, 0x22BF, 0x4F8A, {0xBB, 0x3D, 0xD2, 0xC4, 0x97, 0x8C, 0x6E, 0x2F}};

// The configuration type of defaults applied after the stream starts, and the
// stream id meaning the whole filter.
inline constexpr std::uint32_t kPostStartConfiguration = 1;
inline constexpr std::uint32_t kFilterStream = 0xFFFFFFFF;

} // namespace Tessel::Bridge::Platform
