#include "platform/CameraDefaults.h"

#include "platform/windows/ComPtr.h"
#include "platform/windows/MfCameraConfiguration.h"

#include <mfapi.h>

#include <bit>
#include <utility>

namespace Tessel::Bridge::Platform {
namespace {

using Windows::ComPtr;

static_assert(sizeof(Guid) == sizeof(GUID) && alignof(Guid) == alignof(GUID));

GUID ToGuid(const Guid& guid) noexcept
{
    return std::bit_cast<GUID>(guid);
}

HResult ToResult(HRESULT result) noexcept
{
    return static_cast<HResult>(result);
}

// Other values would not be values of the enumeration at all.
bool IsConfigurationType(std::uint32_t configType) noexcept
{
    return configType <= MF_CAMERA_CONTROL_CONFIGURATION_TYPE_POSTSTART;
}

class MfControlDefaults final : public ICameraControlDefaults {
public:
    explicit MfControlDefaults(ComPtr<IMFCameraControlDefaults> control) noexcept : control_(std::move(control)) {}

    HResult LockControlData(void** control, std::uint32_t* controlSize, void** data,
                            std::uint32_t* dataSize) override
    {
        void* lockedControl = nullptr;
        void* lockedData = nullptr;
        ULONG lockedControlSize = 0;
        ULONG lockedDataSize = 0;
        const HRESULT result = control_->LockControlData(&lockedControl, &lockedControlSize, &lockedData, &lockedDataSize);
        if (SUCCEEDED(result)) {
            if (control != nullptr) *control = lockedControl;
            if (controlSize != nullptr) *controlSize = lockedControlSize;
            if (data != nullptr) *data = lockedData;
            if (dataSize != nullptr) *dataSize = lockedDataSize;
        }
        return ToResult(result);
    }

    HResult UnlockControlData() override { return ToResult(control_->UnlockControlData()); }

private:
    ComPtr<IMFCameraControlDefaults> control_;
};

// Hands out a new control adapter only when the call succeeded with an object.
HResult Adopt(HRESULT result, ComPtr<IMFCameraControlDefaults>& raw, std::shared_ptr<ICameraControlDefaults>& control)
{
    if (SUCCEEDED(result)) {
        if (!raw) return kUnexpected;
        control = std::make_shared<MfControlDefaults>(std::move(raw));
    }
    return ToResult(result);
}

class MfControlDefaultsCollection final : public ICameraControlDefaultsCollection {
public:
    explicit MfControlDefaultsCollection(ComPtr<IMFCameraControlDefaultsCollection> collection) noexcept
        : collection_(std::move(collection))
    {
    }

    std::uint32_t GetControlCount() override { return collection_->GetControlCount(); }

    HResult GetControl(std::uint32_t index, std::shared_ptr<ICameraControlDefaults>& control) override
    {
        ComPtr<IMFCameraControlDefaults> raw;
        return Adopt(collection_->GetControl(index, raw.Put()), raw, control);
    }

    HResult GetOrAddExtendedControl(std::uint32_t configType, std::uint32_t controlId, std::uint32_t streamId,
                                    std::uint32_t dataSize, std::shared_ptr<ICameraControlDefaults>& control) override
    {
        if (!IsConfigurationType(configType)) return kInvalidArgument;
        ComPtr<IMFCameraControlDefaults> raw;
        const HRESULT result = collection_->GetOrAddExtendedControl(
            static_cast<MF_CAMERA_CONTROL_CONFIGURATION_TYPE>(configType), controlId, streamId, dataSize, raw.Put());
        return Adopt(result, raw, control);
    }

    HResult GetOrAddControl(std::uint32_t configType, const Guid& controlSet, std::uint32_t controlId,
                            std::uint32_t controlSize, std::uint32_t dataSize,
                            std::shared_ptr<ICameraControlDefaults>& control) override
    {
        if (!IsConfigurationType(configType)) return kInvalidArgument;
        ComPtr<IMFCameraControlDefaults> raw;
        const HRESULT result =
            collection_->GetOrAddControl(static_cast<MF_CAMERA_CONTROL_CONFIGURATION_TYPE>(configType),
                                         ToGuid(controlSet), controlId, controlSize, dataSize, raw.Put());
        return Adopt(result, raw, control);
    }

