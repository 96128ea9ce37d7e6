// The trust facade and its path and process rules on the emulated PC: its
// roots, catalogs, drives, environment, folders and accounts, with the test
// material's signed files placed on its C: drive.
#include "platform/CallerIdentity.h"
#include "platform/FolderSecurity.h"
#include "platform/SignatureVerification.h"
#include "security/KestrelSecurity.h"

#include "emulated/EmulatedTestSupport.h"
#include "support/CapturedLog.h"
#include "support/CatalogBuilder.h"
#include "support/PathForms.h"
#include "support/ScopedEnvironment.h"
#include "support/TempDirectory.h"
#include "support/TrustMaterial.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

using namespace Tessel::Bridge::Security;
using namespace KestrelTest;
namespace fs = std::filesystem;
using Texts = std::vector<std::wstring>;

namespace {

const std::string kSystem = "S-1-5-18";
const std::string kInstaller = "S-1-5-80-956008885-3418522649-1831038044-1853292631-2271478464";
constexpr std::uint32_t kGenericAll = 0x10000000;

class TrustOnPc : public ::testing::Test {
protected:
    void SetUp() override { UseState({}); }

    // The PC trusts the material's root; `more` adds areas.
    void UseState(nlohmann::json more)
    {
        more["trust"] = {{"roots", (material / "root.crt").string()}};
        WriteFileBytes(directory / "pc.json", more.dump());
    }

    // A copy of a material file at a Windows path on the PC's C: drive.
    std::wstring Place(const char* name, const std::string& folder)
    {
        const fs::path host = directory / "drive-c" / folder;
        fs::create_directories(host);
        fs::copy_file(material / name, host / name, fs::copy_options::overwrite_existing);
        std::string windows = "C:\\" + folder + "\\" + name;
        std::replace(windows.begin(), windows.end(), '/', '\\');
        return {windows.begin(), windows.end()};
    }

    std::string KeyText(const char* name) const { return ReadFileBytes(material / (std::string(name) + ".keytext")); }

    TesselAuthenticodeFacade Facade(PublicKeyList listA, PublicKeyList listB = {})
    {
        return TesselAuthenticodeFacade(std::move(listA), std::move(listB), [] { return Tessel::Bridge::Platform::CreateSignatureVerifier(); }, helper);
    }

    std::size_t Count(const std::wstring& text) const
    {
        const Texts lines = log.Lines();
        return static_cast<std::size_t>(std::count_if(lines.begin(), lines.end(), [&](const std::wstring& line) {
            return line.find(text) != std::wstring::npos;
        }));
    }

