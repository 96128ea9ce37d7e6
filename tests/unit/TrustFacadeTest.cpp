// The trust facade and its path and process rules over scripted signatures,
// folders and environment: which records a file gives, every log line, and
// the retries on a store folder.
#include "platform/CallerIdentity.h"
#include "platform/FolderSecurity.h"
#include "platform/SignatureVerification.h"
#include "platform/common/WindowsPathRules.h"
#include "security/KestrelSecurity.h"
#include "support/CapturedLog.h"

#include <gtest/gtest.h>

#include <map>

using namespace Tessel::Bridge;
using namespace Tessel::Bridge::Security;
using Platform::CatalogLookupFailure;
using Platform::SignatureCheck;
namespace TrustResult = Platform::TrustResult;
using Texts = std::vector<std::wstring>;

namespace {

const std::string kKeyA = "30 82 01 0a 02 82 01 01 00 aa";
const std::string kKeyB = "30 82 01 0a 02 82 01 01 00 bb";

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
    std::map<std::wstring, ScriptedFile>* files;
    std::vector<std::wstring>* asked;

    static SignatureCheck At(const std::vector<SignatureCheck>& checks, std::uint32_t index)
    {
        return index < checks.size() ? checks[index] : Check(TrustResult::kNoIndex, 0);
    }
    SignatureCheck VerifyEmbedded(const std::wstring& path, std::uint32_t index) override
    {
        asked->push_back(L"embedded " + std::to_wstring(index));
        return At((*files)[path].embedded, index);
    }
    SignatureCheck VerifyThroughCatalog(const Platform::CatalogMembership& catalog, const std::wstring& path,
                                        std::uint32_t index) override
    {
        asked->push_back(L"catalog " + catalog.memberTag + L" " + std::to_wstring(index));
        return At((*files)[path].throughCatalog, index);
    }
    std::optional<Platform::CatalogMembership> FindCatalog(const std::wstring& path, CatalogLookupFailure& failure) override
    {
        const ScriptedFile& file = (*files)[path];
        if (!file.catalog) failure = file.failure;
        return file.catalog;
    }
};

// Expansion and full paths by the Windows rules, outside any RPC call.
struct PathsOnly : Platform::ICallerPlatform {
    Platform::PathRules::PathEnvironment environment{
        [](std::wstring_view name) -> std::optional<std::wstring> {
            static const std::map<std::wstring, std::wstring> variables = {
                {L"windir", L"C:\\Windows"}, {L"programfiles", L"C:\\Program Files"},
                {L"programfiles(x86)", L"C:\\Program Files (x86)"}};
            std::wstring lower(name);
            for (wchar_t& ch : lower) ch = static_cast<wchar_t>(std::towlower(static_cast<std::wint_t>(ch)));
            const auto found = variables.find(lower);
            return found == variables.end() ? std::nullopt : std::optional(found->second);
        },
        L"C:\\Users\\me"};
    std::uint32_t error = 0;

    std::int32_t QueryCallClientProcessId(std::uint32_t&) override { return 1725; }
    Platform::NativeHandle OpenProcessById(std::uint32_t, std::uint32_t) override { return nullptr; }
    Platform::NativeHandle DuplicateIntoThisProcess(Platform::NativeHandle, std::uint32_t) override { return nullptr; }
    void CloseNativeHandle(Platform::NativeHandle) override {}
    std::int32_t ImpersonateCaller() override { return 1725; }
    std::int32_t RevertImpersonation() override { return 1725; }
    std::int32_t PackageFamilyName(Platform::NativeHandle, std::uint32_t&, wchar_t*) override { return 15700; }
    Platform::NativeHandle OpenToken(Platform::NativeHandle, std::uint32_t) override { return nullptr; }
    bool ExpandForUser(Platform::NativeHandle, const wchar_t*, wchar_t*, std::uint32_t) override { return false; }
    std::uint32_t ExpandInProcess(const wchar_t* source, wchar_t* destination, std::uint32_t size) override
    {
        return Platform::PathRules::ExpandVariables(source, destination, size, environment, error);
    }
    std::uint32_t FullPath(const wchar_t* path, std::uint32_t size, wchar_t* buffer) override
    {
        return Platform::PathRules::FullPathName(path, size, buffer, environment, error);
    }
    std::uint32_t LastError() override { return error; }
};

const std::wstring kSystem = L"S-1-5-18";
const std::wstring kInstaller = L"S-1-5-80-956008885-3418522649-1831038044-1853292631-2271478464";
constexpr std::uint32_t kGenericAll = 0x10000000;

