// The engine through its public header, on the files signed for the run
// (KESTREL_TRUST_MATERIAL): no change to a signed file, inside its hashed
// bytes or its signature, leaves it trusted; paths and bytes get the same
// answers; trust comes only from the sources given.
#include "kestrel/Authenticode.h"

#include "emulated/EmulatedTestSupport.h"
#include "support/CatalogBuilder.h"
#include "support/TempDirectory.h"
#include "support/TrustMaterial.h"

#include <gtest/gtest.h>

#include <openssl/pem.h>

#include <tuple>

using namespace Kestrel::Authenticode;
using namespace KestrelTest;
namespace fs = std::filesystem;

namespace {

class AuthenticodeVerifier : public ::testing::Test {
protected:
    std::uint32_t Verify(const fs::path& file, std::uint32_t index = 0) { return verifier.VerifyEmbedded(file, index).result; }

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
            const std::uint32_t result = Verify(copy);
            EXPECT_FALSE(Result::CountsAsTrusted(result)) << original.filename() << ": " << what << " gave " << std::hex << result;
        }
    }

    TempDirectory directory;
    fs::path material = TrustMaterial();
    Verifier verifier{{Roots::FromPemFile(material / "root.crt")}};
};

// A report on one line per signature, to compare reports by.
std::string Text(const FileReport& report)
{
    std::ostringstream text;
    if (report.catalog) text << report.catalog->catalog << " " << report.catalog->memberTag << "\n";
    for (const Signature& s : report.catalogSignatures) text << s.result << s.digestAlgorithm << (s.signer ? s.signer->subject : "-") << "\n";
    for (const Signature& s : report.embedded) {
        text << s.result << s.digestAlgorithm << s.secondarySignatures << (s.signer ? s.signer->subject : "-")
             << (s.signer ? s.signer->publicKey.size() : 0) << (s.timestamp ? s.timestamp->time : 0) << "\n";
    }
    return text.str();
}

TEST_F(AuthenticodeVerifier, NoChangedByteOrCutOfASignedFileIsTrusted)
{
    const fs::path signedFile = material / "signed.exe";
    ASSERT_EQ(Verify(signedFile), Result::kTrusted);
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

TEST_F(AuthenticodeVerifier, PathsAndBytesGetTheSameAnswers)
{
    const std::string tag = ReadFileBytes(material / "unsigned.tag").substr(0, 64);
    WriteCatalog(directory / "tools.cat", {std::wstring(tag.begin(), tag.end())},
                 SignerFromPem(material / "leaf.crt", material / "leaf.key", material / "intermediate.crt"));
    verifier = Verifier({Roots::FromPemFile(material / "root.crt"), {directory.Path()}});
    // The catalog lists the bytes that every image signed here signs (so it
    // vouches for untrusted.exe too); trailing.exe is no image Windows reads.
    const std::tuple<const char*, bool, bool> rows[] = {
        {"signed.exe", true, true},     {"unsigned.exe", true, true}, {"nested.exe", true, true},      {"expired-ts.exe", true, true},
        {"untrusted.exe", true, true},  {"trailing.exe", false, false}, {"root.crt", false, false}};
    for (const auto& [file, listed, trusted] : rows) {
        const std::string bytes = ReadFileBytes(material / file);
        const FileReport byPath = verifier.Verify(material / file);
        EXPECT_EQ(Text(byPath), Text(verifier.Verify(std::span(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size())))) << file;
        EXPECT_EQ(byPath.catalog.has_value(), listed) << file;
        EXPECT_EQ(byPath.TrustedByWindows(), trusted) << file << "\n" << Text(byPath);
    }
    EXPECT_FALSE(Verifier(TrustSources(Roots::FromPemFile(material / "root.crt"))).Verify(material / "untrusted.exe").TrustedByWindows());
}

TEST_F(AuthenticodeVerifier, TrustsOnlyTheRootsAndTimeGiven)
{
    const fs::path expired = material / "expired.exe";
    EXPECT_EQ(Verify(expired), Result::kExpired);
    // At 2020-07-01, inside the signer's validity.
    EXPECT_EQ(Verifier({Roots::FromPemFile(material / "root.crt"), {}, 1593561600}).VerifyEmbedded(expired).result, Result::kTrusted);
    EXPECT_EQ(Verifier().VerifyEmbedded(material / "signed.exe").result, Result::kChaining);

    // The same root given as PEM text, and as DER.
    const Roots pem = Roots::FromPem(ReadFileBytes(material / "root.crt"));
    std::unique_ptr<BIO, decltype(&BIO_free)> in(BIO_new_file((material / "root.crt").c_str(), "r"), &BIO_free);
    std::unique_ptr<X509, decltype(&X509_free)> root(PEM_read_bio_X509(in.get(), nullptr, nullptr, nullptr), &X509_free);
    std::vector<std::uint8_t> der(static_cast<std::size_t>(i2d_X509(root.get(), nullptr)));
    unsigned char* out = der.data();
    i2d_X509(root.get(), &out);
    Roots roots;
    roots.Add(der);
    EXPECT_THROW(roots.Add(std::span(der).first(der.size() - 1)), std::invalid_argument);
    // The same root as a version 1 certificate (no version field, no
    // extensions), re-signed with its key, behind another root in the text.
    std::unique_ptr<BIO, decltype(&BIO_free)> keyFile(BIO_new_file((material / "root.key").c_str(), "r"), &BIO_free);
    std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)> key(PEM_read_bio_PrivateKey(keyFile.get(), nullptr, nullptr, nullptr), &EVP_PKEY_free);
    while (X509_get_ext_count(root.get()) > 0) X509_EXTENSION_free(X509_delete_ext(root.get(), 0));
    ASSERT_TRUE(X509_set_version(root.get(), X509_VERSION_1) && X509_sign(root.get(), key.get(), EVP_sha256()));
    std::unique_ptr<BIO, decltype(&BIO_free)> v1(BIO_new(BIO_s_mem()), &BIO_free);
    ASSERT_TRUE(PEM_write_bio_X509(v1.get(), root.get()));
    char* text = nullptr;
    const auto length = static_cast<std::size_t>(BIO_get_mem_data(v1.get(), &text));
    const std::string v1Pem = ReadFileBytes(material / "other-root.crt") + std::string(text, length);
    for (const Roots& given : {pem, roots, Roots::FromPem(v1Pem)}) {
        EXPECT_EQ(Verifier(TrustSources(given)).VerifyEmbedded(material / "signed.exe").result, Result::kTrusted);
    }

    EXPECT_THROW(Roots::FromPemFile(material / "signed.exe"), std::runtime_error);
    EXPECT_THROW(Roots::FromPemFile(directory / "none.pem"), std::runtime_error);
}

} // namespace
