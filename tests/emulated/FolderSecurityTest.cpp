// Folder descriptors and account names on the emulated PC.
#include "platform/FolderSecurity.h"
#include "platform/emulated/EmulatedPc.h"

#include "emulated/EmulatedTestSupport.h"
#include "support/TempDirectory.h"

using namespace Tessel::Bridge::Platform;
using Entries = std::vector<AccessEntry>;

namespace Tessel::Bridge::Platform {
bool operator==(const AccessEntry& a, const AccessEntry& b) { return a.type == b.type && a.mask == b.mask && a.sid == b.sid; }
} // namespace Tessel::Bridge::Platform

namespace {

const std::wstring kTrustedInstaller = L"S-1-5-80-956008885-3418522649-1831038044-1853292631-2271478464";

class EmulatedFolderSecurity : public ::testing::Test {
protected:
    void SetUp() override { std::filesystem::create_directories(directory / "drive-c" / "WindowsApps" / "Open"); }
    void UseState(const std::string& json) { KestrelTest::WriteFileBytes(directory / "pc.json", json); }

    KestrelTest::TempDirectory directory;
    KestrelTest::ScopedEnvironment pc{"KESTREL_EMULATED_PC", (directory / "pc.json").string()};
    std::shared_ptr<IFolderSecurity> security = CreateFolderSecurity();
    FolderSecurityDescriptor read;
    AccountName account;
};

TEST_F(EmulatedFolderSecurity, FoldersHaveTheirStoredDescriptorAndMissingOnesFail)
{
    UseState(R"({"folderSecurity": {"c:/windowsapps/": {"owner": "S-1-5-080-956008885-3418522649-1831038044-1853292631-2271478464",
        "group": "S-1-0x0000000000FF-7", "dacl": [{"type": 0, "mask": 268435456, "sid": "S-1-5-18"},
            {"type": 1, "mask": 4294967295, "sid": "S-1-20015998343868-7"}, {"type": 5, "mask": 256, "sid": "x"}]},
        "C:\\WindowsApps\\Open": {"group": "S-1-5-18", "dacl": null}, "C:\\Gone": {}}})");
    for (const wchar_t* path : {L"C:\\WindowsApps", L"c:/Users/.././WINDOWSAPPS./"}) {
        ASSERT_EQ(security->ReadFolderSecurity(path, read), 0u) << path;
        EXPECT_EQ(read.owner + L"|" + read.group, kTrustedInstaller + L"|S-1-255-7");
        EXPECT_EQ(read.dacl, (Entries{{0, 0x10000000, L"S-1-5-18"}, {1, 0xFFFFFFFF, L"S-1-0x123456789abc-7"}, {5, 256, L""}}));
    }
    ASSERT_EQ(security->ReadFolderSecurity(L"C:\\WindowsApps\\Open", read), 0u);
    EXPECT_EQ(read.owner + L"|" + read.group, L"|S-1-5-18");
    EXPECT_FALSE(read.dacl.has_value());
    const std::pair<const wchar_t*, std::uint32_t> missing[] = {
        {L"C:\\Gone", 2}, {L"C:\\Gone\\Below", 3}, {L"Q:\\WindowsApps", 3}, {L"\\\\server\\share", 53}, {L"\\\\?\\C:\\Users\\..\\WindowsApps", 123}};
    for (const auto& [path, error] : missing) {
        EXPECT_EQ(security->ReadFolderSecurity(path, read), error) << path;
        EXPECT_EQ(security->LastError(), error);
    }
}

TEST_F(EmulatedFolderSecurity, AccountsAreTheBuiltInOnesAsTheFileChangesThem)
{
    EXPECT_EQ(security->LookupAccount(L"S-1-5-21-1-2-3-500", account), 1332u);
    for (const wchar_t* bad : {L"SYSTEM", L"S-2-5-18", L"S-1-5-", L"S-1-5-4294967296", L"S-1-281474976710656-1",
                               L"S-1-5-1-2-3-4-5-6-7-8-9-10-11-12-13-14-15-16"}) {
        EXPECT_EQ(security->LookupAccount(bad, account), 1337u) << bad;
    }
    UseState(R"({"accounts": {"S-1-5-18": null, "S-1-5-21-1-2-3-500": ["KESTREL-PC", "Administrator"]}})");
    EXPECT_EQ(security->LookupAccount(L"S-1-5-18", account), 1332u);
    ASSERT_EQ(security->LookupAccount(L"S-1-5-21-1-2-3-0500", account), 0u);
    EXPECT_EQ(account.domain + L"\\" + account.name, L"KESTREL-PC\\Administrator");
}

} // namespace