    IMFCameraControlDefaultsCollection* Native() const noexcept { return collection_.Get(); }

private:
    ComPtr<IMFCameraControlDefaultsCollection> collection_;
};

class MfAttributes final : public ICameraAttributes {
public:
    explicit MfAttributes(ComPtr<IMFAttributes> attributes) noexcept : attributes_(std::move(attributes)) {}

    HResult SetString(const Guid& key, const std::wstring& value) override
    {
        return ToResult(attributes_->SetString(ToGuid(key), value.c_str()));
    }

    IMFAttributes* Native() const noexcept { return attributes_.Get(); }

private:
    ComPtr<IMFAttributes> attributes_;
};

class MfCameraConfigurationManager final : public ICameraConfigurationManager {
public:
    explicit MfCameraConfigurationManager(ComPtr<IMFCameraConfigurationManager> manager) noexcept
        : manager_(std::move(manager))
    {
    }
    // The manager holds platform resources until it is shut down, not just
    // until its last reference goes.
    ~MfCameraConfigurationManager() override { manager_->Shutdown(); }
    MfCameraConfigurationManager(const MfCameraConfigurationManager&) = delete;
    MfCameraConfigurationManager& operator=(const MfCameraConfigurationManager&) = delete;

    HResult LoadDefaults(ICameraAttributes& cameraAttributes,
                         std::shared_ptr<ICameraControlDefaultsCollection>& collection) override
    {
        const auto* attributes = dynamic_cast<const MfAttributes*>(&cameraAttributes);
        if (attributes == nullptr) return kInvalidArgument;
        ComPtr<IMFCameraControlDefaultsCollection> raw;
        const HRESULT result = manager_->LoadDefaults(attributes->Native(), raw.Put());
        if (SUCCEEDED(result)) {
            if (!raw) return kUnexpected;
            collection = std::make_shared<MfControlDefaultsCollection>(std::move(raw));
        }
        return ToResult(result);
    }

    HResult SaveDefaults(ICameraControlDefaultsCollection& collection) override
    {
        const auto* ours = dynamic_cast<const MfControlDefaultsCollection*>(&collection);
        if (ours == nullptr) return kInvalidArgument;
        return ToResult(manager_->SaveDefaults(ours->Native()));
    }

private:
    ComPtr<IMFCameraConfigurationManager> manager_;
};

class MfCameraDefaultsPlatform final : public ICameraDefaultsPlatform {
public:
    // COM is the caller's: the process joins its apartment before it gets here.
    HResult CreateConfigurationManager(std::unique_ptr<ICameraConfigurationManager>& manager) override
    {
        ComPtr<IMFCameraConfigurationManager> raw;
        const HRESULT result = CoCreateInstance(CLSID_CameraConfigurationManager, nullptr, CLSCTX_INPROC_SERVER,
                                                IID_IMFCameraConfigurationManager, raw.PutVoid());
        if (SUCCEEDED(result)) {
            if (!raw) return kUnexpected;
            manager = std::make_unique<MfCameraConfigurationManager>(std::move(raw));
        }
        return ToResult(result);
    }

    HResult CreateAttributes(std::uint32_t initialSize, std::unique_ptr<ICameraAttributes>& attributes) override
    {
        ComPtr<IMFAttributes> raw;
        const HRESULT result = MFCreateAttributes(raw.Put(), initialSize);
        if (SUCCEEDED(result)) {
            if (!raw) return kUnexpected;
            attributes = std::make_unique<MfAttributes>(std::move(raw));
        }
        return ToResult(result);
    }
};

} // namespace

std::shared_ptr<ICameraDefaultsPlatform> CreateCameraDefaultsPlatform()
{
    return std::make_shared<MfCameraDefaultsPlatform>();
}

} // namespace Tessel::Bridge::Platform
