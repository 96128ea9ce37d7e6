#pragma once

#include "platform/CameraDefaults.h"

#include <cstdint>
#include <memory>
#include <string>

namespace Tessel::Bridge::Server::Services::Kestrel {

using Platform::Guid;

// Kernel-streaming property sets of the camera controls.
inline constexpr Guid kPropSetVideoProcAmp{ // PROPSETID_VIDCAP_VIDEOPROCAMP
    0xC6E13360, 0x30AC, 0x11D0, {0xA1, 0x8C, 0x00, 0xA0, 0xC9, 0x11, 0x89, 0x56}};
inline constexpr Guid kPropSetCameraControl{ // PROPSETID_VIDCAP_CAMERACONTROL
    0xC6E13370, 0x30AC, 0x11D0, {0xA1, 0x8C, 0x00, 0xA0, 0xC9, 0x11, 0x89, 0x56}};
inline constexpr Guid kPropSetExtendedCameraControl{ // KSPROPERTYSETID_ExtendedCameraControl
    0x1CB79112, 0xC0D2, 0x4213, {0x9C, 0xA6, 0xCD, 0x4F, 0xDB, 0x92, 0x79, 0x72}};

// Opens the camera platform's configuration manager for one camera and loads
// and saves that camera's persisted defaults. Failures throw ResultException.
class DefaultControlManager : public std::enable_shared_from_this<DefaultControlManager> {
public:
    DefaultControlManager(Platform::ICameraDefaultsPlatform& platform, const std::wstring& symbolicLink);

    std::shared_ptr<Platform::ICameraControlDefaultsCollection> LoadDefaults();
    void SaveDefaults(const std::shared_ptr<Platform::ICameraControlDefaultsCollection>& collection);

private:
    std::unique_ptr<Platform::ICameraConfigurationManager> configurationManager_;
    std::unique_ptr<Platform::ICameraAttributes> cameraAttributes_;
};

// Knows the byte layout of one kind of control payload.
class IDefaultControllerInternal {
public:
    virtual void WriteValue(void* control, std::uint32_t controlSize, void* data, std::uint32_t dataSize,
                            std::int32_t value) = 0;
    virtual std::int32_t ReadValue(const void* control, std::uint32_t controlSize, const void* data,
                                   std::uint32_t dataSize) = 0;
    virtual std::shared_ptr<Platform::ICameraControlDefaults> GetOrAddDefault(
        const std::shared_ptr<Platform::ICameraControlDefaultsCollection>& collection, const Guid& controlSet,
        std::uint32_t controlId) = 0;
    virtual ~IDefaultControllerInternal() = default;
};

// Classic video-proc-amp and camera-control properties: the 40-byte
// KSPROPERTY_VIDEOPROCAMP_S in both buffers.
class DefaultControllerVidCapVideoProcAmp final : public IDefaultControllerInternal {
public:
    void WriteValue(void* control, std::uint32_t controlSize, void* data, std::uint32_t dataSize,
                    std::int32_t value) override;
    std::int32_t ReadValue(const void* control, std::uint32_t controlSize, const void* data,
                           std::uint32_t dataSize) override;
    std::shared_ptr<Platform::ICameraControlDefaults> GetOrAddDefault(
        const std::shared_ptr<Platform::ICameraControlDefaultsCollection>& collection, const Guid& controlSet,
        std::uint32_t controlId) override;
};

// Extended controls switched by the header's Flags (blur, automatic framing).
class DefaultControllerExtendedControl final : public IDefaultControllerInternal {
public:
    void WriteValue(void* control, std::uint32_t controlSize, void* data, std::uint32_t dataSize,
                    std::int32_t value) override;
    std::int32_t ReadValue(const void* control, std::uint32_t controlSize, const void* data,
                           std::uint32_t dataSize) override;
    std::shared_ptr<Platform::ICameraControlDefaults> GetOrAddDefault(
        const std::shared_ptr<Platform::ICameraControlDefaultsCollection>& collection, const Guid& controlSet,
        std::uint32_t controlId) override;
};

// Exposure compensation: KSCAMERA_EXTENDEDPROP_EVCOMPENSATION after the header.
class DefaultControllerEVCompExtendedControl final : public IDefaultControllerInternal {
public:
    void WriteValue(void* control, std::uint32_t controlSize, void* data, std::uint32_t dataSize,
                    std::int32_t value) override;
    std::int32_t ReadValue(const void* control, std::uint32_t controlSize, const void* data,
                           std::uint32_t dataSize) override;
    std::shared_ptr<Platform::ICameraControlDefaults> GetOrAddDefault(
        const std::shared_ptr<Platform::ICameraControlDefaultsCollection>& collection, const Guid& controlSet,
        std::uint32_t controlId) override;
};

// Zoom: KSCAMERA_EXTENDEDPROP_VIDEOPROCSETTING after the header; the value is
// a percentage of the camera's raw range.
class DefaultControllerZoomExtendedControl final : public IDefaultControllerInternal {
public:
    void WriteValue(void* control, std::uint32_t controlSize, void* data, std::uint32_t dataSize,
                    std::int32_t value) override;
    std::int32_t ReadValue(const void* control, std::uint32_t controlSize, const void* data,
                           std::uint32_t dataSize) override;
    std::shared_ptr<Platform::ICameraControlDefaults> GetOrAddDefault(
        const std::shared_ptr<Platform::ICameraControlDefaultsCollection>& collection, const Guid& controlSet,
        std::uint32_t controlId) override;
};

enum class ControlKind : std::uint32_t { VideoProcAmp = 0, CameraControl = 1, ExtendedCameraControl = 2 };

// Reads and writes one persisted default: a property id in a property set.
class DefaultController {
public:
    static std::shared_ptr<DefaultController> Create(const std::shared_ptr<DefaultControlManager>& manager,
                                                     ControlKind kind, std::uint32_t controlId);

    // Writes value only when a default for this control is saved.
    bool GetDefaultValue(std::int32_t& value);
    void SetDefaultValue(const std::int32_t* value);

    const Guid& ControlSet() const noexcept { return controlSet_; }

private:
    DefaultController() = default;

    std::uint32_t controlId_ = 0;
    Guid controlSet_{};
    std::shared_ptr<DefaultControlManager> manager_;
    std::unique_ptr<IDefaultControllerInternal> strategy_;
};

} // namespace Tessel::Bridge::Server::Services::Kestrel
