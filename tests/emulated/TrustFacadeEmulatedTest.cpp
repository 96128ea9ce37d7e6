// The trust facade and its path and process rules on the emulated PC: its
// roots, catalogs, drives, environment, folders and accounts. Real signed
// files show what the PC's verifier reads; scripted signatures show which
// records count, every log line, and the retries on a store folder.
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

#include <functional>
#include <map>
#include <thread>

using namespace Tessel::Bridge;
using namespace Tessel::Bridge::Security;
using namespace KestrelTest;
using Platform::CatalogLookupFailure;
using Platform::SignatureCheck;
namespace TrustResult = Platform::TrustResult;
namespace fs = std::filesystem;
using Texts = std::vector<std::wstring>;

namespace {

const std::string kKeyA = "30 82 01 0a 02 82 01 01 00 aa";
const std::string kKeyB = "30 82 01 0a 02 82 01 01 00 bb";
const std::string kSystem = "S-1-5-18";
const std::string kInstaller = "S-1-5-80-956008885-3418522649-1831038044-1853292631-2271478464";
constexpr std::uint32_t kGenericAll = 0x10000000;

SignatureCheck Check(std::uint32_t result, std::uint32_t secondary, const std::wstring& subject = L"",
                     std::vector<std::uint8_t> key = {})
{
    SignatureCheck check;
    check.result = result;
    check.secondarySignatures = secondary;
    if (!subject.empty() || !key.empty()) check.signer = Platform::Signer{subject, std::move(key)};
    return check;
}

// The bytes whose text is kKeyA or kKeyB.
std::vector<std::uint8_t> Key(std::uint8_t last)
{
    return {0x30, 0x82, 0x01, 0x0a, 0x02, 0x82, 0x01, 0x01, 0x00, last};
}

struct ScriptedFile {
    std::vector<SignatureCheck> embedded;
    std::optional<Platform::CatalogMembership> catalog;
    CatalogLookupFailure failure{CatalogLookupFailure::Step::FindCatalog, 1168};
    std::vector<SignatureCheck> throughCatalog;
};

struct ScriptedVerifier : Platform::ISignatureVerifier {
    std::map<std::wstring, ScriptedFile>& files;
    std::vector<std::wstring>& asked;
    ScriptedVerifier(std::map<std::wstring, ScriptedFile>& f, std::vector<std::wstring>& a) : files(f), asked(a) {}

    static SignatureCheck At(const std::vector<SignatureCheck>& checks, std::uint32_t index)
    {
        return index < checks.size() ? checks[index] : Check(TrustResult::kNoIndex, 0);
    }
    SignatureCheck VerifyEmbedded(const std::wstring& path, std::uint32_t index) override
    {
        asked.push_back(L"embedded " + std::to_wstring(index));
        return At(files[path].embedded, index);
    }
    SignatureCheck VerifyThroughCatalog(const Platform::CatalogMembership& catalog, const std::wstring& path,
                                        std::uint32_t index) override
    {
        asked.push_back(L"catalog " + catalog.memberTag + L" " + std::to_wstring(index));
        return At(files[path].throughCatalog, index);
    }
    std::optional<Platform::CatalogMembership> FindCatalog(const std::wstring& path, CatalogLookupFailure& failure) override
    {
        const ScriptedFile& file = files[path];
        if (!file.catalog) failure = file.failure;
        return file.catalog;
    }
};

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

    // Over the PC's verifier, or over the scripted signatures of `files`.
    TesselAuthenticodeFacade Facade(PublicKeyList listA, PublicKeyList listB = {})
    {
        return TesselAuthenticodeFacade(std::move(listA), std::move(listB), [] { return Platform::CreateSignatureVerifier(); }, helper);
    }
    TesselAuthenticodeFacade Scripted(PublicKeyList listA = {kKeyA}, PublicKeyList listB = {kKeyB})
    {
        return TesselAuthenticodeFacade(std::move(listA), std::move(listB),
                                        [this] { return std::make_unique<ScriptedVerifier>(files, asked); }, helper);
    }

