#include "platform/ShellAndAutomation.h"

#include "platform/windows/ComPtr.h"

#include <windows.h>

#include <knownfolders.h>
#include <objbase.h>
#include <propsys.h>
#include <propvarutil.h>
#include <shlguid.h>
#include <shlobj.h>

namespace Tessel::Bridge::Platform {
namespace {

using Windows::ComPtr;

// The conversion's buffer: 1024 characters, 2048 bytes.
constexpr UINT kValueCapacity = 1024;

// Memory the shell hands out with CoTaskMemAlloc.
template <typename T>
struct CoTaskMemory {
    T* pointer = nullptr;
    CoTaskMemory() = default;
    explicit CoTaskMemory(T* p) : pointer(p) {}
    CoTaskMemory(const CoTaskMemory&) = delete;
    CoTaskMemory& operator=(const CoTaskMemory&) = delete;
    ~CoTaskMemory() { CoTaskMemFree(pointer); }
};

struct ClearedPropVariant {
    PROPVARIANT value;
    ClearedPropVariant() { PropVariantInit(&value); }
    ClearedPropVariant(const ClearedPropVariant&) = delete;
    ClearedPropVariant& operator=(const ClearedPropVariant&) = delete;
    ~ClearedPropVariant() { PropVariantClear(&value); }
};

class StoreProperties final : public IApplicationProperties {
public:
    explicit StoreProperties(ComPtr<IPropertyStore> store) : store_(std::move(store)) {}

    std::uint32_t Count() override
    {
        DWORD count = 0;
        return SUCCEEDED(store_->GetCount(&count)) ? count : 0;
    }

    std::optional<std::wstring> CanonicalName(std::uint32_t index) override
    {
        PROPERTYKEY key{};
        if (FAILED(store_->GetAt(index, &key))) return std::nullopt;
        named_ = {index, key};
        CoTaskMemory<wchar_t> name;
        if (FAILED(PSGetNameFromPropertyKey(key, &name.pointer)) || name.pointer == nullptr) return std::nullopt;
        return std::wstring(name.pointer);
    }

    std::optional<std::wstring> ValueText(std::uint32_t index) override
    {
        // The key just named, not asked for again.
        PROPERTYKEY key = named_.key;
        if (named_.index != index && FAILED(store_->GetAt(index, &key))) return std::nullopt;
        ClearedPropVariant value;
        if (FAILED(store_->GetValue(key, &value.value))) return std::nullopt;
        CoTaskMemory<wchar_t> text(static_cast<wchar_t*>(CoTaskMemAlloc(kValueCapacity * sizeof(wchar_t))));
        if (text.pointer == nullptr) return std::nullopt;
        text.pointer[0] = L'\0';
        // The status is not looked at: a value too long arrives cut to the buffer.
        PropVariantToString(value.value, text.pointer, kValueCapacity);
        text.pointer[kValueCapacity - 1] = L'\0';
        return std::wstring(text.pointer);
    }

private:
    ComPtr<IPropertyStore> store_;
    struct {
        std::uint32_t index = UINT32_MAX;
        PROPERTYKEY key{};
    } named_;
};

class ShellApplication final : public IApplicationItem {
public:
    explicit ShellApplication(ComPtr<IShellItem> item) : item_(std::move(item)) {}

    std::optional<std::wstring> DisplayName() override
    {
        CoTaskMemory<wchar_t> name;
        if (FAILED(item_->GetDisplayName(SIGDN_NORMALDISPLAY, &name.pointer)) || name.pointer == nullptr) return std::nullopt;
        return std::wstring(name.pointer);
    }

    std::unique_ptr<IApplicationProperties> OpenProperties() override
    {
        ComPtr<IPropertyStore> store;
        if (FAILED(item_->BindToHandler(nullptr, BHID_PropertyStore, IID_IPropertyStore, store.PutVoid()))) return nullptr;
        return std::make_unique<StoreProperties>(std::move(store));
    }

private:
    ComPtr<IShellItem> item_;
};

class ShellApplications final : public IApplicationsEnumeration {
public:
    ShellApplications(ComPtr<IShellItem> folder, ComPtr<IEnumShellItems> items)
        : folder_(std::move(folder)), items_(std::move(items)) {}

    std::unique_ptr<IApplicationItem> Next() override
    {
        ComPtr<IShellItem> item;
        if (items_->Next(1, item.Put(), nullptr) != S_OK) return nullptr;
        return std::make_unique<ShellApplication>(std::move(item));
    }

private:
    // Released in this order: the enumerator, then the folder.
    ComPtr<IShellItem> folder_;
    ComPtr<IEnumShellItems> items_;
};

class Win32Shell final : public IShell {
public:
    void InitializeCom() override { CoInitialize(nullptr); }
    void UninitializeCom() override { CoUninitialize(); }

    std::unique_ptr<IApplicationsEnumeration> EnumerateApplications() override
    {
        ComPtr<IShellItem> folder;
        if (FAILED(SHGetKnownFolderItem(FOLDERID_AppsFolder, KF_FLAG_DEFAULT, nullptr, IID_IShellItem, folder.PutVoid()))) {
            return nullptr;
        }
        ComPtr<IEnumShellItems> items;
        if (FAILED(folder->BindToHandler(nullptr, BHID_EnumItems, IID_IEnumShellItems, items.PutVoid()))) return nullptr;
        return std::make_unique<ShellApplications>(std::move(folder), std::move(items));
    }
};

} // namespace

std::unique_ptr<IShell> CreateShell()
{
    return std::make_unique<Win32Shell>();
}

} // namespace Tessel::Bridge::Platform
