// The signature checks on signatures osslsigncode made at test time (the
// folder KESTREL_TRUST_MATERIAL), judged against the material's test root.
#include "platform/emulated/AuthenticodeSignature.h"

#include <gtest/gtest.h>

#include <openssl/pem.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

using namespace Tessel::Bridge::Platform;
using namespace Tessel::Bridge::Platform::Emulated::Authenticode;
namespace fs = std::filesystem;

namespace {

constexpr const char* kIndirectData = "1.3.6.1.4.1.311.2.1.4";

class AuthenticodeSignature : public ::testing::Test {
protected:
    AuthenticodeSignature()
    {
        const char* folder = std::getenv("KESTREL_TRUST_MATERIAL");
        if (folder == nullptr) throw std::runtime_error("KESTREL_TRUST_MATERIAL is not set");
        material = folder;
        X509_STORE_load_file(roots.get(), (material / "root.crt").c_str());
    }

    std::vector<std::uint8_t> Read(const fs::path& file) const
    {
        std::ifstream in(material / file, std::ios::binary);
        return {std::istreambuf_iterator<char>(in), {}};
    }

    // Judged as if the file hashed to what signature `index` claims, or to `fileDigest`.
    SignatureCheck Judge(const SignatureSet& set, std::size_t index, const std::vector<std::uint8_t>* fileDigest = nullptr) const
    {
        const auto claimed = set.Claimed(index);
        return set.Judge(index, kIndirectData, [&] { return claimed && (fileDigest == nullptr || claimed->value == *fileDigest); },
                         Judgement{roots.get(), std::time(nullptr)});
    }

    fs::path material;
    std::unique_ptr<X509_STORE, decltype(&X509_STORE_free)> roots{X509_STORE_new(), &X509_STORE_free};
};

bool TrustedByWindows(std::uint32_t result)
{
    return result == TrustResult::kTrusted || result == TrustResult::kExpired;
}

TEST_F(AuthenticodeSignature, EachSignatureGetsWinVerifyTrustsAnswer)
{
    const std::pair<const char*, std::uint32_t> rows[] = {
        {"signed.p7", TrustResult::kTrusted},           {"expired.p7", TrustResult::kExpired},
        {"expired-ts.p7", TrustResult::kTrusted},       {"notyet.p7", TrustResult::kExpired},
        {"wrongpurpose.p7", TrustResult::kWrongUsage},  {"untrusted.p7", TrustResult::kUntrustedRoot},
    };
    for (const auto& [file, result] : rows) {
        const auto set = SignatureSet::Parse(Read(file));
        ASSERT_TRUE(set) << file;
        const SignatureCheck check = Judge(*set, 0);
        EXPECT_EQ(check.result, result) << file;
        EXPECT_EQ(check.signer.has_value(), result != TrustResult::kWrongUsage) << file;
    }

    // The leaf's subject and the key bytes of its certificate.
    const auto check = Judge(*SignatureSet::Parse(Read("signed.p7")), 0);
    ASSERT_TRUE(check.signer);
    EXPECT_EQ(check.signer->subject, L"CN=Kestrel Test leaf");
    const std::unique_ptr<BIO, decltype(&BIO_free)> pem(BIO_new_file((material / "leaf.crt").c_str(), "r"), &BIO_free);
    const std::unique_ptr<X509, decltype(&X509_free)> leaf(PEM_read_bio_X509(pem.get(), nullptr, nullptr, nullptr), &X509_free);
    const ASN1_BIT_STRING* key = X509_get0_pubkey_bitstr(leaf.get());
    EXPECT_EQ(check.signer->publicKey, std::vector<std::uint8_t>(key->data, key->data + key->length));
}

TEST_F(AuthenticodeSignature, ANestedSignatureIsTheSecondIndex)
{
    const auto set = SignatureSet::Parse(Read("nested.p7"));
    ASSERT_TRUE(set);
    EXPECT_EQ(set->Count(), 2u);
    EXPECT_EQ(set->Claimed(0)->algorithm, NID_sha1);
    EXPECT_EQ(set->Claimed(1)->algorithm, NID_sha256);
    for (std::size_t index : {0u, 1u}) {
        const SignatureCheck check = Judge(*set, index);
        EXPECT_EQ(check.result, TrustResult::kTrusted);
        EXPECT_EQ(check.secondarySignatures, 1u);
    }
    EXPECT_EQ(Judge(*set, 2).result, TrustResult::kNoIndex);
    // Each is judged on its own digest: the primary's SHA-1 fails as a SHA-256.
    const std::vector<std::uint8_t> sha256 = set->Claimed(1)->value;
    EXPECT_EQ(Judge(*set, 0, &sha256).result, TrustResult::kBadDigest);
}

TEST_F(AuthenticodeSignature, NoChangedOrCutSignatureIsTrusted)
{
    for (const char* file : {"signed.p7", "expired.p7"}) {
        const std::vector<std::uint8_t> original = Read(file);
        const std::vector<std::uint8_t> digest = SignatureSet::Parse(original)->Claimed(0)->value;
        const auto judged = [&](const std::vector<std::uint8_t>& bytes) {
            const auto set = SignatureSet::Parse(bytes);
            return set ? Judge(*set, 0, &digest).result : TrustResult::kNoSignature;
        };
        ASSERT_TRUE(TrustedByWindows(judged(original))) << file;
        for (std::size_t i = 0; i < original.size(); ++i) {
            for (const int change : {0x01, 0x80}) {
                std::vector<std::uint8_t> bytes = original;
                bytes[i] = static_cast<std::uint8_t>(bytes[i] ^ change);
                EXPECT_FALSE(TrustedByWindows(judged(bytes))) << file << " byte " << i << " ^ " << change;
            }
        }
        for (std::size_t length = 0; length < original.size(); length += 7) {
            EXPECT_FALSE(TrustedByWindows(judged({original.begin(), original.begin() + static_cast<std::ptrdiff_t>(length)})));
        }
    }
}

} // namespace