    std::size_t Count(const std::wstring& text) const
    {
        const Texts lines = log.Lines();
        return static_cast<std::size_t>(std::count_if(lines.begin(), lines.end(), [&](const std::wstring& line) {
            return line.find(text) != std::wstring::npos;
        }));
    }
    // The error lines and those of the facade, without the path helper's information lines.
    Texts Lines() const
    {
        Texts lines;
        for (const std::wstring& line : log.Lines()) {
            if (line.starts_with(L"I ExpandEnvironmentStrings") || line.starts_with(L"I GetFullPathName")) continue;
            lines.push_back(line);
        }
        return lines;
    }

    const fs::path material = TrustMaterial();
    TempDirectory directory;
    ScopedEnvironment pc{"KESTREL_EMULATED_PC", (directory.Path() / "pc.json").string()};
    CapturedLog log;
    std::map<std::wstring, ScriptedFile> files;
    std::vector<std::wstring> asked;
    std::vector<std::chrono::milliseconds> pauses;
    std::function<void()> onPause = [] {};
    std::shared_ptr<TesselAuthenticodeHelper> helper = std::make_shared<TesselAuthenticodeHelper>(
        Platform::CreateCallerPlatform(), Platform::CreateFolderSecurity(), [this](std::chrono::milliseconds pause) {
            pauses.push_back(pause);
            onPause();
        });
};

using Trust = TrustOnPc;

