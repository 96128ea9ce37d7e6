// The trust facade and the PC's verifier with real signed files: the PC's
// roots, catalogs, drives and environment, and many threads asking at once.
// The places and store folders through the installed package are in
// tests/consumer/ConsumerTrust.cpp.
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

#include <thread>

using namespace Tessel::Bridge;
using namespace Tessel::Bridge::Security;
using namespace KestrelTest;
namespace fs = std::filesystem;
using Texts = std::vector<std::wstring>;

namespace {

class TrustOnPc : public ::testing::Test {
protected:
    void SetUp() override
    {
        WriteFileBytes(directory / "pc.json", nlohmann::json{{"trust", {{"roots", (material / "root.crt").string()}}}}.dump());
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
        return TesselAuthenticodeFacade(std::move(listA), std::move(listB), [] { return Platform::CreateSignatureVerifier(); }, helper);
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
    std::shared_ptr<TesselAuthenticodeHelper> helper = std::make_shared<TesselAuthenticodeHelper>(
        Platform::CreateCallerPlatform(), Platform::CreateFolderSecurity(),
        [](std::chrono::milliseconds) {});
};

// Which signatures count, and the log lines, are TrustFacadeTest's over
// scripted records; here the records of real signatures.
TEST_F(TrustOnPc, TheKeyTextsAndSubjectOfRealSigners)
{
    // A 2048-bit and a 3072-bit signer's key text, as openssl writes the DER.
    const auto records = Facade({}).GatherCertificates(Place("nested3072.exe", "Program Files/T").c_str());
    ASSERT_EQ(records.size(), 2u);
    EXPECT_EQ(records[0].publicKey, KeyText("leaf"));
    EXPECT_EQ(records[0].publicKey.size(), 809u);
    EXPECT_EQ(records[1].publicKey, KeyText("leaf3072"));
    EXPECT_EQ(records[1].publicKey.size(), 1193u);
    EXPECT_EQ(records[0].commonName + L"|" + records[0].organizationalUnit + L"|" + records[0].state, L"Kestrel Test leaf|Release|Washington");
}

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
    WriteFileBytes(directory / "pc.json", nlohmann::json{{"trust", {{"roots", (material / "root.crt").string()}}},
                                                         {"environment", {{"currentDirectory", "C:\\Program Files\\Vendor"}}}}.dump());
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

} // namespace
