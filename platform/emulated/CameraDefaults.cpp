#include "platform/CameraDefaults.h"

#include "platform/emulated/EmulatedCameras.h"

#include <cstring>
#include <map>

namespace Tessel::Bridge::Platform {
namespace {

using Emulated::DefaultEntry;
using Emulated::EmulatedPc;
using Emulated::State;

constexpr HResult kInvalidRequest = ToHResult(0xC00D36B2); // MF_E_INVALIDREQUEST
constexpr HResult kInvalidIndex = ToHResult(0xC00D36BF);   // MF_E_INVALIDINDEX
constexpr Guid kExtendedCameraControl{0x1CB79112, 0xC0D2, 0x4213, {0x9C, 0xA6, 0xCD, 0x4F, 0xDB, 0x92, 0x79, 0x72}};

// A default as the platform hands it out: its buffers while locked.
class EmulatedControlDefaults final : public ICameraControlDefaults {
public:
    explicit EmulatedControlDefaults(DefaultEntry entry) : entry_(std::move(entry)) {}

    HResult LockControlData(void** control, std::uint32_t* controlSize, void** data, std::uint32_t* dataSize) override
    {
        if (locked_) return kInvalidRequest;
        locked_ = true;
        *control = entry_.control.empty() ? nullptr : entry_.control.data();
        *controlSize = static_cast<std::uint32_t>(entry_.control.size());
        *data = entry_.data.empty() ? nullptr : entry_.data.data();
        *dataSize = static_cast<std::uint32_t>(entry_.data.size());
        return 0;
    }

    HResult UnlockControlData() override
    {
        if (!locked_) return kInvalidRequest;
        locked_ = false;
        return 0;
    }

    const DefaultEntry& Entry() const { return entry_; }

private:
    DefaultEntry entry_;
    bool locked_ = false;
};

// A fresh entry holds zeros after the header that names it, as on the platform.
DefaultEntry NewEntry(std::uint32_t configType, const Guid& set, std::uint32_t id, std::uint32_t streamId,
                      std::uint32_t controlSize, std::uint32_t dataSize)
{
    DefaultEntry entry{configType, set, id, streamId, std::vector<unsigned char>(controlSize),
                       std::vector<unsigned char>(dataSize)};
    unsigned char property[24] = {};
    std::memcpy(property, &set, sizeof set);
    std::memcpy(property + 16, &id, sizeof id);
    std::memcpy(entry.control.data(), property, std::min<std::size_t>(controlSize, sizeof property));
    return entry;
}

class EmulatedDefaultsCollection final : public ICameraControlDefaultsCollection {
public:
    EmulatedDefaultsCollection(std::wstring cameraId, const std::vector<DefaultEntry>& entries)
        : cameraId_(std::move(cameraId))
    {
        for (const DefaultEntry& entry : entries) entries_.push_back(std::make_shared<EmulatedControlDefaults>(entry));
    }

    std::uint32_t GetControlCount() override { return static_cast<std::uint32_t>(entries_.size()); }

    HResult GetControl(std::uint32_t index, std::shared_ptr<ICameraControlDefaults>& control) override
    {
        if (index >= entries_.size()) return kInvalidIndex;
        control = entries_[index];
        return 0;
    }

    HResult GetOrAddExtendedControl(std::uint32_t configType, std::uint32_t controlId, std::uint32_t streamId,
                                    std::uint32_t dataSize, std::shared_ptr<ICameraControlDefaults>& control) override
    {
        if (Find(configType, kExtendedCameraControl, controlId, &streamId, control)) return 0;
        DefaultEntry entry = NewEntry(configType, kExtendedCameraControl, controlId, streamId, 24, dataSize);
        // The extended header: version 1, the stream, the payload's size.
        const std::uint32_t header[3] = {1, streamId, dataSize};
        std::memcpy(entry.data.data(), header, std::min<std::size_t>(dataSize, sizeof header));
        return Add(std::move(entry), control);
    }