// Real signers' key texts must equal openssl's (KeyText) for list A to pin them.
TEST_F(TrustOnPc, ACatalogSignerIsPinnedForAFileWithNoSignature)
{
    const std::wstring tag = [&] {
        const std::string text = ReadFileBytes(material / "unsigned.tag");
        return std::wstring(text.begin(), text.begin() + 64);
    }();
    fs::create_directories(directory / "catalogs");
    WriteCatalog(directory / "catalogs" / "vendor.cat", {tag},
                 SignerFromPem(material / "leaf.crt", material / "leaf.key", material / "intermediate.crt"));
    const std::wstring app = Place("unsigned.exe", "Program Files/Vendor");
    EXPECT_TRUE(Facade({KeyText("leaf")}).IsFileTrustedByListA(app.c_str()));
    EXPECT_EQ(Count(L"I Security - GetSecurityCatalogInfo - File = C:\\Program Files\\Vendor\\unsigned.exe"), 1u);
    EXPECT_EQ(Count(L"I Subject = C=US\r\nS=Washington\r\nL=Redmond\r\nO=Kestrel Test\r\nOU=Release\r\nCN=Kestrel Test leaf"), 1u);
    EXPECT_TRUE(Facade({}).IsFileTrustedByWindows(app.c_str()));
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

TEST_F(TrustOnPc, ManyThreadsAtOnce)
{
    const std::wstring app = Place("signed.exe", "Program Files/Vendor");
    const std::wstring other = Place("samekey.exe", "Program Files/Vendor");
    const std::wstring unsignedApp = Place("unsigned.exe", "Program Files/Vendor");
    TesselAuthenticodeFacade facade = Facade({KeyText("leaf")});
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 8; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < 6; ++i) {
                const bool right = facade.IsFileTrustedByListA(app.c_str()) && !facade.IsFileTrustedByListA(unsignedApp.c_str()) &&
                                   facade.AreSignedBySameKey(app.c_str(), other.c_str()) && facade.IsPathAllowed(other.c_str());
                if (!right) ++wrong;
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(wrong.load(), 0);
}

TEST_F(Trust, WindowsTrustAndPinnedKeysMustBothHold)
{
    const std::wstring path = L"C:\\Windows\\a.exe";
    const auto trusted = [&](std::vector<SignatureCheck> embedded, PublicKeyList keys) {
        files[path].embedded = std::move(embedded);
        log.sink->Clear();
        return Scripted().IsFileTrusted(path.c_str(), &keys);
    };
    const Texts yesNo = {L"I Security - IsFileTrusted - trusted by windows = no, trusted by Lattice = yes"};
    EXPECT_FALSE(trusted({Check(TrustResult::kUntrustedRoot, 0, L"CN=R", Key(0xAA))}, {kKeyA}));
    EXPECT_EQ(Lines().back(), yesNo.back());
    EXPECT_TRUE(trusted({Check(TrustResult::kExpired, 0, L"CN=E", Key(0xAA))}, {kKeyA}));
    EXPECT_EQ(Lines().back(), L"I Security - IsFileTrusted - trusted by windows = yes, trusted by Lattice = yes");
    // The last signature is the pinned one; a changed file's signer gives no record.
    EXPECT_TRUE(trusted({Check(0, 2, L"CN=1", Key(0xBB)), Check(TrustResult::kBadDigest, 2, L"CN=2", Key(0xBB)),
                         Check(0, 2, L"CN=3", Key(0xAA))}, {kKeyA}));
    EXPECT_FALSE(trusted({Check(0, 1, L"CN=1", Key(0xBB)), Check(TrustResult::kBadDigest, 1, L"CN=2", Key(0xAA))}, {kKeyA}));
    EXPECT_FALSE(trusted({Check(0, 0, L"CN=1", Key(0xAA))}, {"30 82 01 0A 02 82 01 01 00 AA"}));
    EXPECT_EQ(Lines().back(), L"I Security - IsFileTrusted - trusted by windows = yes, trusted by Lattice = no");
    // No record, or no key to compare: no verdict line.
    EXPECT_FALSE(trusted({Check(TrustResult::kNoSignature, 0)}, {kKeyA}));
    EXPECT_FALSE(trusted({Check(0, 0, L"CN=1", Key(0xAA))}, {}));
    for (const std::wstring& line : Lines()) EXPECT_EQ(line.find(L"IsFileTrusted"), std::wstring::npos) << line;
    EXPECT_FALSE(Scripted().IsFileTrusted(nullptr, nullptr));
}

TEST_F(Trust, CatalogSignaturesComeFirstAndItsFailuresAreLogged)
{
    const std::wstring path = L"C:\\Windows\\cat.exe";
    ScriptedFile& file = files[path];
    file.catalog = Platform::CatalogMembership{L"C:\\cat\\x.cat", L"ABCD"};
    file.throughCatalog = {Check(0, 0, L"CN=Catalog", Key(0xAA))};
    file.embedded = {Check(0, 0, L"CN=Embedded", Key(0xBB))};
    auto records = Scripted().GatherCertificates(path.c_str());
    ASSERT_EQ(records.size(), 2u);
    EXPECT_EQ(records[0].commonName + L"/" + records[1].commonName, L"Catalog/Embedded");
    EXPECT_EQ(asked, (Texts{L"catalog ABCD 0", L"embedded 0"}));

    file.catalog.reset();
    file.failure = {CatalogLookupFailure::Step::AcquireContext, 120};
    log.sink->Clear();
    EXPECT_TRUE(Scripted({kKeyB}).IsFileTrustedByListA(path.c_str()));
    EXPECT_EQ(Lines().at(1), L"E Security - GetSecurityCatalogInfo - Failed during CryptCATAdminAcquireContext2. Error Code = 120");
    // A file that cannot be hashed ends the whole check, embedded signature or not.
    file.failure = {CatalogLookupFailure::Step::HashFile, 2};
    EXPECT_FALSE(Scripted({kKeyB}).IsFileTrustedByListA(path.c_str()));
    EXPECT_FALSE(Scripted().IsFileTrustedByWindows(path.c_str()));
    // List B asks the place too: its signer outside the allowed places is refused.
    for (const std::wstring other : {L"C:\\Windows\\b.exe", L"D:\\b.exe"}) {
        files[other].embedded = {Check(0, 0, L"CN=B", Key(0xBB))};
        EXPECT_EQ(Scripted().IsFileTrustedByListB(other.c_str()), other[0] == L'C');
    }
}

TEST_F(Trust, DropboxByExactCommonNameAndWindowsTrust)
{
    const std::wstring path = L"C:\\Program Files\\Dropbox\\d.exe";
    files[path].embedded = {Check(TrustResult::kUntrustedRoot, 1, L"CN=Dropbox, Inc.", Key(1)),
                            Check(0, 1, L"CN=dropbox, inc\r\nO=Dropbox, Inc", Key(2))};
    EXPECT_FALSE(Scripted().IsDropboxFileTrusted(path.c_str())); // no common name is exactly the publisher's
    files[path].embedded[1] = Check(0, 1, L"CN=Dropbox, Inc", Key(2));
    log.sink->Clear();
    EXPECT_TRUE(Scripted().IsDropboxFileTrusted(path.c_str()));
    EXPECT_EQ(Lines().front(), L"I Starting validation of Dropbox file.");
    files[path].embedded = {Check(TrustResult::kUntrustedRoot, 0, L"CN=Dropbox, Inc", Key(1))};
    log.sink->Clear();
    EXPECT_FALSE(Scripted().IsDropboxFileTrusted(path.c_str()));
    EXPECT_EQ(Lines(), (Texts{L"I Starting validation of Dropbox file.", L"I Subject = CN=Dropbox, Inc",
                              L"E Dropbox file is not trusted by windows."}));
}

TEST_F(Trust, AllowedPlacesLogEveryMissBeforeTheirVerdict)
{
    EXPECT_TRUE(helper->IsPathAllowed(L"C:\\WINDOWS\\SYSTEM32\\X.DLL"));
    EXPECT_EQ(Lines(), Texts{});
    EXPECT_TRUE(helper->IsPathAllowed(L"C:\\Program Files\\App\\app.exe"));
    const std::wstring miss = L"E Tessel::Bridge::Security::TesselAuthenticodeHelper::IsPathAllowed - BeginsWith() failed ";
    EXPECT_EQ(Lines(), (Texts{miss + L"[C:\\Program Files\\App\\app.exe] [C:\\Windows\\]",
                              miss + L"[C:\\Program Files\\App\\app.exe] [C:\\Program Files (x86)\\]"}));
    log.sink->Clear();
    EXPECT_FALSE(helper->IsPathAllowed(L"D:\\Tools\\..\\x.exe"));
    EXPECT_EQ(Lines(), (Texts{miss + L"[D:\\x.exe] [C:\\Windows\\]", miss + L"[D:\\x.exe] [C:\\Program Files (x86)\\]",
                              miss + L"[D:\\x.exe] [C:\\Program Files\\]",
                              L"E Tessel::Bridge::Security::TesselAuthenticodeHelper::IsPathAllowed - Didn't find substring [:\\WindowsApps\\] in [D:\\x.exe]"}));
    // The marker is looked for in its own letter case.
    EXPECT_FALSE(helper->IsPathAllowed(L"D:\\windowsapps\\Pkg\\app.exe"));
    EXPECT_TRUE(pauses.empty());
}

// The folder's descriptor and accounts as the PC stores them.
TEST_F(Trust, StoreFoldersNeedGenericAllForTrustedInstallerAndSystem)
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
    EXPECT_FALSE(store({allow(kGenericAll, kSystem)}));
    EXPECT_FALSE(store({allow(kGenericAll, "S-1-5-32-544"), allow(kGenericAll, "S-1-5-99"), allow(kGenericAll, kSystem)}));
    EXPECT_FALSE(store(nullptr)); // no DACL at all

    // Five attempts, four pauses, one error line for each failure.
    log.sink->Clear();
    EXPECT_FALSE(helper->IsPathAllowed(app.c_str()));
    EXPECT_EQ(pauses, std::vector<std::chrono::milliseconds>(4, std::chrono::milliseconds(250)));
    const Texts lines = Lines();
    ASSERT_EQ(lines.size(), 8u); // three places missed, then the five attempts
    EXPECT_EQ(lines[3], L"E Security - GetNamedSecurityInfo - Failed 1 of 5 times. Error Code = 0");
    EXPECT_EQ(lines[7], L"E Security - GetNamedSecurityInfo - Failed 5 of 5 times. Error Code = 0");

    // A folder that cannot be read twice, then can.
    fs::remove(directory / "drive-c" / "WindowsApps");
    store({allow(kGenericAll, kInstaller), allow(kGenericAll, kSystem)});
    onPause = [&] {
        if (pauses.size() == 2) fs::create_directories(directory / "drive-c" / "WindowsApps");
    };
    pauses.clear();
    log.sink->Clear();
    EXPECT_TRUE(helper->IsPathAllowed(app.c_str()));
    EXPECT_EQ(pauses.size(), 2u);
    EXPECT_EQ(Lines().back(), L"E Security - GetNamedSecurityInfo - Failed 2 of 5 times. Error Code = 2");
}

