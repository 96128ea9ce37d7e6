// The WinTrust verifier and the trust facade over it, the real environment and
// folder security of the Wine prefix, on the signing material made at test
// time. Wine trusts roots Windows would not, so only what does not depend on
// the root is asserted.
#include "platform/SignatureVerification.h"
#include "platform/FolderSecurity.h"
#include "security/KestrelSecurity.h"
#include "support/CapturedLog.h"
#include "support/PathForms.h"
#include "support/TrustMaterial.h"
#include "windows/StandInCall.h"

#include <gtest/gtest.h>

#include <windows.h>

#include <fstream>
#include <iterator>

using namespace Tessel::Bridge;
using namespace Tessel::Bridge::Security;

namespace {

class TrustFacadeWine : public ::testing::Test {
protected:
    static std::wstring Material(const char* name) { return (KestrelTest::TrustMaterial() / name).wstring(); }
    static std::string KeyText(const char* name)
    {
        std::ifstream in(KestrelTest::TrustMaterial() / (std::string(name) + ".keytext"), std::ios::binary);
        return {std::istreambuf_iterator<char>(in), {}};
    }

    KestrelTest::CapturedLog log; // the facade logs to memory
    std::shared_ptr<TesselAuthenticodeHelper> helper = std::make_shared<TesselAuthenticodeHelper>(
        std::make_shared<KestrelTest::StandInCall>(), Platform::CreateFolderSecurity(),
        [](std::chrono::milliseconds) {});
    TesselAuthenticodeFacade facade{{KeyText("leaf")}, {}, [] { return Platform::CreateSignatureVerifier(); }, helper};
};

// WinVerifyTrust's answer per signature, by index, and whether it gives the
// signer (whose record the next test reads).
TEST_F(TrustFacadeWine, TheVerifierGivesEachSignaturesAnswerAndSigner)
{
    const auto verifier = Platform::CreateSignatureVerifier();
    const struct {
        const char* file;
        std::uint32_t index;
        std::uint32_t result; // kTrusted: any result that gives the signer
        std::uint32_t secondary;
    } cases[] = {
        {"unsigned.exe", 0, Platform::TrustResult::kNoSignature, 0}, {"tampered.exe", 0, Platform::TrustResult::kBadDigest, 0},
        {"signed.exe", 0, Platform::TrustResult::kTrusted, 0},       {"nested.exe", 0, Platform::TrustResult::kTrusted, 1},
        {"nested.exe", 1, Platform::TrustResult::kTrusted, 1},
    };
    for (const auto& c : cases) {
        const Platform::SignatureCheck check = verifier->VerifyEmbedded(Material(c.file), c.index);
        const bool signer = c.result == Platform::TrustResult::kTrusted;
        EXPECT_TRUE(signer ? Platform::TrustResult::GivesSigner(check.result) : check.result == c.result) << c.file << std::hex << check.result;
        EXPECT_EQ(check.signer.has_value(), signer) << c.file;
        EXPECT_EQ(signer ? check.secondarySignatures : c.secondary, c.secondary) << c.file << " " << c.index;
    }
    Platform::CatalogLookupFailure failure;
    EXPECT_FALSE(verifier->FindCatalog(Material("signed.exe"), failure)); // no catalog lists it
    EXPECT_NE(failure.error, 0u);

    // WinVerifyTrust holds the file open until its state is closed.
    wchar_t folder[MAX_PATH] = {};
    ASSERT_NE(GetTempPathW(MAX_PATH, folder), 0u);
    const std::wstring copy = std::wstring(folder) + L"kestrel-verified.exe";
    ASSERT_TRUE(CopyFileW(Material("signed.exe").c_str(), copy.c_str(), FALSE)) << GetLastError();
    EXPECT_TRUE(verifier->VerifyEmbedded(copy, 0).signer);
    EXPECT_TRUE(DeleteFileW(copy.c_str())) << GetLastError();
}

TEST_F(TrustFacadeWine, TheSignersRecordFromWinTrust)
{
    const std::wstring unsignedFile = Material("unsigned.exe");
    EXPECT_FALSE(facade.IsFileTrustedByListA(unsignedFile.c_str()));
    EXPECT_TRUE(facade.GatherCertificates(unsignedFile.c_str()).empty());

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

} // namespace
