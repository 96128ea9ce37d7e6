#include "AuthenticodeSignature.h"

#include <openssl/asn1t.h>
#include <openssl/cms.h>
#include <openssl/evp.h>
#include <openssl/objects.h>
#include <openssl/ts.h>
#include <openssl/x509v3.h>

#include <algorithm>
#include <array>

namespace Kestrel::Authenticode::Signatures {

// SpcIndirectDataContent, what an Authenticode signature signs: the kind of
// file and its digest.
struct SpcAttributeTypeAndOptionalValue {
    ASN1_OBJECT* type;
    ASN1_TYPE* value;
};
struct SpcDigestInfo {
    X509_ALGOR* digestAlgorithm;
    ASN1_OCTET_STRING* digest;
};
struct SpcIndirectDataContent {
    SpcAttributeTypeAndOptionalValue* data;
    SpcDigestInfo* messageDigest;
};

ASN1_SEQUENCE(SpcAttributeTypeAndOptionalValue) = {
    ASN1_SIMPLE(SpcAttributeTypeAndOptionalValue, type, ASN1_OBJECT),
    ASN1_OPT(SpcAttributeTypeAndOptionalValue, value, ASN1_ANY),
} ASN1_SEQUENCE_END(SpcAttributeTypeAndOptionalValue)

ASN1_SEQUENCE(SpcDigestInfo) = {
    ASN1_SIMPLE(SpcDigestInfo, digestAlgorithm, X509_ALGOR),
    ASN1_SIMPLE(SpcDigestInfo, digest, ASN1_OCTET_STRING),
} ASN1_SEQUENCE_END(SpcDigestInfo)

ASN1_SEQUENCE(SpcIndirectDataContent) = {
    ASN1_SIMPLE(SpcIndirectDataContent, data, SpcAttributeTypeAndOptionalValue),
    ASN1_SIMPLE(SpcIndirectDataContent, messageDigest, SpcDigestInfo),
} ASN1_SEQUENCE_END(SpcIndirectDataContent)

DECLARE_ASN1_FUNCTIONS(SpcIndirectDataContent)
IMPLEMENT_ASN1_FUNCTIONS(SpcIndirectDataContent)

namespace {

constexpr const char* kIndirectData = "1.3.6.1.4.1.311.2.1.4"; // SPC_INDIRECT_DATA_OBJID
constexpr const char* kNestedSignature = "1.3.6.1.4.1.311.2.4.1"; // SPC_NESTED_SIGNATURE_OBJID
constexpr const char* kRfc3161Timestamp = "1.3.6.1.4.1.311.3.3.1"; // SPC_RFC3161_OBJID
constexpr const char* kCountersignature = "1.2.840.113549.1.9.6"; // szOID_RSA_counterSign
constexpr const char* kData = "1.2.840.113549.1.7.1"; // szOID_RSA_data
constexpr const char* kTstInfo = "1.2.840.113549.1.9.16.1.4"; // id-ct-TSTInfo
constexpr std::size_t kMaxNested = 64;

template <typename T, void (*Free)(T*)>
struct Deleter {
    void operator()(T* p) const noexcept { Free(p); }
};
template <typename T, void (*Free)(T*)>
using Owned = std::unique_ptr<T, Deleter<T, Free>>;

using OwnedObject = Owned<ASN1_OBJECT, ASN1_OBJECT_free>;
using OwnedStoreContext = Owned<X509_STORE_CTX, X509_STORE_CTX_free>;
using OwnedDigestContext = Owned<EVP_MD_CTX, EVP_MD_CTX_free>;
using OwnedIndirectData = Owned<SpcIndirectDataContent, SpcIndirectDataContent_free>;
using OwnedTstInfo = Owned<TS_TST_INFO, TS_TST_INFO_free>;
using OwnedCms = Owned<CMS_ContentInfo, CMS_ContentInfo_free>;

struct CertificatesFree {
    void operator()(STACK_OF(X509)* certificates) const noexcept { sk_X509_pop_free(certificates, X509_free); }
};
using OwnedCertificates = std::unique_ptr<STACK_OF(X509), CertificatesFree>;
using OwnedSignerInfo = Owned<PKCS7_SIGNER_INFO, PKCS7_SIGNER_INFO_free>;

void FreeBytes(unsigned char* p) { OPENSSL_free(p); }
using OwnedBytes = Owned<unsigned char, FreeBytes>;

bool IsObject(const ASN1_OBJECT* object, const char* dotted)
{
    const OwnedObject expected(OBJ_txt2obj(dotted, 1));
    return object != nullptr && expected != nullptr && OBJ_cmp(object, expected.get()) == 0;
}

OwnedPkcs7 ParseWhole(std::span<const std::uint8_t> der, bool allowPadding)
{
    if (der.empty() || der.size() > static_cast<std::size_t>(INT32_MAX)) return nullptr;
    const unsigned char* cursor = der.data();
    OwnedPkcs7 p7(d2i_PKCS7(nullptr, &cursor, static_cast<long>(der.size())));
    if (p7 == nullptr) return nullptr;
    const auto rest = der.subspan(static_cast<std::size_t>(cursor - der.data()));
    // WIN_CERTIFICATE lengths round up to eight bytes; anything else after the
    // signature is not signed and is refused.
    if (!rest.empty() && !(allowPadding && rest.size() < 8 && std::all_of(rest.begin(), rest.end(), [](std::uint8_t b) { return b == 0; }))) {
        return nullptr;
    }
    if (!PKCS7_type_is_signed(p7.get()) || p7->d.sign == nullptr || p7->d.sign->contents == nullptr) return nullptr;
    return p7;
}

// The content's DER (tag and length included) for a content type other than data.
std::span<const std::uint8_t> ContentDer(const PKCS7* p7)
{
    const PKCS7* contents = p7->d.sign->contents;
    if (PKCS7_type_is_data(contents) || contents->d.other == nullptr || contents->d.other->type != V_ASN1_SEQUENCE) return {};
    const ASN1_STRING* sequence = contents->d.other->value.sequence;
    return {ASN1_STRING_get0_data(sequence), static_cast<std::size_t>(ASN1_STRING_length(sequence))};
}

PKCS7_SIGNER_INFO* OnlySigner(const PKCS7* p7)
{
    STACK_OF(PKCS7_SIGNER_INFO)* signers = p7->d.sign->signer_info;
    return sk_PKCS7_SIGNER_INFO_num(signers) == 1 ? sk_PKCS7_SIGNER_INFO_value(signers, 0) : nullptr;
}

// The values of the signer's unauthenticated attributes of this type, as DER.
std::vector<std::span<const std::uint8_t>> UnsignedValues(const PKCS7_SIGNER_INFO* signer, const char* type)
{
    std::vector<std::span<const std::uint8_t>> values;
    for (int i = 0; i < sk_X509_ATTRIBUTE_num(signer->unauth_attr); ++i) {
        X509_ATTRIBUTE* attribute = sk_X509_ATTRIBUTE_value(signer->unauth_attr, i);
        if (!IsObject(X509_ATTRIBUTE_get0_object(attribute), type)) continue;
        for (int v = 0; v < X509_ATTRIBUTE_count(attribute); ++v) {
            const ASN1_TYPE* value = X509_ATTRIBUTE_get0_type(attribute, v);
            if (value == nullptr || value->type != V_ASN1_SEQUENCE) continue;
            values.emplace_back(ASN1_STRING_get0_data(value->value.sequence), static_cast<std::size_t>(ASN1_STRING_length(value->value.sequence)));
        }
    }
    return values;
}

std::vector<std::uint8_t> Digest(const EVP_MD* md, std::span<const std::uint8_t> bytes)
{
    std::array<unsigned char, EVP_MAX_MD_SIZE> out{};
    unsigned int length = 0;
    if (md == nullptr || EVP_Digest(bytes.data(), bytes.size(), out.data(), &length, md, nullptr) != 1) return {};
    return {out.begin(), out.begin() + length};
}

bool SameBytes(const ASN1_OCTET_STRING* octets, const std::vector<std::uint8_t>& bytes)
{
    return octets != nullptr && !bytes.empty() && static_cast<std::size_t>(ASN1_STRING_length(octets)) == bytes.size() &&
           std::equal(bytes.begin(), bytes.end(), ASN1_STRING_get0_data(octets));
}

bool NoParameters(const X509_ALGOR* algorithm)
{
    const ASN1_TYPE* parameter = algorithm->parameter;
    return parameter == nullptr || parameter->type == V_ASN1_NULL;
}

// Nothing outside what a signature covers may be other than one well-formed
// reading: the version, no algorithm parameters, the signature algorithm the
// key's own and made with the signer's digest.
bool SignerWellFormed(const PKCS7_SIGNER_INFO* signer, const EVP_PKEY* key)
{
    if (ASN1_INTEGER_get(signer->version) != 1 || key == nullptr) return false;
    if (!NoParameters(signer->digest_alg) || !NoParameters(signer->digest_enc_alg)) return false;
    const int digest = OBJ_obj2nid(signer->digest_alg->algorithm);
    const int signature = OBJ_obj2nid(signer->digest_enc_alg->algorithm);
    int signatureDigest = NID_undef, keyType = NID_undef;
    if (OBJ_find_sigid_algs(signature, &signatureDigest, &keyType) != 1) keyType = signature, signatureDigest = digest;
    return keyType == EVP_PKEY_get_base_id(key) && signatureDigest == digest;
}

// The same for the SignedData around it, which must list the signer's digest
// algorithm.
bool WellFormed(const PKCS7* p7, const PKCS7_SIGNER_INFO* signer, const EVP_PKEY* key)
{
    if (ASN1_INTEGER_get(p7->d.sign->version) != 1 || !SignerWellFormed(signer, key)) return false;
    bool listed = false;
    for (int i = 0; i < sk_X509_ALGOR_num(p7->d.sign->md_algs); ++i) {
        const X509_ALGOR* algorithm = sk_X509_ALGOR_value(p7->d.sign->md_algs, i);
        if (!NoParameters(algorithm)) return false;
        listed |= OBJ_cmp(algorithm->algorithm, signer->digest_alg->algorithm) == 0;
    }
    return listed;
}

// The signer's signature over its authenticated attributes, which must name
// the content type and carry the digest of `content`.
bool SignsAttributes(PKCS7_SIGNER_INFO* signer, EVP_PKEY* key, const char* contentType, std::span<const std::uint8_t> content)
{
    if (sk_X509_ATTRIBUTE_num(signer->auth_attr) <= 0) return false;
    const ASN1_TYPE* type = PKCS7_get_signed_attribute(signer, NID_pkcs9_contentType);
    if (type == nullptr || type->type != V_ASN1_OBJECT || !IsObject(type->value.object, contentType)) return false;
    const EVP_MD* md = EVP_get_digestbyobj(signer->digest_alg->algorithm);
    if (!SameBytes(PKCS7_digest_from_attributes(signer->auth_attr), Digest(md, content))) return false;

    unsigned char* encoded = nullptr;
    const int length = ASN1_item_i2d(reinterpret_cast<ASN1_VALUE*>(signer->auth_attr), &encoded, ASN1_ITEM_rptr(PKCS7_ATTR_VERIFY));
    const OwnedBytes attributes(encoded);
    const OwnedDigestContext context(EVP_MD_CTX_new());
    return length > 0 && context != nullptr && EVP_DigestVerifyInit(context.get(), nullptr, md, nullptr, key) == 1 &&
           EVP_DigestVerify(context.get(), signer->enc_digest->data, static_cast<std::size_t>(signer->enc_digest->length), attributes.get(),
                            static_cast<std::size_t>(length)) == 1;
}

std::uint32_t CheckSignerSignature(const PKCS7* p7, PKCS7_SIGNER_INFO* signer, X509* certificate, const char* contentType,
                                   std::span<const std::uint8_t> content)
{
    EVP_PKEY* key = X509_get0_pubkey(certificate);
    return WellFormed(p7, signer, key) && SignsAttributes(signer, key, contentType, content) ? Result::kTrusted
                                                                                             : Result::kBadSignature;
}

// A trusted root may issue certificates without saying so: roots from before
// basic constraints were required (Microsoft's 1997 roots carry no extension
// at all) are CAs to Windows' chain engine. Only a basic constraints
// extension that says "not a CA", or a key usage without certificate
// signing, stops a root; a certificate below the root must still say it is a CA.
int AcceptLegacyRoot(int ok, X509_STORE_CTX* context)
{
    if (ok == 0 && X509_STORE_CTX_get_error(context) == X509_V_ERR_INVALID_CA) {
        X509* certificate = X509_STORE_CTX_get_current_cert(context);
        const bool top = X509_STORE_CTX_get_error_depth(context) + 1 == sk_X509_num(X509_STORE_CTX_get0_chain(context));
        const std::uint32_t flags = certificate == nullptr ? EXFLAG_BCONS : X509_get_extension_flags(certificate);
        const bool mayIssue = (flags & EXFLAG_KUSAGE) == 0 || (X509_get_key_usage(certificate) & KU_KEY_CERT_SIGN) != 0;
        if (top && (flags & EXFLAG_SS) != 0 && (flags & EXFLAG_BCONS) == 0 && mayIssue) {
            X509_STORE_CTX_set_error(context, X509_V_OK);
            return 1;
        }
    }
    return ok;
}

// Builds the chain to a trusted root; at a time, or with no time check.
// `usable` tells whether every certificate on it that limits its uses allows
// `use` (an XKU_ flag), as the Windows chain engine intersects them.
int VerifyChain(X509* leaf, STACK_OF(X509)* others, X509_STORE* roots, std::optional<std::time_t> at, std::uint32_t use, bool& usable)
{
    const OwnedStoreContext context(X509_STORE_CTX_new());
    if (context == nullptr || roots == nullptr || X509_STORE_CTX_init(context.get(), roots, leaf, others) != 1) return X509_V_ERR_UNSPECIFIED;
    X509_VERIFY_PARAM* parameters = X509_STORE_CTX_get0_param(context.get());
    // Windows still takes SHA-1 (and, in roots, MD5) for code signing chains.
    X509_VERIFY_PARAM_set_auth_level(parameters, 0);
    X509_STORE_CTX_set_verify_cb(context.get(), AcceptLegacyRoot);
    if (at) {
        X509_VERIFY_PARAM_set_time(parameters, *at);
    } else {
        X509_VERIFY_PARAM_set_flags(parameters, X509_V_FLAG_NO_CHECK_TIME);
    }
    const int verified = X509_verify_cert(context.get());
    const int error = verified == 1 ? X509_V_OK : X509_STORE_CTX_get_error(context.get());
    usable = true;
    STACK_OF(X509)* chain = X509_STORE_CTX_get0_chain(context.get());
    for (int i = 0; i < sk_X509_num(chain); ++i) {
        X509* certificate = sk_X509_value(chain, i);
        if ((X509_get_extension_flags(certificate) & EXFLAG_XKUSAGE) != 0 && (X509_get_extended_key_usage(certificate) & use) == 0) {
            usable = false;
        }
    }
    return error == X509_V_OK && verified != 1 ? X509_V_ERR_UNSPECIFIED : error;
}

std::uint32_t ChainResult(int error)
{
    switch (error) {
    case X509_V_OK: return Result::kTrusted;
    case X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT:
    case X509_V_ERR_SELF_SIGNED_CERT_IN_CHAIN:
    case X509_V_ERR_CERT_UNTRUSTED: return Result::kUntrustedRoot;
    case X509_V_ERR_CERT_SIGNATURE_FAILURE:
    case X509_V_ERR_UNABLE_TO_DECRYPT_CERT_SIGNATURE: return Result::kBadSignature;
    case X509_V_ERR_CERT_HAS_EXPIRED:
    case X509_V_ERR_CERT_NOT_YET_VALID: return Result::kExpired;
    default: return Result::kChaining;
    }
}

// A UTCTime or GeneralizedTime as seconds since 1970; OpenSSL also reads the
// fraction of a second that Microsoft's timestamping service sends.
std::optional<std::time_t> SecondsOf(const ASN1_TIME* time)
{
    std::tm fields{};
    if (time == nullptr || ASN1_TIME_to_tm(time, &fields) != 1) return std::nullopt;
    return timegm(&fields);
}

// The time of a valid RFC 3161 timestamp over the signer's signature octets:
// a SignedData over a TSTInfo whose imprint is their digest, signed by a
// certificate it carries. As for countersignatures, that certificate must
// chain to the trusted roots at genTime and be allowed to timestamp. Read as
// CMS: Microsoft's service sends an attribute certificate along, which
// PKCS #7 has no place for.
std::optional<std::time_t> TimestampTime(const PKCS7_SIGNER_INFO* signer, X509_STORE* roots)
{
    const std::span<const std::uint8_t> signature(signer->enc_digest->data, static_cast<std::size_t>(signer->enc_digest->length));
    for (const auto value : UnsignedValues(signer, kRfc3161Timestamp)) {
        const unsigned char* cursor = value.data();
        const OwnedCms token(d2i_CMS_ContentInfo(nullptr, &cursor, static_cast<long>(value.size())));
        if (token == nullptr || cursor != value.data() + value.size() || OBJ_obj2nid(CMS_get0_type(token.get())) != NID_pkcs7_signed ||
            !IsObject(CMS_get0_eContentType(token.get()), kTstInfo)) {
            continue;
        }
        ASN1_OCTET_STRING** content = CMS_get0_content(token.get());
        STACK_OF(CMS_SignerInfo)* signers = CMS_get0_SignerInfos(token.get());
        if (content == nullptr || *content == nullptr || sk_CMS_SignerInfo_num(signers) != 1) continue;
        CMS_SignerInfo* stamper = sk_CMS_SignerInfo_value(signers, 0);
        const std::span<const std::uint8_t> info(ASN1_STRING_get0_data(*content), static_cast<std::size_t>(ASN1_STRING_length(*content)));

        const OwnedCertificates certificates(CMS_get1_certs(token.get()));
        X509* certificate = nullptr;
        for (int i = 0; certificate == nullptr && i < sk_X509_num(certificates.get()); ++i) {
            if (CMS_SignerInfo_cert_cmp(stamper, sk_X509_value(certificates.get(), i)) == 0) certificate = sk_X509_value(certificates.get(), i);
        }
        X509_ALGOR* digestAlgorithm = nullptr;
        CMS_SignerInfo_get0_algs(stamper, nullptr, nullptr, &digestAlgorithm, nullptr);
        const auto* type = static_cast<const ASN1_OBJECT*>(CMS_signed_get0_data_by_OBJ(stamper, OBJ_nid2obj(NID_pkcs9_contentType), -3, V_ASN1_OBJECT));
        const auto* digest =
            static_cast<const ASN1_OCTET_STRING*>(CMS_signed_get0_data_by_OBJ(stamper, OBJ_nid2obj(NID_pkcs9_messageDigest), -3, V_ASN1_OCTET_STRING));
        if (certificate == nullptr || digestAlgorithm == nullptr || !IsObject(type, kTstInfo) ||
            !SameBytes(digest, Digest(EVP_get_digestbyobj(digestAlgorithm->algorithm), info))) {
            continue;
        }
        CMS_SignerInfo_set1_signer_cert(stamper, certificate);
        if (CMS_SignerInfo_verify(stamper) != 1) continue;

        const unsigned char* infoCursor = info.data();
        const OwnedTstInfo tst(d2i_TS_TST_INFO(nullptr, &infoCursor, static_cast<long>(info.size())));
        if (tst == nullptr || infoCursor != info.data() + info.size() || TS_TST_INFO_get_version(tst.get()) != 1) continue;
        TS_MSG_IMPRINT* imprint = TS_TST_INFO_get_msg_imprint(tst.get());
        const EVP_MD* md = EVP_get_digestbyobj(TS_MSG_IMPRINT_get_algo(imprint)->algorithm);
        if (!SameBytes(TS_MSG_IMPRINT_get_msg(imprint), Digest(md, signature))) continue;
        const std::optional<std::time_t> at = SecondsOf(TS_TST_INFO_get_time(tst.get()));
        bool timestamping = false;
        if (at && VerifyChain(certificate, certificates.get(), roots, *at, XKU_TIMESTAMP, timestamping) == X509_V_OK && timestamping) return at;
    }
    return std::nullopt;
}

// The time of a valid Authenticode timestamp: a PKCS#9 countersignature over
// the signer's signature octets whose authenticated attributes are
// contentType (data), signingTime and messageDigest, by a certificate the
// SignedData carries. That certificate must chain to the trusted roots at its
// signingTime (an expired timestamping certificate does not end the
// timestamps it made), and every certificate on the chain that limits its
// uses must allow timeStamping (1.3.6.1.5.5.7.3.8): otherwise any trusted
// signer, the code signer itself among them, could vouch for a backdated time.
std::optional<std::time_t> CountersignatureTime(const PKCS7* p7, const PKCS7_SIGNER_INFO* signer, X509_STORE* roots)
{
    const std::span<const std::uint8_t> signature(signer->enc_digest->data, static_cast<std::size_t>(signer->enc_digest->length));
    for (const auto value : UnsignedValues(signer, kCountersignature)) {
        const unsigned char* cursor = value.data();
        const OwnedSignerInfo countersigner(d2i_PKCS7_SIGNER_INFO(nullptr, &cursor, static_cast<long>(value.size())));
        if (countersigner == nullptr || cursor != value.data() + value.size()) continue;
        X509* certificate = X509_find_by_issuer_and_serial(p7->d.sign->cert, countersigner->issuer_and_serial->issuer,
                                                           countersigner->issuer_and_serial->serial);
        EVP_PKEY* key = certificate == nullptr ? nullptr : X509_get0_pubkey(certificate);
        if (!SignerWellFormed(countersigner.get(), key) || !SignsAttributes(countersigner.get(), key, kData, signature)) continue;
        const ASN1_TYPE* signingTime = PKCS7_get_signed_attribute(countersigner.get(), NID_pkcs9_signingTime);
        const bool isTime = signingTime != nullptr && (signingTime->type == V_ASN1_UTCTIME || signingTime->type == V_ASN1_GENERALIZEDTIME);
        const std::optional<std::time_t> at = isTime ? SecondsOf(signingTime->value.utctime) : std::nullopt;
        bool timestamping = false;
        if (at && VerifyChain(certificate, p7->d.sign->cert, roots, *at, XKU_TIMESTAMP, timestamping) == X509_V_OK && timestamping) return at;
    }
    return std::nullopt;
}

// The valid timestamp a signer carries: an RFC 3161 token first, as
// Windows prefers it, else a countersignature.
std::optional<Timestamp> ValidTimestamp(const PKCS7* p7, const PKCS7_SIGNER_INFO* signer, X509_STORE* roots)
{
    if (const auto at = TimestampTime(signer, roots)) return Timestamp{Timestamp::Kind::Rfc3161, *at};
    if (const auto at = CountersignatureTime(p7, signer, roots)) return Timestamp{Timestamp::Kind::Countersignature, *at};
    return std::nullopt;
}

// The name WinTrust's callers show for a digest algorithm, else its dotted OID.
std::string DigestName(const ASN1_OBJECT* algorithm)
{
    switch (OBJ_obj2nid(algorithm)) {
    case NID_md5: return "md5";
    case NID_sha1: return "sha1";
    case NID_sha256: return "sha256";
    case NID_sha384: return "sha384";
    case NID_sha512: return "sha512";
    default: break;
    }
    std::array<char, 128> dotted{};
    const int length = OBJ_obj2txt(dotted.data(), static_cast<int>(dotted.size()), algorithm, 1);
    return length > 0 && static_cast<std::size_t>(length) < dotted.size() ? std::string(dotted.data()) : std::string();
}

} // namespace

std::optional<SignatureSet> SignatureSet::Parse(std::span<const std::uint8_t> der)
{
    SignatureSet set;
    OwnedPkcs7 primary = ParseWhole(der, true);
    if (primary == nullptr) return std::nullopt;
    if (const PKCS7_SIGNER_INFO* signer = OnlySigner(primary.get())) {
        for (const auto value : UnsignedValues(signer, kNestedSignature)) {
            OwnedPkcs7 nested = ParseWhole(value, false);
            // A nested signature that cannot be read still counts: it is judged
            // untrusted by its index rather than silently dropped.
            if (set.signatures_.size() >= kMaxNested) break;
            set.signatures_.push_back(std::move(nested));
        }
    }
    set.signatures_.insert(set.signatures_.begin(), std::move(primary));
    return set;
}

std::span<const std::uint8_t> SignatureSet::SignedContent(std::size_t index) const
{
    if (index >= signatures_.size() || signatures_[index] == nullptr) return {};
    const auto der = ContentDer(signatures_[index].get());
    const unsigned char* cursor = der.data();
    long length = 0;
    int tag = 0, tagClass = 0;
    if (der.empty() || (ASN1_get_object(&cursor, &length, &tag, &tagClass, static_cast<long>(der.size())) & 0x80) != 0 ||
        tag != V_ASN1_SEQUENCE) {
        return {};
    }
    const auto header = static_cast<std::size_t>(cursor - der.data());
    if (static_cast<std::size_t>(length) != der.size() - header) return {};
    return der.subspan(header);
}

std::optional<ClaimedDigest> SignatureSet::Claimed(std::size_t index) const
{
    if (index >= signatures_.size() || signatures_[index] == nullptr) return std::nullopt;
    const auto der = ContentDer(signatures_[index].get());
    if (der.empty() || !IsObject(signatures_[index]->d.sign->contents->type, kIndirectData)) return std::nullopt;
    const unsigned char* cursor = der.data();
    const OwnedIndirectData content(d2i_SpcIndirectDataContent(nullptr, &cursor, static_cast<long>(der.size())));
    if (content == nullptr || cursor != der.data() + der.size()) return std::nullopt;
    const ASN1_OCTET_STRING* digest = content->messageDigest->digest;
    return ClaimedDigest{OBJ_obj2nid(content->messageDigest->digestAlgorithm->algorithm),
                         {ASN1_STRING_get0_data(digest), ASN1_STRING_get0_data(digest) + ASN1_STRING_length(digest)}};
}

Signature SignatureSet::Judge(std::size_t index, const char* contentType, const std::function<bool()>& contentMatches,
                                   const Judgement& judgement) const
{
    Signature check;
    check.secondarySignatures = static_cast<std::uint32_t>(signatures_.size() - 1);
    if (index >= signatures_.size()) {
        check.result = Result::kNoIndex;
        return check;
    }
    PKCS7* p7 = signatures_[index].get();
    PKCS7_SIGNER_INFO* signer = p7 == nullptr ? nullptr : OnlySigner(p7);
    if (signer != nullptr) check.digestAlgorithm = DigestName(signer->digest_alg->algorithm);
    const auto content = SignedContent(index);
    if (signer == nullptr || content.empty() || !IsObject(p7->d.sign->contents->type, contentType)) {
        check.result = Result::kBadSignature;
        return check;
    }
    if (!contentMatches()) {
        check.result = Result::kBadDigest;
        return check;
    }
    X509* certificate = X509_find_by_issuer_and_serial(p7->d.sign->cert, signer->issuer_and_serial->issuer, signer->issuer_and_serial->serial);
    if (certificate == nullptr) {
        check.result = Result::kBadSignature;
        return check;
    }
    if (const std::uint32_t signature = CheckSignerSignature(p7, signer, certificate, contentType, content); signature != 0) {
        check.result = signature;
        return check;
    }

    const std::optional<Timestamp> timestamp = ValidTimestamp(p7, signer, judgement.roots);
    bool codeSigning = true;
    check.result = ChainResult(VerifyChain(certificate, p7->d.sign->cert, judgement.roots, std::nullopt, XKU_CODE_SIGN, codeSigning));
    if (check.result == Result::kTrusted && !codeSigning) check.result = Result::kWrongUsage;
    if (check.result == Result::kTrusted) {
        check.result = ChainResult(VerifyChain(certificate, p7->d.sign->cert, judgement.roots, judgement.now, XKU_CODE_SIGN, codeSigning));
        if (check.result == Result::kExpired) {
            // A timestamp inside every certificate's validity keeps the signature good.
            if (timestamp &&
                VerifyChain(certificate, p7->d.sign->cert, judgement.roots, timestamp->time, XKU_CODE_SIGN, codeSigning) == X509_V_OK) {
                check.result = Result::kTrusted;
            }
        }
        if (check.result != Result::kTrusted && check.result != Result::kExpired) check.result = Result::kChaining;
    }
    if (check.result == Result::kTrusted || check.result == Result::kExpired || check.result == Result::kUntrustedRoot) {
        const ASN1_BIT_STRING* key = X509_get0_pubkey_bitstr(certificate);
        Signer found{SubjectText(X509_get_subject_name(certificate)), {}};
        if (key != nullptr) found.publicKey.assign(key->data, key->data + key->length);
        check.signer = std::move(found);
        check.timestamp = timestamp;
    }
    return check;
}

std::string SubjectText(const X509_NAME* name)
{
    struct Key {
        int nid;
        const char* text;
    };
    static constexpr Key kKeys[] = {
        {NID_commonName, "CN"}, {NID_localityName, "L"}, {NID_organizationName, "O"}, {NID_organizationalUnitName, "OU"},
        {NID_pkcs9_emailAddress, "E"}, {NID_countryName, "C"}, {NID_stateOrProvinceName, "S"}, {NID_streetAddress, "STREET"},
        {NID_title, "T"}, {NID_givenName, "G"}, {NID_initials, "I"}, {NID_surname, "SN"}, {NID_domainComponent, "DC"},
        {NID_serialNumber, "SERIALNUMBER"},
    };
    std::string text;
    int set = -1;
    for (int i = 0; i < X509_NAME_entry_count(name); ++i) {
        const X509_NAME_ENTRY* entry = X509_NAME_get_entry(name, i);
        // Parts of one multi-valued name join with " + ", names with CR LF.
        if (i > 0) text += X509_NAME_ENTRY_set(entry) == set ? " + " : "\r\n";
        set = X509_NAME_ENTRY_set(entry);
        const ASN1_OBJECT* object = X509_NAME_ENTRY_get_object(entry);
        const int nid = OBJ_obj2nid(object);
        const auto key = std::find_if(std::begin(kKeys), std::end(kKeys), [nid](const Key& k) { return k.nid == nid; });
        if (key != std::end(kKeys)) {
            text += key->text;
        } else {
            std::array<char, 128> dotted{};
            OBJ_obj2txt(dotted.data(), static_cast<int>(dotted.size()), object, 1);
            text += "OID.";
            text += dotted.data();
        }
        text += '=';
        unsigned char* value = nullptr;
        const int length = ASN1_STRING_to_UTF8(&value, X509_NAME_ENTRY_get_data(entry));
        const OwnedBytes owned(value);
        if (length > 0) text.append(reinterpret_cast<const char*>(value), static_cast<std::size_t>(length));
    }
    return text;
}

} // namespace Kestrel::Authenticode::Signatures