TEST_F(Trust, HostProcessesAndTheLibrariesOnTheirCommandLines)
{
    const std::wstring caretto = L"7C3E9B10.Caretto_r7w2k9d4m1q8z";
    std::vector<std::wstring> judged;
    const auto judge = [&judged](const std::wstring& library) {
        judged.push_back(library);
        return library.ends_with(L"good.dll");
    };
    const auto host = [&](const std::wstring& program, const std::wstring& commandLine, bool byWindows = false,
                          const std::wstring& family = L"7C3E9B10.Caretto_r7w2k9d4m1q8z") {
        return helper->IsHostProcessAllowed(family, byWindows, program, commandLine, judge,
                                            [&judged](const std::wstring& file) {
                                                judged.push_back(L"windows " + file);
                                                return true;
                                            });
    };
    const std::wstring regsvr32 = L"%windir%\\System32\\regsvr32.exe";
    EXPECT_TRUE(host(L"C:\\WINDOWS\\system32\\REGSVR32.EXE", L"/s /u C:\\x\\good.dll"));
    EXPECT_FALSE(host(regsvr32, L"/s \"C:\\P F\\bad.dll\" C:\\x\\good.dll"));
    EXPECT_FALSE(host(regsvr32, L"/s /u"));
    EXPECT_FALSE(host(regsvr32, L""));
    EXPECT_TRUE(host(L"%windir%\\System32\\rundll32.exe", L"\"C:\\P F\\good.dll\",Entry C:\\x\\bad.dll"));
    EXPECT_TRUE(host(L"%windir%\\System32\\rundll32.exe", L"C:\\x\\good.dll"));
    EXPECT_FALSE(host(L"%windir%\\System32\\rundll32.exe", L""));
    EXPECT_EQ(judged, (Texts{L"C:\\x\\good.dll", L"C:\\P F\\bad.dll", L"C:\\P F\\good.dll", L"C:\\x\\good.dll"}));
    judged.clear();
    EXPECT_TRUE(host(L"C:\\Windows\\System32\\DISM.exe", L"/Online /Cleanup-Image"));
    // Another caller, or a host with no row: only Windows' trust in the host, when asked for.
    EXPECT_FALSE(host(regsvr32, L"C:\\x\\good.dll", false, L"7C3E9B10.Umbrano_r7w2k9d4m1q8z"));
    EXPECT_TRUE(host(L"C:\\Tools\\host.exe", L"", true));
    EXPECT_EQ(judged, Texts{L"windows C:\\Tools\\host.exe"});
}

TEST(TrustPatterns, TraversalGuardPatterns)
{
    const struct {
        const wchar_t* value;
        bool absoluteOrVariable;
        bool parent;
    } rows[] = {{L"..\\x.dll", false, true},         {L"a/../b", false, true},
                {L"C:\\Program Files\\x", true, false}, {L"\\\\server\\share\\x", true, false},
                {L"https://example.com/x", true, false}, {L"http:x", true, false},
                {L"%ProgramFiles(x86)%\\x", true, false}, {L"C:\\a\\..\\b", true, true},
                {L"%%\\x", false, false},               {L"relative\\x.dll", false, false},
                {L"ftp://x", false, false},             {L"x:", true, false},
                {L"", false, false}};
    for (const auto& row : rows) {
        EXPECT_EQ(TesselAuthenticodeHelper::IsAbsoluteOrVariablePath(row.value), row.absoluteOrVariable) << row.value;
        EXPECT_EQ(TesselAuthenticodeHelper::HasParentDirectoryStep(row.value), row.parent) << row.value;
    }
}

} // namespace
