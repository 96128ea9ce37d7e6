#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Tessel::Bridge::Platform {

// One entry of a folder's discretionary access list.
struct AccessEntry {
    std::uint8_t type = 0;          // ACCESS_ALLOWED_ACE_TYPE is 0
    std::uint32_t mask = 0;         // the access mask as stored (GENERIC_ALL is bit 28)
    std::wstring sid;               // "S-1-5-18"; empty for entry types that carry no SID
};

// What GetNamedSecurityInfoW gives for a folder with the owner, group and
// DACL asked for.
struct FolderSecurityDescriptor {
    std::wstring owner;             // string SIDs
    std::wstring group;
    // Nothing when the folder has no DACL (a NULL DACL).
    std::optional<std::vector<AccessEntry>> dacl;
};

// A SID's account as LookupAccountSidW names it on this machine.
struct AccountName {
    std::wstring domain;            // "NT AUTHORITY"
    std::wstring name;              // "SYSTEM"
};

// Security descriptors of folders and the names of accounts.
class IFolderSecurity {
public:
    virtual ~IFolderSecurity() = default;

    // The folder's owner, group and DACL, its entries in order (GetAce by
    // index). 0 or a Win32 error; either way it is also the thread's last error.
    virtual std::uint32_t ReadFolderSecurity(const std::wstring& folder, FolderSecurityDescriptor& descriptor) = 0;
    // The account of a string SID on the local machine. 0 or a Win32 error
    // (ERROR_NONE_MAPPED, 1332, for a SID no account has); also the last error.
    virtual std::uint32_t LookupAccount(const std::wstring& sid, AccountName& account) = 0;
    // The thread's last error (GetLastError on Windows).
    virtual std::uint32_t LastError() = 0;
};

std::shared_ptr<IFolderSecurity> CreateFolderSecurity();

} // namespace Tessel::Bridge::Platform