    const fs::path material = TrustMaterial();
    TempDirectory directory;
    ScopedEnvironment pc{"KESTREL_EMULATED_PC", (directory.Path() / "pc.json").string()};
    CapturedLog log;
    std::vector<std::chrono::milliseconds> pauses;
    std::function<void()> onPause = [] {};
    std::shared_ptr<TesselAuthenticodeHelper> helper = std::make_shared<TesselAuthenticodeHelper>(
        Tessel::Bridge::Platform::CreateCallerPlatform(), Tessel::Bridge::Platform::CreateFolderSecurity(),
        [this](std::chrono::milliseconds pause) {
            pauses.push_back(pause);
            onPause();
        });
};

// The leaf signed a catalog that lists the program's Authenticode digest, which
// every signed copy shares too. Real signers' key texts are openssl's.
TEST_F(TrustOnPc, CatalogSignaturesComeFirstAndPinAFileWithNoSignature)
{
    const std::string tag = ReadFileBytes(material / "unsigned.tag").substr(0, 64);
    fs::create_directories(directory / "catalogs");
    WriteCatalog(directory / "catalogs" / "vendor.cat", {std::wstring(tag.begin(), tag.end())},
                 SignerFromPem(material / "leaf.crt", material / "leaf.key", material / "intermediate.crt"));
    const std::wstring app = Place("unsigned.exe", "Program Files/Vendor");
    EXPECT_TRUE(Facade({KeyText("leaf")}).IsFileTrustedByListA(app.c_str()));
    EXPECT_EQ(Count(L"I Security - GetSecurityCatalogInfo - File = C:\\Program Files\\Vendor\\unsigned.exe"), 1u);
    EXPECT_EQ(Count(L"I Subject = C=US\r\nS=Washington\r\nL=Redmond\r\nO=Kestrel Test\r\nOU=Release\r\nCN=Kestrel Test leaf"), 1u);
    const auto records = Facade({}).GatherCertificates(Place("signed3072.exe", "Tools").c_str());
    ASSERT_EQ(records.size(), 2u);
    EXPECT_EQ(records[0].publicKey + " then " + records[1].publicKey, KeyText("leaf") + " then " + KeyText("leaf3072"));
    // Changed bytes are listed by no catalog.
    WriteFileBytes(directory / "drive-c" / "Program Files" / "Vendor" / "unsigned.exe", "changed");
    EXPECT_FALSE(Facade({}).IsFileTrustedByWindows(L"c:\\program files\\VENDOR\\unsigned.exe"));
    EXPECT_EQ(Count(L"E Security - GetSecurityCatalogInfo - Failed during CryptCATAdminEnumCatalogFromHash. Error Code = 1168"), 1u);
}

// Every file of the table is signed but "App.exe.", which only "\\?\" reaches.
TEST_F(TrustOnPc, EachPathFormIsJudgedOnTheFileWindowsOpens)
{
    UseState({{"environment", {{"currentDirectory", "C:\\Program Files\\Vendor"}}}});
    for (const PathForm& form : kPathForms) {
        if (form.opens == nullptr) continue;
        std::wstring host = form.opens + 3;
        std::replace(host.begin(), host.end(), L'\\', L'/');
        fs::create_directories((directory / "drive-c" / host).parent_path());
        fs::copy_file(material / (host.back() == L'.' ? "unsigned.exe" : "signed.exe"), directory / "drive-c" / host,
                      fs::copy_options::overwrite_existing);
    }
    for (const PathForm& form : kPathForms) {
        EXPECT_EQ(Facade({}).IsFileTrustedByWindows(form.path), form.allowed && form.opens != nullptr) << form.path;
    }
}

// Windows' trust (an expired signer counts) and a pinned key of any record must
// both hold; the verdict is logged when there is a record and a key to compare.
TEST_F(TrustOnPc, WindowsTrustAndPinnedKeysMustBothHold)
{
    const struct {
        const char* file;
        const char* pinned; // whose key list A holds
        const wchar_t* verdict;
    } rows[] = {
        {"signed.exe", "leaf", L"yes, trusted by Lattice = yes"},
        {"expired.exe", "expired", L"yes, trusted by Lattice = yes"},
        {"nested3072.exe", "leaf3072", L"yes, trusted by Lattice = yes"},
        {"untrusted.exe", "untrusted", L"no, trusted by Lattice = yes"},
        {"signed3072.exe", "leaf", L"yes, trusted by Lattice = no"},
        {"tampered.exe", "leaf", nullptr}, // changed bytes give no record
        {"unsigned.exe", "leaf", nullptr},
        {"signed.exe", nullptr, nullptr},
    };
    for (const auto& row : rows) {
        log.sink->Clear();
        const PublicKeyList keys = row.pinned ? PublicKeyList{KeyText(row.pinned)} : PublicKeyList{};
        const bool trusted = Facade({}).IsFileTrusted(Place(row.file, "Tools").c_str(), &keys);
        const std::wstring verdict = row.verdict ? row.verdict : L"";
        EXPECT_EQ(trusted, verdict == L"yes, trusted by Lattice = yes") << row.file;
        EXPECT_EQ(Count(L"IsFileTrusted"), row.verdict ? 1u : 0u) << row.file;
        if (row.verdict) {
            EXPECT_EQ(log.Lines().back(), L"I Security - IsFileTrusted - trusted by windows = " + verdict);
        }
    }
    EXPECT_FALSE(Facade({}).IsFileTrusted(nullptr, nullptr));
    // List B asks the place too: its signer outside the allowed places is refused.
    EXPECT_TRUE(Facade({}, {KeyText("leaf")}).IsFileTrustedByListB(Place("signed.exe", "Program Files/Vendor").c_str()));
    EXPECT_FALSE(Facade({}, {KeyText("leaf")}).IsFileTrustedByListB(Place("signed.exe", "Tools").c_str()));
}

// The publisher's common name and Windows' trust, in an allowed place.
TEST_F(TrustOnPc, DropboxByCommonNameAndWindowsTrust)
{
    EXPECT_TRUE(Facade({}).IsDropboxFileTrusted(Place("dropbox.exe", "Program Files/Dropbox").c_str()));
    EXPECT_FALSE(Facade({}).IsDropboxFileTrusted(Place("signed.exe", "Program Files/Dropbox").c_str()));
    EXPECT_FALSE(Facade({}).IsDropboxFileTrusted(Place("dropbox.exe", "Tools").c_str()));
    log.sink->Clear();
    EXPECT_FALSE(Facade({}).IsDropboxFileTrusted(Place("untrusted.exe", "Program Files/Dropbox").c_str()));
    const Texts lines = log.Lines();
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[0] + L"|" + lines[2], L"I Starting validation of Dropbox file.|E Dropbox file is not trusted by windows.");
}

