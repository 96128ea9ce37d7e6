// A stand-in for the camera platform's configuration manager, registered in the
// test prefix under CLSID_CameraConfigurationManager. Each camera's defaults
// live in one file in the folder KESTREL_TEST_CAMERA_DEFAULTS names (the temp
// folder without it), named after the symbolic link with every character but
// letters and digits made '_'. LoadDefaults reads a snapshot of that file and
// SaveDefaults rewrites it, so separate processes see each other's saves. The
// file holds, per entry, a Record and then the control and data bytes.
#include "ComObject.h"
#include "platform/windows/ComPtr.h"
#include "platform/windows/KsCameraLayouts.h"
#include "platform/windows/MfCameraConfiguration.h"

#include <algorithm>
#include <cstring>
#include <cwctype>
#include <filesystem>
#include <fstream>
#include <memory>
#include <vector>

namespace {

using KestrelTestBed::Object;

using Tessel::Bridge::Platform::Windows::ComPtr;
using Tessel::Bridge::Platform::Windows::KSCAMERA_EXTENDEDPROP_HEADER;

// ksmedia.h: KSPROPERTYSETID_ExtendedCameraControl.
constexpr GUID kExtendedControlSet{0x1cb79112, 0xc0d2, 0x4213, {0x9c, 0xa6, 0xcd, 0x4f, 0xdb, 0x92, 0x79, 0x72}};

// What identifies an entry, and the sizes of its two buffers.
struct Record {
    ULONG type;
    GUID set;
    ULONG id;
    ULONG stream; // 0xFFFFFFFF for entries added by GetOrAddControl
    ULONG controlSize;
    ULONG dataSize;
};

struct Entry {
    Record record;
    std::vector<char> control;
    std::vector<char> data;
};

class Control final : public Object<IMFCameraControlDefaults> {
public:
    explicit Control(std::shared_ptr<Entry> entry) : entry_(std::move(entry)) {}
    MF_CAMERA_CONTROL_CONFIGURATION_TYPE STDMETHODCALLTYPE GetType() override
    {
        return static_cast<MF_CAMERA_CONTROL_CONFIGURATION_TYPE>(entry_->record.type);
    }
    HRESULT STDMETHODCALLTYPE GetRangeInfo(MF_CAMERA_CONTROL_RANGE_INFO*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE LockControlData(void** control, ULONG* controlSize, void** data, ULONG* dataSize) override
    {
        if (control == nullptr || controlSize == nullptr || data == nullptr || dataSize == nullptr) return E_POINTER;
        *control = entry_->control.data();
        *controlSize = entry_->record.controlSize;
        *data = entry_->data.data();
        *dataSize = entry_->record.dataSize;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE UnlockControlData() override { return S_OK; }

private:
    std::shared_ptr<Entry> entry_;
};

#define NOT_IMPLEMENTED(method, ...) \
    HRESULT STDMETHODCALLTYPE method(__VA_ARGS__) override { return E_NOTIMPL; }

class Collection final : public Object<IMFCameraControlDefaultsCollection> {
public:
    explicit Collection(std::filesystem::path file) : file_(std::move(file))
    {
        std::ifstream in(file_, std::ios::binary);
        for (Entry entry{}; in.read(reinterpret_cast<char*>(&entry.record), sizeof entry.record);) {
            entry.control.resize(entry.record.controlSize);
            entry.data.resize(entry.record.dataSize);
            in.read(entry.control.data(), static_cast<std::streamsize>(entry.control.size()));
            in.read(entry.data.data(), static_cast<std::streamsize>(entry.data.size()));
            entries_.push_back(std::make_shared<Entry>(entry));
        }
    }

    HRESULT Save() const
    {
        std::ofstream out(file_, std::ios::binary | std::ios::trunc);
        for (const auto& entry : entries_) {
            out.write(reinterpret_cast<const char*>(&entry->record), sizeof entry->record);
            out.write(entry->control.data(), static_cast<std::streamsize>(entry->control.size()));
            out.write(entry->data.data(), static_cast<std::streamsize>(entry->data.size()));
        }
        out.close();
        return out ? S_OK : HRESULT_FROM_WIN32(ERROR_WRITE_FAULT);
    }

    // IMFAttributes: nothing reads or writes a collection's own attributes.
    NOT_IMPLEMENTED(GetItem, REFGUID, PROPVARIANT*) NOT_IMPLEMENTED(GetItemType, REFGUID, MF_ATTRIBUTE_TYPE*)
    NOT_IMPLEMENTED(CompareItem, REFGUID, REFPROPVARIANT, WINBOOL*)
    NOT_IMPLEMENTED(Compare, IMFAttributes*, MF_ATTRIBUTES_MATCH_TYPE, WINBOOL*)
    NOT_IMPLEMENTED(GetUINT32, REFGUID, UINT32*) NOT_IMPLEMENTED(GetUINT64, REFGUID, UINT64*)
    NOT_IMPLEMENTED(GetDouble, REFGUID, double*) NOT_IMPLEMENTED(GetGUID, REFGUID, GUID*)
    NOT_IMPLEMENTED(GetStringLength, REFGUID, UINT32*) NOT_IMPLEMENTED(GetString, REFGUID, LPWSTR, UINT32, UINT32*)
    NOT_IMPLEMENTED(GetAllocatedString, REFGUID, LPWSTR*, UINT32*) NOT_IMPLEMENTED(GetBlobSize, REFGUID, UINT32*)
    NOT_IMPLEMENTED(GetBlob, REFGUID, UINT8*, UINT32, UINT32*) NOT_IMPLEMENTED(GetAllocatedBlob, REFGUID, UINT8**, UINT32*)
    NOT_IMPLEMENTED(GetUnknown, REFGUID, REFIID, LPVOID*) NOT_IMPLEMENTED(SetItem, REFGUID, REFPROPVARIANT)
    NOT_IMPLEMENTED(DeleteItem, REFGUID) NOT_IMPLEMENTED(DeleteAllItems)
    NOT_IMPLEMENTED(SetUINT32, REFGUID, UINT32) NOT_IMPLEMENTED(SetUINT64, REFGUID, UINT64)
    NOT_IMPLEMENTED(SetDouble, REFGUID, double) NOT_IMPLEMENTED(SetGUID, REFGUID, REFGUID)
    NOT_IMPLEMENTED(SetString, REFGUID, LPCWSTR) NOT_IMPLEMENTED(SetBlob, REFGUID, const UINT8*, UINT32)
    NOT_IMPLEMENTED(SetUnknown, REFGUID, IUnknown*) NOT_IMPLEMENTED(LockStore) NOT_IMPLEMENTED(UnlockStore)
    NOT_IMPLEMENTED(GetCount, UINT32*) NOT_IMPLEMENTED(GetItemByIndex, UINT32, GUID*, PROPVARIANT*)
    NOT_IMPLEMENTED(CopyAllItems, IMFAttributes*)
    NOT_IMPLEMENTED(RemoveControl, REFGUID, ULONG) NOT_IMPLEMENTED(RemoveAllControls)

    ULONG STDMETHODCALLTYPE GetControlCount() override { return static_cast<ULONG>(entries_.size()); }
    HRESULT STDMETHODCALLTYPE GetControl(ULONG index, IMFCameraControlDefaults** control) override
    {
        if (control == nullptr) return E_POINTER;
        if (index >= entries_.size()) return E_INVALIDARG;
        *control = new Control(entries_[index]);
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetOrAddExtendedControl(MF_CAMERA_CONTROL_CONFIGURATION_TYPE type, ULONG id,
                                                      DWORD stream, ULONG dataSize,
                                                      IMFCameraControlDefaults** control) override
    {
        if (dataSize < sizeof(KSCAMERA_EXTENDEDPROP_HEADER)) return E_INVALIDARG;
        return GetOrAdd({type, kExtendedControlSet, id, stream, sizeof(KSPROPERTY), dataSize}, control);
    }
    HRESULT STDMETHODCALLTYPE GetOrAddControl(MF_CAMERA_CONTROL_CONFIGURATION_TYPE type, REFGUID set, ULONG id,
                                              ULONG controlSize, ULONG dataSize,
                                              IMFCameraControlDefaults** control) override
    {
        return GetOrAdd({type, set, id, 0xFFFFFFFF, controlSize, dataSize}, control);
    }

private:
    HRESULT GetOrAdd(const Record& wanted, IMFCameraControlDefaults** control)
    {
        if (control == nullptr) return E_POINTER;
        if (wanted.controlSize < sizeof(KSPROPERTY)) return E_INVALIDARG;
        // An entry is found by everything before the sizes.
        const auto same = [&](const auto& entry) { return std::memcmp(&entry->record, &wanted, offsetof(Record, controlSize)) == 0; };
        auto found = std::find_if(entries_.begin(), entries_.end(), same);
        if (found == entries_.end()) {
            auto entry = std::make_shared<Entry>(Entry{wanted, std::vector<char>(wanted.controlSize), std::vector<char>(wanted.dataSize)});
            KSPROPERTY property{};
            property.Set = wanted.set;
            property.Id = wanted.id;
            std::memcpy(entry->control.data(), &property, sizeof property);
            if (wanted.set == kExtendedControlSet && wanted.dataSize >= sizeof(KSCAMERA_EXTENDEDPROP_HEADER)) {
                const KSCAMERA_EXTENDEDPROP_HEADER header{1, wanted.stream, wanted.dataSize, 0, 0, 0};
                std::memcpy(entry->data.data(), &header, sizeof header);
            }
            found = entries_.insert(entries_.end(), std::move(entry));
        }
        *control = new Control(*found);
        return S_OK;
    }

    std::filesystem::path file_;
    std::vector<std::shared_ptr<Entry>> entries_;
};

std::filesystem::path StoreFile(const std::wstring& link)
{
    std::wstring folder(MAX_PATH, L'\0');
    const DWORD length = GetEnvironmentVariableW(L"KESTREL_TEST_CAMERA_DEFAULTS", folder.data(), MAX_PATH);
    folder.resize(length < MAX_PATH ? length : 0);
    std::error_code ignored;
    std::wstring name = link;
    std::replace_if(name.begin(), name.end(), [](wchar_t c) { return !std::iswalnum(static_cast<wint_t>(c)); }, L'_');
    return (folder.empty() ? std::filesystem::temp_directory_path(ignored) : std::filesystem::path(folder)) / (name + L".bin");
}

class Manager final : public Object<IMFCameraConfigurationManager> {
public:
    HRESULT STDMETHODCALLTYPE LoadDefaults(IMFAttributes* attributes, IMFCameraControlDefaultsCollection** collection) override
    {
        if (attributes == nullptr || collection == nullptr) return E_POINTER;
        const GUID& key = MF_DEVSOURCE_ATTRIBUTE_SOURCE_TYPE_VIDCAP_SYMBOLIC_LINK;
        UINT32 length = 0;
        if (FAILED(attributes->GetStringLength(key, &length))) return E_INVALIDARG;
        std::wstring link(length + 1, L'\0');
        if (FAILED(attributes->GetString(key, link.data(), length + 1, &length))) return E_INVALIDARG;
        link.resize(length);
        *collection = new Collection(StoreFile(link));
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE SaveDefaults(IMFCameraControlDefaultsCollection* collection) override
    {
        const auto* ours = dynamic_cast<const Collection*>(collection);
        return ours == nullptr ? E_INVALIDARG : ours->Save();
    }
    void STDMETHODCALLTYPE Shutdown() override {}
};

class Factory final : public Object<IClassFactory> {
public:
    HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* outer, REFIID iid, void** object) override
    {
        if (outer != nullptr) return CLASS_E_NOAGGREGATION;
        const ComPtr<Manager> manager(new Manager);
        return manager->QueryInterface(iid, object);
    }
    HRESULT STDMETHODCALLTYPE LockServer(BOOL) override { return S_OK; }
};

} // namespace

STDAPI DllGetClassObject(REFCLSID clsid, REFIID iid, void** object)
{
    if (clsid != CLSID_CameraConfigurationManager) return CLASS_E_CLASSNOTAVAILABLE;
    const ComPtr<Factory> factory(new Factory);
    return factory->QueryInterface(iid, object);
}

// Never unloaded: it keeps no count of the objects it handed out.
STDAPI DllCanUnloadNow()
{
    return S_FALSE;
}
