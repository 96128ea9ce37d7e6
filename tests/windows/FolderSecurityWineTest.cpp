// Descriptors and account names through advapi32. Wine 8 keeps no DACL for
// files and folders (it makes one from the Unix permissions), so the entries
// are checked on named pipes, file objects whose descriptors Wine keeps.
#include "platform/FolderSecurity.h"

#include <gtest/gtest.h>

#include <windows.h>

#include <sddl.h>

#include <memory>
#include <stdexcept>

using namespace Tessel::Bridge::Platform;

namespace Tessel::Bridge::Platform {
bool operator==(const AccessEntry& a, const AccessEntry& b) { return a.type == b.type && a.mask == b.mask && a.sid == b.sid; }
} // namespace Tessel::Bridge::Platform

namespace {

const std::wstring kSystem = L"S-1-5-18";
const std::wstring kUsers = L"S-1-5-32-545";
const std::wstring kTrustedInstaller = L"S-1-5-80-956008885-3418522649-1831038044-1853292631-2271478464";
const std::wstring kRun = std::to_wstring(GetCurrentProcessId()); // names of this run's own

// An ACL's bytes holding exactly these allowed (0) and denied (1) entries, in order.
std::vector<std::uint8_t> MakeAcl(const std::vector<AccessEntry>& entries)
{
    std::vector<std::uint8_t> bytes(MAXWORD & ~3u); // the largest ACL there is, cut to the entries below
    const auto acl = reinterpret_cast<PACL>(bytes.data());
    bool made = InitializeAcl(acl, static_cast<DWORD>(bytes.size()), ACL_REVISION);
    for (const AccessEntry& entry : entries) {
        PSID sid = nullptr;
        made = made && ConvertStringSidToSidW(entry.sid.c_str(), &sid);
        const std::unique_ptr<void, decltype(&LocalFree)> owned(sid, &LocalFree);
        made = made && (entry.type == 0 ? AddAccessAllowedAce(acl, ACL_REVISION, entry.mask, sid)
                                        : AddAccessDeniedAce(acl, ACL_REVISION, entry.mask, sid));
    }
    ACL_SIZE_INFORMATION size{};
    if (!made || !GetAclInformation(acl, &size, sizeof size, AclSizeInformation)) throw std::runtime_error("cannot make the ACL");
    acl->AclSize = static_cast<WORD>(size.AclBytesInUse);
    bytes.resize(size.AclBytesInUse);
    return bytes;
}

// A missing folder, or one below it, is the Win32 error.
TEST(FolderSecurityWine, AMissingFolderIsTheWin32Error)
{
    const auto security = CreateFolderSecurity();
    FolderSecurityDescriptor read;
    EXPECT_EQ(security->ReadFolderSecurity(L"C:\\WindowsApps-" + kRun + L"\\Below", read), 3u); // ERROR_PATH_NOT_FOUND
    EXPECT_EQ(security->ReadFolderSecurity(L"C:\\WindowsApps-" + kRun, read), 2u);              // ERROR_FILE_NOT_FOUND
    EXPECT_EQ(security->LastError(), 2u);
}

TEST(FolderSecurityWine, EveryEntryIsReadBackInOrderAndANullDaclAsNone)
{
    const std::vector<AccessEntry> entries{{0, FILE_ALL_ACCESS, kTrustedInstaller}, {1, FILE_WRITE_DATA, kUsers},
                                           {0, FILE_ALL_ACCESS, kSystem}, {0, FILE_GENERIC_READ | FILE_GENERIC_EXECUTE, kUsers}};
    std::vector<std::uint8_t> acl = MakeAcl(entries);
    for (PACL dacl : {reinterpret_cast<PACL>(acl.data()), PACL{}}) {
        // A pipe of its own with one instance, which the read takes.
        const std::wstring pipe = L"\\\\.\\pipe\\kestrel-folder-" + kRun + (dacl ? L"-listed" : L"-open");
        SECURITY_DESCRIPTOR descriptor;
        InitializeSecurityDescriptor(&descriptor, SECURITY_DESCRIPTOR_REVISION);
        SetSecurityDescriptorDacl(&descriptor, TRUE, dacl, FALSE);
        SECURITY_ATTRIBUTES attributes{sizeof attributes, &descriptor, FALSE};
        const std::unique_ptr<void, decltype(&CloseHandle)> instance(
            CreateNamedPipeW(pipe.c_str(), PIPE_ACCESS_DUPLEX, 0, 1, 0, 0, 0, &attributes), &CloseHandle);
        ASSERT_NE(instance.get(), INVALID_HANDLE_VALUE);
        FolderSecurityDescriptor read;
        SetLastError(ERROR_ACCESS_DENIED);
        ASSERT_EQ(CreateFolderSecurity()->ReadFolderSecurity(pipe, read), 0u);
        EXPECT_EQ(GetLastError(), 0u);
        EXPECT_FALSE(read.owner.empty() || read.group.empty());
        EXPECT_EQ(read.dacl, dacl ? std::optional(entries) : std::nullopt);
    }
}

// Wine 8 does not know NT SERVICE\TrustedInstaller (1332): built-in accounts only.
TEST(FolderSecurityWine, WellKnownAccountsAreNamed)
{
    const auto security = CreateFolderSecurity();
    AccountName account;
    ASSERT_EQ(security->LookupAccount(kSystem, account), 0u);
    EXPECT_EQ(account.domain + L"\\" + account.name, L"NT AUTHORITY\\SYSTEM");
    EXPECT_EQ(security->LookupAccount(L"S-1-5-21-1-2-3-4000", account), 1332u); // ERROR_NONE_MAPPED
    EXPECT_EQ(security->LastError(), 1332u);
    EXPECT_EQ(security->LookupAccount(L"SYSTEM", account), 1337u); // ERROR_INVALID_SID
}

} // namespace