// A miss is logged even when a later place allows the file.
TEST_F(TrustOnPc, AllowedPlacesLogEveryMissBeforeTheirVerdict)
{
    EXPECT_TRUE(helper->IsPathAllowed(L"C:\\WINDOWS\\SYSTEM32\\X.DLL"));
    EXPECT_TRUE(helper->IsPathAllowed(L"C:\\Program Files\\App\\app.exe"));
    const std::wstring miss = L"E Tessel::Bridge::Security::TesselAuthenticodeHelper::IsPathAllowed - BeginsWith() failed ";
    EXPECT_EQ(Count(L"BeginsWith() failed"), 2u);
    EXPECT_EQ(Count(miss + L"[C:\\Program Files\\App\\app.exe] [C:\\Program Files (x86)\\]"), 1u);
    EXPECT_FALSE(helper->IsPathAllowed(L"D:\\Tools\\..\\x.exe"));
    EXPECT_EQ(log.Lines().back(), L"E Tessel::Bridge::Security::TesselAuthenticodeHelper::IsPathAllowed - Didn't find substring [:\\WindowsApps\\] in [D:\\x.exe]");
    // The marker is looked for in its own letter case.
    EXPECT_FALSE(helper->IsPathAllowed(L"D:\\windowsapps\\Pkg\\app.exe"));
    EXPECT_TRUE(pauses.empty());
}

