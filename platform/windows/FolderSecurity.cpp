#include "platform/FolderSecurity.h"

#include "platform/windows/UniqueHandle.h"

#include <windows.h>

#include <aclapi.h>
#include <sddl.h>

#include <cstddef>
#include <utility>

namespace Tessel::Bridge::Platform {
namespace {

using Windows::UniqueResource;

// Memory the security functions allocate for the caller, who frees it with LocalFree.
template <typename Pointer>
struct LocalMemoryTraits {
    using Type = Pointer;
    static Type Empty() noexcept { return nullptr; }
    static bool IsValid(Type memory) noexcept { return memory != nullptr; }
    static void Close(Type memory) noexcept { ::LocalFree(memory); }
};

template <typename Pointer>
using UniqueLocal = UniqueResource<LocalMemoryTraits<Pointer>>;

constexpr SECURITY_INFORMATION kOwnerGroupDacl =
    OWNER_SECURITY_INFORMATION | GROUP_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION;
static_assert(kOwnerGroupDacl == 7);

// The three entry types that keep their SID at SidStart.
static_assert(ACCESS_ALLOWED_ACE_TYPE == 0 && ACCESS_DENIED_ACE_TYPE == 1 && SYSTEM_AUDIT_ACE_TYPE == 2);
static_assert(offsetof(ACCESS_ALLOWED_ACE, SidStart) == offsetof(ACCESS_DENIED_ACE, SidStart));
static_assert(offsetof(ACCESS_ALLOWED_ACE, SidStart) == offsetof(SYSTEM_AUDIT_ACE, SidStart));
// Every entry type keeps its access mask right after the header.
static_assert(offsetof(ACCESS_ALLOWED_ACE, Mask) == sizeof(ACE_HEADER));

bool HasSidAtSidStart(BYTE type)
{
    return type == ACCESS_ALLOWED_ACE_TYPE || type == ACCESS_DENIED_ACE_TYPE || type == SYSTEM_AUDIT_ACE_TYPE;
}

// A SID as "S-1-5-18"; an absent one (a descriptor without owner) as empty text.
DWORD SidText(PSID sid, std::wstring& text)
{
    text.clear();
    if (sid == nullptr) return ERROR_SUCCESS;
    UniqueLocal<LPWSTR> converted;
    if (!::ConvertSidToStringSidW(sid, converted.Put())) return ::GetLastError();
    text = converted.Get();
    return ERROR_SUCCESS;
}

DWORD ReadEntries(PACL dacl, std::vector<AccessEntry>& entries)
{
    for (DWORD index = 0; index < dacl->AceCount; ++index) {
        void* ace = nullptr;
        if (!::GetAce(dacl, index, &ace)) return ::GetLastError();
        const auto* header = static_cast<const ACE_HEADER*>(ace);
        AccessEntry entry;
        entry.type = header->AceType;
        if (header->AceSize >= sizeof(ACE_HEADER) + sizeof(ACCESS_MASK)) {
            entry.mask = reinterpret_cast<const ACCESS_ALLOWED_ACE*>(ace)->Mask;
        }
        if (HasSidAtSidStart(header->AceType)) {
            auto* allowed = static_cast<ACCESS_ALLOWED_ACE*>(ace);
            if (const DWORD error = SidText(&allowed->SidStart, entry.sid); error != ERROR_SUCCESS) return error;
        }
        entries.push_back(std::move(entry));
    }
    return ERROR_SUCCESS;
}

class Win32FolderSecurity final : public IFolderSecurity {
public:
    std::uint32_t ReadFolderSecurity(const std::wstring& folder, FolderSecurityDescriptor& descriptor) override
    {
        PSID owner = nullptr;
        PSID group = nullptr;
        PACL dacl = nullptr;
        UniqueLocal<PSECURITY_DESCRIPTOR> owned;
        DWORD result = ::GetNamedSecurityInfoW(folder.c_str(), SE_FILE_OBJECT, kOwnerGroupDacl, &owner, &group, &dacl,
                                               nullptr, owned.Put());
        FolderSecurityDescriptor read;
        if (result == ERROR_SUCCESS) result = SidText(owner, read.owner);
        if (result == ERROR_SUCCESS) result = SidText(group, read.group);
        if (result == ERROR_SUCCESS && dacl != nullptr) {
            read.dacl.emplace();
            result = ReadEntries(dacl, *read.dacl);
        }
        if (result == ERROR_SUCCESS) descriptor = std::move(read);
        return Answer(result);
    }

    std::uint32_t LookupAccount(const std::wstring& sid, AccountName& account) override
    {
        UniqueLocal<PSID> binary;
        if (!::ConvertStringSidToSidW(sid.c_str(), binary.Put())) return Answer(::GetLastError());
        DWORD nameLength = 0;
        DWORD domainLength = 0;
        SID_NAME_USE use{};
        if (!::LookupAccountSidW(nullptr, binary.Get(), nullptr, &nameLength, nullptr, &domainLength, &use)) {
            if (const DWORD error = ::GetLastError(); error != ERROR_INSUFFICIENT_BUFFER) return Answer(error);
        }
        // The lengths asked for include the final zero.
        std::wstring name(nameLength, L'\0');
        std::wstring domain(domainLength, L'\0');
        if (!::LookupAccountSidW(nullptr, binary.Get(), name.data(), &nameLength, domain.data(), &domainLength, &use)) {
            return Answer(::GetLastError());
        }
        // On success the lengths leave the final zero out.
        name.resize(nameLength);
        domain.resize(domainLength);
        account = AccountName{std::move(domain), std::move(name)};
        return Answer(ERROR_SUCCESS);
    }

    std::uint32_t LastError() override { return ::GetLastError(); }

private:
    static std::uint32_t Answer(DWORD result)
    {
        ::SetLastError(result);
        return result;
    }
};

} // namespace

std::shared_ptr<IFolderSecurity> CreateFolderSecurity()
{
    return std::make_shared<Win32FolderSecurity>();
}

} // namespace Tessel::Bridge::Platform
