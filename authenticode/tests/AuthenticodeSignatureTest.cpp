// The signature checks on signatures osslsigncode made at test time (the
// folder KESTREL_TRUST_MATERIAL), judged against the material's test root.
#include "AuthenticodeSignature.h"

#include <gtest/gtest.h>

#include <openssl/pem.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <tuple>

using namespace Kestrel::Authenticode;
using namespace Kestrel::Authenticode::Signatures;
namespace fs = std::filesystem;

namespace {

constexpr const char* kIndirectData = "1.3.6.1.4.1.311.2.1.4";
constexpr std::time_t kInExpiredLeaf = 1593561600; // 2020-07-01, as expired.p7 claims

template <typename T>
using Ptr = std::unique_ptr<T, void (*)(T*)>;

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
    Signature Judge(const SignatureSet& set, std::size_t index, const std::vector<std::uint8_t>* fileDigest = nullptr) const
    {
        const auto claimed = set.Claimed(index);
        return set.Judge(index, kIndirectData, [&] { return claimed && (fileDigest == nullptr || claimed->value == *fileDigest); },
                         Judgement{roots.get(), std::time(nullptr)});
    }

    template <typename T>
    Ptr<T> Pem(const std::string& file, T* (*read)(BIO*, T**, pem_password_cb*, void*), void (*free)(T*)) const
    {
        const Ptr<BIO> in(BIO_new_file((material / file).c_str(), "r"), [](BIO* b) { BIO_free(b); });
        return {read(in.get(), nullptr, nullptr, nullptr), free};
    }

    // expired.p7 with a PKCS#9 countersignature at `when` by the first of
    // `carried` (material names, all added to the certificates), over its
    // signature octets with the first changed by `skew`.
    std::vector<std::uint8_t> Countersigned(std::time_t when, const std::vector<std::string>& carried = {"tsa"}, int skew = 0) const
    {
        const std::vector<std::uint8_t> der = Read("expired.p7");
        const unsigned char* cursor = der.data();
        const Ptr<PKCS7> p7(d2i_PKCS7(nullptr, &cursor, static_cast<long>(der.size())), PKCS7_free);
        for (const auto& name : carried) PKCS7_add_certificate(p7.get(), Pem(name + ".crt", PEM_read_bio_X509, X509_free).get());
        PKCS7_SIGNER_INFO* outer = sk_PKCS7_SIGNER_INFO_value(PKCS7_get_signer_info(p7.get()), 0);
        std::vector<std::uint8_t> stamped(outer->enc_digest->data, outer->enc_digest->data + outer->enc_digest->length);
        stamped[0] = static_cast<std::uint8_t>(stamped[0] ^ skew);

        const Ptr<PKCS7> stamp(PKCS7_sign(nullptr, nullptr, nullptr, nullptr, PKCS7_PARTIAL), PKCS7_free);
        PKCS7_SIGNER_INFO* countersigner = PKCS7_sign_add_signer(stamp.get(), Pem(carried[0] + ".crt", PEM_read_bio_X509, X509_free).get(),
                                                                 Pem(carried[0] + ".key", PEM_read_bio_PrivateKey, EVP_PKEY_free).get(),
                                                                 EVP_sha256(), PKCS7_NOSMIMECAP);
        PKCS7_add0_attrib_signing_time(countersigner, ASN1_TIME_set(nullptr, when));
        const Ptr<BIO> data(BIO_new_mem_buf(stamped.data(), static_cast<int>(stamped.size())), [](BIO* b) { BIO_free(b); });
        PKCS7_final(stamp.get(), data.get(), PKCS7_BINARY);
        PKCS7_add_attribute(outer, NID_pkcs9_countersignature, V_ASN1_SEQUENCE,
                            ASN1_item_pack(countersigner, ASN1_ITEM_rptr(PKCS7_SIGNER_INFO), nullptr));
        const Ptr<ASN1_STRING> bytes(ASN1_item_pack(p7.get(), ASN1_ITEM_rptr(PKCS7), nullptr), ASN1_STRING_free);
        return {bytes->data, bytes->data + bytes->length};
    }

    fs::path material;
    std::unique_ptr<X509_STORE, decltype(&X509_STORE_free)> roots{X509_STORE_new(), &X509_STORE_free};
};

TEST_F(AuthenticodeSignature, OnlyAValidCountersignatureMovesTheTime)
{
    // The bytes, the code, and the time of the timestamp reported (0: none).
    const std::tuple<std::vector<std::uint8_t>, std::uint32_t, std::time_t> rows[] = {
        {Countersigned(kInExpiredLeaf), Result::kTrusted, kInExpiredLeaf},
        {Countersigned(kInExpiredLeaf, {"expired-tsa"}), Result::kTrusted, kInExpiredLeaf},
        // Valid, but outside the signer's validity: reported, yet no help.
        {Countersigned(kInExpiredLeaf + 365 * 86400), Result::kExpired, kInExpiredLeaf + 365 * 86400},
        {Countersigned(kInExpiredLeaf, {"tsa"}, 0x01), Result::kExpired, 0},
        {Countersigned(kInExpiredLeaf, {"untrusted-tsa", "other-root"}), Result::kExpired, 0},
        // The code signer, trusted but not for timestamps, vouching for its own time.
        {Countersigned(kInExpiredLeaf, {"expired"}), Result::kExpired, 0},
    };
    for (std::size_t row = 0; row < std::size(rows); ++row) {
        const auto& [bytes, result, stamped] = rows[row];
        const Signature check = Judge(SignatureSet::Parse(bytes).value(), 0);
        EXPECT_EQ(check.result, result) << row;
        EXPECT_EQ(check.timestamp ? check.timestamp->time : 0, stamped) << row;
        EXPECT_TRUE(!check.timestamp || check.timestamp->kind == Timestamp::Kind::Countersignature) << row;
    }
    for (std::size_t i = 0; i < std::get<0>(rows[0]).size(); ++i) {
        std::vector<std::uint8_t> bytes = std::get<0>(rows[0]);
        bytes[i] = static_cast<std::uint8_t>(bytes[i] ^ 0x01);
        const auto set = SignatureSet::Parse(bytes);
        EXPECT_TRUE(!set || Judge(*set, 0).result != Result::kTrusted) << "byte " << i;
    }
}

// A changed or cut signature is the verifier's test, on every byte of a signed file.
TEST_F(AuthenticodeSignature, ZerosUpToTheNextEightBytesArePaddingAndNoMore)
{
    const std::vector<std::uint8_t> original = Read("signed.p7");
    const std::vector<std::uint8_t> digest = SignatureSet::Parse(original)->Claimed(0)->value;
    std::vector<std::uint8_t> padded = original;
    for (const std::size_t zeros : {std::size_t{7}, std::size_t{8}}) {
        padded.resize(original.size() + zeros);
        const auto set = SignatureSet::Parse(padded);
        EXPECT_EQ(set && Judge(*set, 0, &digest).result == Result::kTrusted, zeros < 8) << zeros;
    }
}

} // namespace
