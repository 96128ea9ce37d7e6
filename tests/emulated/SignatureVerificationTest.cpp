// The emulated PC's verifier on whole files: no change to a signed file,
// inside its hashed bytes or its signature, leaves it trusted. Where Windows
// paths lead is in TrustFacadeEmulatedTest.cpp.
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
    SignatureCheck Verify(const fs::path& file, std::uint32_t index = 0) const
    {
        return verifier->VerifyEmbedded(file.wstring(), index);
    }

    // Runs every change on a copy of the file: `change` edits the bytes and
    // says what it did; none may leave the file trusted.
    template <typename Change>
    void ExpectNoneTrusted(const fs::path& original, std::size_t changes, const Change& change)
    {
        const std::string bytes = ReadFileBytes(original);
        const fs::path copy = directory / original.filename();
        for (std::size_t i = 0; i < changes; ++i) {
            std::string changed = bytes;
            const std::string what = change(i, changed);
            if (what.empty()) continue;
            WriteFileBytes(copy, changed);
            const std::uint32_t result = Verify(copy).result;
            EXPECT_TRUE(result != TrustResult::kTrusted && result != TrustResult::kExpired)
                << original.filename() << ": " << what << " gave " << std::hex << result;
        }
    }

    TempDirectory directory;
    ScopedEnvironment pc{"KESTREL_EMULATED_PC", (directory / "pc.json").string()};
    fs::path material = TrustMaterial();
    std::unique_ptr<ISignatureVerifier> verifier = CreateSignatureVerifier({material / "root.crt", {}, true});
};

TEST_F(SignatureVerifier, NoChangedByteOrCutOfASignedFileIsTrusted)
{
    const fs::path signedFile = material / "signed.exe";
    ASSERT_EQ(Verify(signedFile).result, TrustResult::kTrusted);
    const std::string bytes = ReadFileBytes(signedFile);
    const std::size_t size = bytes.size();
    // PE32+: the CheckSum field, which the digest leaves out, at e_lfanew + 24 + 64.
    const std::size_t lfanew = std::size_t{static_cast<std::uint8_t>(bytes[0x3C])} | std::size_t{static_cast<std::uint8_t>(bytes[0x3D])} << 8;
    const std::size_t checksum = lfanew + 24 + 64;

    // Every byte of the headers and of the signature at the end, every 37th
    // in between; each flipped in its low and its high bit.
    ExpectNoneTrusted(signedFile, 2 * size, [&](std::size_t i, std::string& changed) -> std::string {
        const std::size_t at = i / 2;
        const bool wanted = at < 1024 || at + 3072 > size || at % 37 == 0;
        if (!wanted || (at >= checksum && at < checksum + 4)) return {};
        changed[at] = static_cast<char>(changed[at] ^ (i % 2 == 0 ? 0x01 : 0x80));
        return "byte " + std::to_string(at) + " flipped";
    });
    ExpectNoneTrusted(signedFile, size, [&](std::size_t i, std::string& changed) -> std::string {
        if (i % 13 != 0 && i + 64 < size) return {};
        changed.resize(i);
        return "cut to " + std::to_string(i);
    });
    // Bytes added: after the table, and in the table's padding.
    ExpectNoneTrusted(signedFile, 2, [&](std::size_t i, std::string& changed) -> std::string {
        changed += std::string(8, i == 0 ? '\0' : 'x');
        return "8 bytes appended";
    });
}

TEST_F(SignatureVerifier, NestedSignaturesAreFoundByIndex)
{
    const SignatureCheck nested = Verify(material / "nested.exe", 1);
    EXPECT_EQ(nested.result, TrustResult::kTrusted);
    EXPECT_EQ(nested.secondarySignatures, 1u);
    EXPECT_EQ(nested.digestAlgorithm, "sha256");
    EXPECT_EQ(Verify(material / "nested.exe", 0).digestAlgorithm, "sha1");
    EXPECT_EQ(Verify(material / "nested.exe", 2).result, TrustResult::kNoIndex);
}

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

    WriteFileBytes(listed, "listed text\n");
    const std::string catalogBytes = ReadFileBytes(directory / "catalogs" / "tools.cat");
    for (std::size_t at = 0; at < catalogBytes.size(); at += 2) {
        std::string changed = catalogBytes;
        changed[at] = static_cast<char>(changed[at] ^ 0x04);
        WriteFileBytes(directory / "catalogs" / "tools.cat", changed);
        EXPECT_NE(verifier->VerifyThroughCatalog(*catalog, L"C:\\Tools\\notes.txt", 0).result, TrustResult::kTrusted)
            << "catalog byte " << at;
    }
}

} // namespace
