// The trust facade over WinTrust, the real environment and folder security
// of the Wine prefix. Wine trusts roots Windows would not, so only what does
// not depend on the root is asserted.
#include "platform/SignatureVerification.h"
#include "platform/FolderSecurity.h"
#include "security/KestrelSecurity.h"
#include "support/CapturedLog.h"
#include "support/PathForms.h"
#include "support/StoreFolder.h"
#include "support/TrustMaterial.h"
#include "windows/StandInCall.h"

#include <gtest/gtest.h>

#include <windows.h>

#include <algorithm>
#include <fstream>
#include <iterator>

using namespace Tessel::Bridge;
using namespace Tessel::Bridge::Security;

namespace {

const std::wstring kSystem = L"S-1-5-18";
const std::wstring kInstaller = L"S-1-5-80-956008885-3418522649-1831038044-1853292631-2271478464";

class TrustFacadeWine : public ::testing::Test {
protected:
    static std::wstring Material(const char* name) { return (KestrelTest::TrustMaterial() / name).wstring(); }
    static std::string KeyText(const char* name)
    {
        std::ifstream in(KestrelTest::TrustMaterial() / (std::string(name) + ".keytext"), std::ios::binary);
        return {std::istreambuf_iterator<char>(in), {}};
    }
    std::size_t Count(const std::wstring& text) const
    {
        const auto lines = log.Lines();
        return static_cast<std::size_t>(
            std::count_if(lines.begin(), lines.end(), [&](const std::wstring& line) { return line.find(text) != std::wstring::npos; }));
    }

    KestrelTest::CapturedLog log;
    std::vector<std::chrono::milliseconds> pauses;
    std::shared_ptr<TesselAuthenticodeHelper> helper = std::make_shared<TesselAuthenticodeHelper>(
        std::make_shared<KestrelTest::StandInCall>(), Platform::CreateFolderSecurity(),
        [this](std::chrono::milliseconds pause) { pauses.push_back(pause); });
    TesselAuthenticodeFacade facade{{KeyText("leaf")}, {}, [] { return Platform::CreateSignatureVerifier(); }, helper};
};

TEST_F(TrustFacadeWine, TheSignersRecordFromWinTrust)
{
    const std::wstring unsignedFile = Material("unsigned.exe");
    EXPECT_FALSE(facade.IsFileTrustedByListA(unsignedFile.c_str()));
    EXPECT_TRUE(facade.GatherCertificates(unsignedFile.c_str()).empty());
    EXPECT_EQ(Count(L"IsFileTrusted"), 0u);
    EXPECT_EQ(Count(L"I Security - GetSecurityCatalogInfo - File = " + unsignedFile), 2u);

    const auto records = facade.GatherCertificates(Material("nested3072.exe").c_str());
    ASSERT_EQ(records.size(), 2u);
    const CertificateDetails& leaf = records[0];
    EXPECT_EQ(leaf.commonName + L"|" + leaf.organizationalUnit + L"|" + leaf.organization + L"|" + leaf.locality + L"|" +
                  leaf.state + L"|" + leaf.country,
              L"Kestrel Test leaf|Release|Kestrel Test|Redmond|Washington|US");
    EXPECT_EQ(leaf.publicKey, KeyText("leaf"));
    // Wine answers every index with the first signature, so the second
    // record's key (the 3072-bit one on Windows) is compared on the host only.
    EXPECT_TRUE(facade.AreSignedBySameKey(Material("signed.exe").c_str(), Material("samekey.exe").c_str()));
    EXPECT_FALSE(facade.AreSignedBySameKey(Material("signed.exe").c_str(), Material("dropbox.exe").c_str()));
}

// Each form as Wine's own GetFullPathNameW, ExpandEnvironmentStringsW and
// CreateFileW take it (under _wfopen); each file holds its path.
TEST_F(TrustFacadeWine, EachPathFormReachesTheFileOfTheTable)
{
    CreateDirectoryW(L"C:\\Program Files\\Vendor", nullptr);
    for (const KestrelTest::PathForm& form : KestrelTest::kPathForms) {
        if (form.opens) std::ofstream(std::filesystem::path(L"\\\\?\\" + std::wstring(form.opens))) << std::filesystem::path(form.opens).string();
    }
    wchar_t previous[MAX_PATH];
    ASSERT_TRUE(GetCurrentDirectoryW(MAX_PATH, previous) && SetCurrentDirectoryW(L"C:\\Program Files\\Vendor"));
    for (const KestrelTest::PathForm& form : KestrelTest::kPathForms) {
        EXPECT_EQ(helper->IsPathAllowed(form.path), form.allowed) << form.path;
        std::ifstream in(std::filesystem::path{form.path}, std::ios::binary);
        EXPECT_EQ(std::string(std::istreambuf_iterator<char>(in), {}), form.opens ? std::filesystem::path(form.opens).string() : "") << form.path;
    }
    SetCurrentDirectoryW(previous);
}

// Wine keeps no access list a program sets and knows no TrustedInstaller, so
// only a refusal can be seen there.
TEST_F(TrustFacadeWine, AStoreFolderWithoutTrustedInstallerIsRefused)
{
    const std::wstring app = L"C:\\WindowsApps\\Vendor.App_1.0.0.0_x64__r7w2k9d4m1q8z\\app.exe";
    KestrelTest::MakeFolderWithAces(L"C:\\WindowsApps", {{0, GENERIC_ALL, kSystem}, {0, FILE_ALL_ACCESS, kInstaller}});
    EXPECT_FALSE(helper->CheckForFullConrolByTrustedInstallAndSystem(L"C:\\WindowsApps"));
    EXPECT_FALSE(helper->IsPathAllowed(app.c_str()));
    EXPECT_EQ(Count(L"E Security - GetNamedSecurityInfo - Failed "), 5u);
    EXPECT_EQ(Count(L"E Security - GetNamedSecurityInfo - Failed 5 of 5 times."), 1u);
    EXPECT_EQ(pauses.size(), 4u);
    RemoveDirectoryW(L"C:\\WindowsApps");
}

} // namespace
