#include "StoreFolder.h"

#include <windows.h>

#include <aclapi.h>
#include <sddl.h>

#include <filesystem>
#include <memory>
#include <stdexcept>

namespace KestrelTest {
namespace {

[[noreturn]] void Fail(const char* step, DWORD error)
{
    throw std::runtime_error(std::string("folder access list: ") + step + " failed with " + std::to_string(error));
}

} // namespace

std::vector<std::uint8_t> MakeAcl(const std::vector<Tessel::Bridge::Platform::AccessEntry>& aces)
{
    // Made in the largest ACL there is, then cut to the entries.
    std::vector<std::uint8_t> bytes(MAXWORD & ~3u);
    const auto acl = reinterpret_cast<PACL>(bytes.data()); // allocated memory is aligned for its DWORDs
    if (!InitializeAcl(acl, static_cast<DWORD>(bytes.size()), ACL_REVISION)) Fail("InitializeAcl", GetLastError());
    for (const auto& ace : aces) {
        if (ace.type != ACCESS_ALLOWED_ACE_TYPE && ace.type != ACCESS_DENIED_ACE_TYPE) {
            throw std::invalid_argument("folder access list: only allowed and denied entries belong in a DACL");
        }
        PSID sid = nullptr;
        if (!ConvertStringSidToSidW(ace.sid.c_str(), &sid)) Fail("ConvertStringSidToSidW", GetLastError());
        const std::unique_ptr<void, decltype(&LocalFree)> owned(sid, &LocalFree);
        const BOOL added = ace.type == ACCESS_ALLOWED_ACE_TYPE ? AddAccessAllowedAce(acl, ACL_REVISION, ace.mask, sid)
                                                               : AddAccessDeniedAce(acl, ACL_REVISION, ace.mask, sid);
        if (!added) Fail("adding an entry", GetLastError());
    }
    ACL_SIZE_INFORMATION size{};
    if (!GetAclInformation(acl, &size, sizeof size, AclSizeInformation)) Fail("GetAclInformation", GetLastError());
    acl->AclSize = static_cast<WORD>(size.AclBytesInUse);
    bytes.resize(size.AclBytesInUse);
    return bytes;
}

void MakeFolderWithAces(const std::wstring& folder, const std::vector<Tessel::Bridge::Platform::AccessEntry>& aces)
{
    std::error_code error;
    std::filesystem::create_directories(folder, error);
    if (error) Fail("creating the folder", static_cast<DWORD>(error.value()));
    std::vector<std::uint8_t> acl = MakeAcl(aces);
    std::wstring name = folder; // the function takes a writable name
    const DWORD result = SetNamedSecurityInfoW(name.data(), SE_FILE_OBJECT,
                                               DACL_SECURITY_INFORMATION | PROTECTED_DACL_SECURITY_INFORMATION,
                                               nullptr, nullptr, reinterpret_cast<PACL>(acl.data()), nullptr);
    if (result != ERROR_SUCCESS) Fail("SetNamedSecurityInfoW", result);
}

} // namespace KestrelTest
