// The emulated PC's verifier: its catalog folder and roots, over its drives.
// Where Windows paths lead is in TrustFacadeEmulatedTest.cpp; the engine's
// own checks are in authenticode/tests.
#include "platform/SignatureVerification.h"
#include "platform/common/Hex.h"

#include "emulated/EmulatedTestSupport.h"
#include "support/CatalogBuilder.h"
#include "support/ScopedEnvironment.h"
#include "support/TempDirectory.h"
#include "support/TrustMaterial.h"

#include <gtest/gtest.h>

#include <openssl/sha.h>

using namespace Tessel::Bridge::Platform;
using namespace KestrelTest;
namespace fs = std::filesystem;

namespace {

class SignatureVerifier : public ::testing::Test {
protected:
    TempDirectory directory;
    ScopedEnvironment pc{"KESTREL_EMULATED_PC", (directory / "pc.json").string()};
    fs::path material = TrustMaterial();
    std::unique_ptr<ISignatureVerifier> verifier;
};

TEST_F(SignatureVerifier, ACatalogVouchesOnlyForTheBytesItLists)
{
    fs::create_directories(directory / "catalogs");
    fs::create_directories(directory / "drive-c" / "Tools");
    const fs::path listed = directory / "drive-c" / "Tools" / "notes.txt";
    WriteFileBytes(listed, "listed text\n");
    std::uint8_t digest[SHA256_DIGEST_LENGTH];
    SHA256(reinterpret_cast<const unsigned char*>("listed text\n"), 12, digest);
    const std::wstring tag = HexDigits(digest, false);
    const CatalogSigner signer = SignerFromPem(material / "leaf.crt", material / "leaf.key", material / "intermediate.crt");
    WriteCatalog(directory / "catalogs" / "tools.cat", {tag}, signer);
    verifier = CreateSignatureVerifier();

    CatalogLookupFailure failure;
    const auto catalog = verifier->FindCatalog(L"C:\\tools\\NOTES.TXT", failure);
    ASSERT_TRUE(catalog.has_value()) << failure.error;
    EXPECT_EQ(catalog->catalogPath, (directory / "catalogs" / "tools.cat").wstring());
    // The PC trusts no root by default, so the chain ends nowhere.
    EXPECT_EQ(verifier->VerifyThroughCatalog(*catalog, L"C:\\Tools\\notes.txt", 0).result, TrustResult::kChaining);
    verifier = CreateSignatureVerifier({material / "root.crt", {}});
    EXPECT_EQ(verifier->VerifyThroughCatalog(*catalog, L"C:\\Tools\\notes.txt", 0).result, TrustResult::kTrusted);

    WriteFileBytes(listed, "listed text!");
    EXPECT_EQ(verifier->VerifyThroughCatalog(*catalog, L"C:\\Tools\\notes.txt", 0).result, TrustResult::kBadDigest);
    EXPECT_FALSE(verifier->FindCatalog(L"C:\\Tools\\notes.txt", failure).has_value());
    EXPECT_EQ(failure.step, CatalogLookupFailure::Step::FindCatalog);
    EXPECT_EQ(failure.error, 1168u);
}

} // namespace