    HResult GetOrAddControl(std::uint32_t configType, const Guid& controlSet, std::uint32_t controlId,
                            std::uint32_t controlSize, std::uint32_t dataSize,
                            std::shared_ptr<ICameraControlDefaults>& control) override
    {
        if (Find(configType, controlSet, controlId, nullptr, control)) return 0;
        return Add(NewEntry(configType, controlSet, controlId, kFilterStream, controlSize, dataSize), control);
    }

    const std::wstring& CameraId() const { return cameraId_; }

    std::vector<DefaultEntry> Entries() const
    {
        std::vector<DefaultEntry> entries;
        for (const auto& entry : entries_) entries.push_back(entry->Entry());
        return entries;
    }

private:
    bool Find(std::uint32_t configType, const Guid& set, std::uint32_t id, const std::uint32_t* streamId,
              std::shared_ptr<ICameraControlDefaults>& control) const
    {
        for (const auto& candidate : entries_) {
            const DefaultEntry& entry = candidate->Entry();
            if (entry.configType == configType && entry.set == set && entry.id == id &&
                (streamId == nullptr || entry.streamId == *streamId)) {
                control = candidate;
                return true;
            }
        }
        return false;
    }

    HResult Add(DefaultEntry entry, std::shared_ptr<ICameraControlDefaults>& control)
    {
        entries_.push_back(std::make_shared<EmulatedControlDefaults>(std::move(entry)));
        control = entries_.back();
        return 0;
    }

    std::wstring cameraId_;
    std::vector<std::shared_ptr<EmulatedControlDefaults>> entries_;
};

class EmulatedAttributes final : public ICameraAttributes {
public:
    HResult SetString(const Guid& key, const std::wstring& value) override
    {
        strings_[std::string(reinterpret_cast<const char*>(&key), sizeof key)] = value;
        return 0;
    }

    const std::wstring* Find(const Guid& key) const
    {
        const auto found = strings_.find(std::string(reinterpret_cast<const char*>(&key), sizeof key));
        return found != strings_.end() ? &found->second : nullptr;
    }

private:
    std::map<std::string, std::wstring> strings_;
};

class EmulatedConfigurationManager final : public ICameraConfigurationManager {
public:
    explicit EmulatedConfigurationManager(EmulatedPc pc) : pc_(std::move(pc)) {}

    HResult LoadDefaults(ICameraAttributes& cameraAttributes,
                         std::shared_ptr<ICameraControlDefaultsCollection>& collection) override
    {
        const auto* attributes = dynamic_cast<const EmulatedAttributes*>(&cameraAttributes);
        const std::wstring* link = attributes != nullptr ? attributes->Find(kVideoCaptureSymbolicLink) : nullptr;
        if (link == nullptr) return kInvalidArgument;
        for (const Emulated::EmulatedCamera& camera : Emulated::ReadCameras(pc_, pc_.Read())) {
            if (camera.id == *link) {
                collection = std::make_shared<EmulatedDefaultsCollection>(camera.id, camera.defaults);
                return 0;
            }
        }
        return kNotFound;
    }

    HResult SaveDefaults(ICameraControlDefaultsCollection& collection) override
    {
        const auto* defaults = dynamic_cast<const EmulatedDefaultsCollection*>(&collection);
        if (defaults == nullptr) return kInvalidArgument;
        bool saved = false;
        pc_.Update([&](State& state) {
            saved = Emulated::WriteCameraDefaults(pc_, state, defaults->CameraId(), defaults->Entries());
        });
        return saved ? 0 : kNotFound;
    }

private:
    EmulatedPc pc_;
};

class EmulatedDefaultsPlatform final : public ICameraDefaultsPlatform {
public:
    HResult CreateConfigurationManager(std::unique_ptr<ICameraConfigurationManager>& manager) override
    {
        manager = std::make_unique<EmulatedConfigurationManager>(EmulatedPc::FromEnvironment());
        return 0;
    }

    HResult CreateAttributes(std::uint32_t, std::unique_ptr<ICameraAttributes>& attributes) override
    {
        attributes = std::make_unique<EmulatedAttributes>();
        return 0;
    }
};

} // namespace

std::shared_ptr<ICameraDefaultsPlatform> CreateCameraDefaultsPlatform()
{
    return std::make_shared<EmulatedDefaultsPlatform>();
}

} // namespace Tessel::Bridge::Platform