struct ScriptedFolders : Platform::IFolderSecurity {
    std::map<std::wstring, Platform::FolderSecurityDescriptor> folders;
    int failedReads = 0; // reads that fail before the folder is found
    std::vector<std::wstring> read;
    std::uint32_t error = 0;

    std::uint32_t ReadFolderSecurity(const std::wstring& folder, Platform::FolderSecurityDescriptor& descriptor) override
    {
        read.push_back(folder);
        const auto found = folders.find(folder);
        error = failedReads-- > 0 ? 5 : found == folders.end() ? 2 : 0;
        if (error == 0) descriptor = found->second;
        return error;
    }
    std::uint32_t LookupAccount(const std::wstring& sid, Platform::AccountName& account) override
    {
        if (sid == kSystem) account = {L"NT AUTHORITY", L"SYSTEM"};
        else if (sid == kInstaller) account = {L"NT SERVICE", L"TrustedInstaller"};
        else if (sid == L"S-1-5-32-544") account = {L"BUILTIN", L"Administrators"};
        else return error = 1332;
        return 0;
    }
    std::uint32_t LastError() override { return error; }
};

class Trust : public ::testing::Test {
protected:
    TesselAuthenticodeFacade Facade(PublicKeyList listA = {kKeyA}, PublicKeyList listB = {kKeyB})
    {
        return TesselAuthenticodeFacade(std::move(listA), std::move(listB),
                                        [this] {
                                            auto verifier = std::make_unique<ScriptedVerifier>();
                                            verifier->files = &files;
                                            verifier->asked = &asked;
                                            return verifier;
                                        },
                                        helper);
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
    void StoreFolder(const std::wstring& folder, std::vector<Platform::AccessEntry> dacl)
    {
        folders->folders[folder] = {L"S-1-5-32-544", kSystem, std::move(dacl)};
    }

    KestrelTest::CapturedLog log;
    std::map<std::wstring, ScriptedFile> files;
    std::vector<std::wstring> asked;
    std::shared_ptr<ScriptedFolders> folders = std::make_shared<ScriptedFolders>();
    std::vector<std::chrono::milliseconds> pauses;
    std::shared_ptr<TesselAuthenticodeHelper> helper = std::make_shared<TesselAuthenticodeHelper>(
        std::make_shared<PathsOnly>(), folders, [this](std::chrono::milliseconds pause) { pauses.push_back(pause); });
};

TEST_F(Trust, WindowsTrustAndPinnedKeysMustBothHold)
{
    const std::wstring path = L"C:\\Windows\\a.exe";
    const auto trusted = [&](std::vector<SignatureCheck> embedded, PublicKeyList keys) {
        files[path].embedded = std::move(embedded);
        log.sink->Clear();
        return Facade().IsFileTrusted(path.c_str(), &keys);
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
    EXPECT_FALSE(Facade().IsFileTrusted(nullptr, nullptr));
}

TEST_F(Trust, CatalogSignaturesComeFirstAndItsFailuresAreLogged)
{
    const std::wstring path = L"C:\\Windows\\cat.exe";
    ScriptedFile& file = files[path];
    file.catalog = Platform::CatalogMembership{L"C:\\cat\\x.cat", L"ABCD"};
    file.throughCatalog = {Check(0, 0, L"CN=Catalog", Key(0xAA))};
    file.embedded = {Check(0, 0, L"CN=Embedded", Key(0xBB))};
    auto records = Facade().GatherCertificates(path.c_str());
    ASSERT_EQ(records.size(), 2u);
    EXPECT_EQ(records[0].commonName + L"/" + records[1].commonName, L"Catalog/Embedded");
    EXPECT_EQ(asked, (Texts{L"catalog ABCD 0", L"embedded 0"}));

    file.catalog.reset();
    file.failure = {CatalogLookupFailure::Step::AcquireContext, 120};
    log.sink->Clear();
    EXPECT_TRUE(Facade({kKeyB}).IsFileTrustedByListA(path.c_str()));
    EXPECT_EQ(Lines().at(1), L"E Security - GetSecurityCatalogInfo - Failed during CryptCATAdminAcquireContext2. Error Code = 120");
    // A file that cannot be hashed ends the whole check, embedded signature or not.
    file.failure = {CatalogLookupFailure::Step::HashFile, 2};
    EXPECT_FALSE(Facade({kKeyB}).IsFileTrustedByListA(path.c_str()));
    EXPECT_FALSE(Facade().IsFileTrustedByWindows(path.c_str()));
    // List B asks the place too: its signer outside the allowed places is refused.
    for (const std::wstring other : {L"C:\\Windows\\b.exe", L"D:\\b.exe"}) {
        files[other].embedded = {Check(0, 0, L"CN=B", Key(0xBB))};
        EXPECT_EQ(Facade().IsFileTrustedByListB(other.c_str()), other[0] == L'C');
    }
}

TEST_F(Trust, DropboxByExactCommonNameAndWindowsTrust)
{
    const std::wstring path = L"C:\\Program Files\\Dropbox\\d.exe";
    files[path].embedded = {Check(TrustResult::kUntrustedRoot, 1, L"CN=Dropbox, Inc.", Key(1)),
                            Check(0, 1, L"CN=dropbox, inc\r\nO=Dropbox, Inc", Key(2))};
    EXPECT_FALSE(Facade().IsDropboxFileTrusted(path.c_str())); // no common name is exactly the publisher's
    files[path].embedded[1] = Check(0, 1, L"CN=Dropbox, Inc", Key(2));
    log.sink->Clear();
    EXPECT_TRUE(Facade().IsDropboxFileTrusted(path.c_str()));
    EXPECT_EQ(Lines().front(), L"I Starting validation of Dropbox file.");
    files[path].embedded = {Check(TrustResult::kUntrustedRoot, 0, L"CN=Dropbox, Inc", Key(1))};
    log.sink->Clear();
    EXPECT_FALSE(Facade().IsDropboxFileTrusted(path.c_str()));
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
    EXPECT_TRUE(pauses.empty());
    EXPECT_TRUE(folders->read.empty());
    // The marker is looked for in its own letter case.
    EXPECT_FALSE(helper->IsPathAllowed(L"D:\\windowsapps\\Pkg\\app.exe"));
    EXPECT_TRUE(folders->read.empty());
}

TEST_F(Trust, StoreFoldersNeedGenericAllForTrustedInstallerAndSystem)
{
    const std::wstring app = L"D:\\WindowsApps\\Pkg_1.0_arm64__r7w2k9d4m1q8z\\app.exe";
    StoreFolder(L"D:\\WindowsApps", {{0, kGenericAll, kInstaller}, {0, kGenericAll | 0x1F01FF, kSystem}});
    EXPECT_TRUE(helper->IsPathAllowed(app.c_str()));
    EXPECT_EQ(folders->read, Texts{L"D:\\WindowsApps"});

    const std::vector<std::vector<Platform::AccessEntry>> refused = {
        {{0, 0x1F01FF, kInstaller}, {0, kGenericAll, kSystem}},              // every specific right is not GENERIC_ALL
        {{1, kGenericAll, kInstaller}, {0, kGenericAll, kSystem}},           // a deny entry
        {{0, kGenericAll, kSystem}},                                          // SYSTEM alone
        {{0, kGenericAll, L"S-1-5-32-544"}, {0, kGenericAll, L"S-1-5-99"}, {0, kGenericAll, kSystem}}};
    for (const auto& dacl : refused) {
        StoreFolder(L"D:\\WindowsApps", dacl);
        EXPECT_FALSE(helper->CheckForFullConrolByTrustedInstallAndSystem(L"D:\\WindowsApps")) << dacl.size();
    }
    folders->folders[L"D:\\WindowsApps"].dacl.reset(); // no DACL at all
    EXPECT_FALSE(helper->CheckForFullConrolByTrustedInstallAndSystem(L"D:\\WindowsApps"));

    // Five attempts, four pauses, one error line for each failure.
    log.sink->Clear();
    folders->read.clear();
    EXPECT_FALSE(helper->IsPathAllowed(app.c_str()));
    EXPECT_EQ(folders->read.size(), 5u);
    EXPECT_EQ(pauses, std::vector<std::chrono::milliseconds>(4, std::chrono::milliseconds(250)));
    const Texts lines = Lines();
    ASSERT_EQ(lines.size(), 8u); // three places missed, then the five attempts
    EXPECT_EQ(lines[3], L"E Security - GetNamedSecurityInfo - Failed 1 of 5 times. Error Code = 0");
    EXPECT_EQ(lines[7], L"E Security - GetNamedSecurityInfo - Failed 5 of 5 times. Error Code = 0");

    // A folder that cannot be read twice, then can.
    StoreFolder(L"D:\\WindowsApps", {{0, kGenericAll, kInstaller}, {0, kGenericAll, kSystem}});
    folders->failedReads = 2;
    pauses.clear();
    log.sink->Clear();
    EXPECT_TRUE(helper->IsPathAllowed(app.c_str()));
    EXPECT_EQ(pauses.size(), 2u);
    EXPECT_EQ(Lines().back(), L"E Security - GetNamedSecurityInfo - Failed 2 of 5 times. Error Code = 5");
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