// The folder's descriptor and accounts as the PC stores them.
TEST_F(TrustOnPc, StoreFoldersNeedGenericAllForTrustedInstallerAndSystem)
{
    const std::wstring app = L"C:\\WindowsApps\\Pkg_1.0_arm64__r7w2k9d4m1q8z\\app.exe";
    const auto store = [&](nlohmann::json dacl) {
        UseState({{"folderSecurity", {{"C:\\WindowsApps", {{"dacl", dacl}}}}}});
        return helper->CheckForFullConrolByTrustedInstallAndSystem(L"C:\\WindowsApps");
    };
    const auto allow = [](std::uint32_t mask, const std::string& sid, int type = 0) {
        return nlohmann::json{{"type", type}, {"mask", mask}, {"sid", sid}};
    };
    fs::create_directories(directory / "drive-c" / "WindowsApps");
    EXPECT_TRUE(store({allow(kGenericAll, kInstaller), allow(kGenericAll | 0x1F01FF, kSystem)}));
    EXPECT_FALSE(store({allow(0x1F01FF, kInstaller), allow(kGenericAll, kSystem)})); // every specific right is not GENERIC_ALL
    EXPECT_FALSE(store({allow(kGenericAll, kInstaller, 1), allow(kGenericAll, kSystem)})); // a deny entry
    EXPECT_FALSE(store({allow(kGenericAll, "S-1-5-32-544"), allow(kGenericAll, "S-1-5-99"), allow(kGenericAll, kSystem)}));
    EXPECT_FALSE(store(nullptr)); // no DACL at all

    // Five attempts, four pauses.
    EXPECT_FALSE(helper->IsPathAllowed(app.c_str()));
    EXPECT_EQ(pauses, std::vector<std::chrono::milliseconds>(4, std::chrono::milliseconds(250)));
    EXPECT_EQ(log.Lines().back(), L"E Security - GetNamedSecurityInfo - Failed 5 of 5 times. Error Code = 0");

    // A folder that cannot be read twice, then can.
    fs::remove(directory / "drive-c" / "WindowsApps");
    store({allow(kGenericAll, kInstaller), allow(kGenericAll, kSystem)});
    onPause = [&] {
        if (pauses.size() == 2) fs::create_directories(directory / "drive-c" / "WindowsApps");
    };
    pauses.clear();
    EXPECT_TRUE(helper->IsPathAllowed(app.c_str()));
    EXPECT_EQ(pauses.size(), 2u);
    EXPECT_EQ(log.Lines().back(), L"E Security - GetNamedSecurityInfo - Failed 2 of 5 times. Error Code = 2");
}

TEST_F(TrustOnPc, HostProcessesAndTheLibrariesOnTheirCommandLines)
{
    Texts judged;
    const auto host = [&](const std::wstring& program, const std::wstring& commandLine, bool byWindows = false,
                          const std::wstring& family = L"7C3E9B10.Caretto_r7w2k9d4m1q8z") {
        // Libraries named good.dll and any program are trusted; each file asked about is recorded.
        const auto judge = [&judged](const std::wstring& file) {
            judged.push_back(file);
            return file.ends_with(L"good.dll") || file.ends_with(L".exe");
        };
        return helper->IsHostProcessAllowed(family, byWindows, program, commandLine, judge, judge);
    };
    const std::wstring regsvr32 = L"%windir%\\System32\\regsvr32.exe";
    EXPECT_TRUE(host(L"C:\\WINDOWS\\system32\\REGSVR32.EXE", L"/s /u C:\\x\\good.dll"));
    EXPECT_FALSE(host(regsvr32, L"/s \"C:\\P F\\bad.dll\" C:\\x\\good.dll"));
    EXPECT_FALSE(host(regsvr32, L"/s /u"));
    EXPECT_TRUE(host(L"%windir%\\System32\\rundll32.exe", L"\"C:\\P F\\good.dll\",Entry C:\\x\\bad.dll"));
    EXPECT_FALSE(host(L"%windir%\\System32\\rundll32.exe", L""));
    EXPECT_TRUE(host(L"C:\\Windows\\System32\\DISM.exe", L"/Online /Cleanup-Image"));
    // Another caller, or a host with no row: only Windows' trust in the host, when asked for.
    EXPECT_FALSE(host(regsvr32, L"C:\\x\\good.dll", false, L"7C3E9B10.Umbrano_r7w2k9d4m1q8z"));
    EXPECT_TRUE(host(L"C:\\Tools\\host.exe", L"", true));
    EXPECT_EQ(judged, (Texts{L"C:\\x\\good.dll", L"C:\\P F\\bad.dll", L"C:\\P F\\good.dll", L"C:\\Tools\\host.exe"}));
}

} // namespace
