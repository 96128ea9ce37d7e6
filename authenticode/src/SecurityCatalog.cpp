// Reading security catalogs: the SignedData around the CTL, the CTL itself
// and its member tags.
//
// Sources: Microsoft's CTL_INFO, CTL_ENTRY, CRYPTCATMEMBER and mscat.h OID
// pages for the structures and OIDs; PKCS #7 v1.5 (RFC 2315, section 9.3) for
// what a signer's message digest covers.
#include "SecurityCatalog.h"

#include "Hex.h"

#include <openssl/asn1t.h>
#include <openssl/err.h>
#include <openssl/objects.h>

#include <algorithm>
#include <array>
#include <cstring>

namespace Kestrel::Authenticode::Catalog {

ASN1_SEQUENCE(TrustedSubject) = {
    ASN1_SIMPLE(TrustedSubject, subjectIdentifier, ASN1_OCTET_STRING),
    ASN1_SET_OF_OPT(TrustedSubject, subjectAttributes, X509_ATTRIBUTE),
} ASN1_SEQUENCE_END(TrustedSubject)

ASN1_SEQUENCE(CertificateTrustList) = {
    ASN1_OPT(CertificateTrustList, version, ASN1_INTEGER),
    ASN1_SEQUENCE_OF(CertificateTrustList, subjectUsage, ASN1_OBJECT),
    ASN1_OPT(CertificateTrustList, listIdentifier, ASN1_OCTET_STRING),
    ASN1_OPT(CertificateTrustList, sequenceNumber, ASN1_INTEGER),
    ASN1_SIMPLE(CertificateTrustList, thisUpdate, ASN1_TIME),
    ASN1_OPT(CertificateTrustList, nextUpdate, ASN1_TIME),
    ASN1_SIMPLE(CertificateTrustList, subjectAlgorithm, X509_ALGOR),
    ASN1_SEQUENCE_OF_OPT(CertificateTrustList, trustedSubjects, TrustedSubject),
    ASN1_EXP_SEQUENCE_OF_OPT(CertificateTrustList, ctlExtensions, X509_EXTENSION, 0),
} ASN1_SEQUENCE_END(CertificateTrustList)

IMPLEMENT_ASN1_FUNCTIONS(TrustedSubject)
IMPLEMENT_ASN1_FUNCTIONS(CertificateTrustList)

namespace {

// Far above any real catalog (the largest Windows ships are tens of MB), and
// small enough that every length fits OpenSSL's int and long.
constexpr std::size_t kMaxCatalogBytes = 256u << 20;
// The longest digest a member may be named by (SHA-512).
constexpr int kMaxBinaryTagBytes = 64;

wchar_t AsciiUpper(wchar_t ch)
{
    return ch >= L'a' && ch <= L'z' ? static_cast<wchar_t>(ch - L'a' + L'A') : ch;
}

std::wstring Upper(std::wstring_view text)
{
    std::wstring upper(text);
    std::transform(upper.begin(), upper.end(), upper.begin(), AsciiUpper);
    return upper;
}

bool IsOid(const ASN1_OBJECT* object, const char* dotted)
{
    if (object == nullptr) return false;
    std::array<char, 128> text{};
    const int length = OBJ_obj2txt(text.data(), static_cast<int>(text.size()), object, 1);
    return length > 0 && static_cast<std::size_t>(length) < text.size() && std::strcmp(text.data(), dotted) == 0;
}

// The identifier holds the member's reference tag (CRYPTCATMEMBER's
// pwszReferenceTag; for a hashed member the hash in hexadecimal) as UTF-16LE
// text, its terminating zero kept or not. Each 16-bit unit becomes one
// wchar_t, as on Windows. An odd length, or a zero inside the text, is not a tag.
std::optional<std::wstring> MemberTag(const ASN1_OCTET_STRING* identifier)
{
    if (identifier == nullptr || identifier->length <= 0 || identifier->length % 2 != 0) return std::nullopt;
    const auto* bytes = identifier->data;
    const auto units = static_cast<std::size_t>(identifier->length) / 2;
    std::wstring tag;
    tag.reserve(units);
    for (std::size_t i = 0; i < units; ++i) {
        const auto unit = static_cast<std::uint16_t>(bytes[2 * i] | (bytes[2 * i + 1] << 8));
        if (unit == 0) {
            if (i + 1 != units) return std::nullopt;
            break;
        }
        tag.push_back(AsciiUpper(static_cast<wchar_t>(unit)));
    }
    if (tag.empty()) return std::nullopt;
    return tag;
}

// In the newer member format (CATALOG_LIST_MEMBER2) the identifier is the
// member's hash itself, as bytes; its tag is that hash in hexadecimal.
std::optional<std::wstring> BinaryMemberTag(const ASN1_OCTET_STRING* identifier)
{
    if (identifier == nullptr || identifier->length <= 0 || identifier->length > kMaxBinaryTagBytes) return std::nullopt;
    const std::string hex = HexDigits(std::span<const std::uint8_t>(identifier->data, static_cast<std::size_t>(identifier->length)));
    return std::wstring(hex.begin(), hex.end());
}

// The contents octets of a definite-length DER SEQUENCE that fills `bytes`.
std::optional<std::span<const std::uint8_t>> SequenceContents(std::span<const std::uint8_t> bytes)
{
    const unsigned char* at = bytes.data();
    long length = 0;
    int tag = 0;
    int tagClass = 0;
    const int info = ASN1_get_object(&at, &length, &tag, &tagClass, static_cast<long>(bytes.size()));
    // 0x80: bad or overlong; 0x01: indefinite length, which DER forbids.
    if ((info & 0x80) != 0 || (info & 0x01) != 0 || (info & V_ASN1_CONSTRUCTED) == 0) return std::nullopt;
    if (tag != V_ASN1_SEQUENCE || tagClass != V_ASN1_UNIVERSAL || length < 0) return std::nullopt;
    const auto header = static_cast<std::size_t>(at - bytes.data());
    if (header + static_cast<std::size_t>(length) != bytes.size()) return std::nullopt;
    return bytes.subspan(header);
}

enum class MemberFormat { kText, kBinary };

// Catalogs, and not other CTLs (the root list, for one), use these: the
// catalog usage, and a member algorithm that says how members are named.
std::optional<MemberFormat> CatalogMemberFormat(const CertificateTrustList& list)
{
    bool catalogUsage = false;
    for (int i = 0; i < sk_ASN1_OBJECT_num(list.subjectUsage); ++i) {
        catalogUsage = catalogUsage || IsOid(sk_ASN1_OBJECT_value(list.subjectUsage, i), kCatalogListOid);
    }
    const ASN1_OBJECT* algorithm = list.subjectAlgorithm != nullptr ? list.subjectAlgorithm->algorithm : nullptr;
    if (!catalogUsage) return std::nullopt;
    if (IsOid(algorithm, kCatalogMemberOid)) return MemberFormat::kText;
    if (IsOid(algorithm, kCatalogMember2Oid)) return MemberFormat::kBinary;
    return std::nullopt;
}

std::optional<SecurityCatalog> Read(std::span<const std::uint8_t> der)
{
    if (der.empty() || der.size() > kMaxCatalogBytes) return std::nullopt;
    const unsigned char* at = der.data();
    OwnedPkcs7 signedData(d2i_PKCS7(nullptr, &at, static_cast<long>(der.size())));
    if (!signedData || at != der.data() + der.size()) return std::nullopt;
    if (!PKCS7_type_is_signed(signedData.get()) || signedData->d.sign == nullptr) return std::nullopt;
    const PKCS7* content = signedData->d.sign->contents;
    if (content == nullptr || !IsOid(content->type, kCtlOid)) return std::nullopt;

    // Content of a type OpenSSL does not know is kept as ANY: for a SEQUENCE,
    // its whole encoding, tag and length included.
    const ASN1_TYPE* any = content->d.other;
    if (any == nullptr || any->type != V_ASN1_SEQUENCE || any->value.sequence == nullptr) return std::nullopt;
    const ASN1_STRING* encoded = any->value.sequence;
    if (encoded->data == nullptr || encoded->length <= 0) return std::nullopt;
    const std::span<const std::uint8_t> listDer(encoded->data, static_cast<std::size_t>(encoded->length));
    const auto signedContent = SequenceContents(listDer);
    if (!signedContent) return std::nullopt;

    const unsigned char* listAt = listDer.data();
    const OwnedTrustList list(d2i_CertificateTrustList(nullptr, &listAt, static_cast<long>(listDer.size())));
    const auto format = list ? CatalogMemberFormat(*list) : std::nullopt;
    if (!format || listAt != listDer.data() + listDer.size()) return std::nullopt;

    SecurityCatalog catalog;
    const int members = sk_TrustedSubject_num(list->trustedSubjects);
    catalog.memberTags.reserve(static_cast<std::size_t>(std::max(members, 0)));
    for (int i = 0; i < members; ++i) {
        const TrustedSubject* subject = sk_TrustedSubject_value(list->trustedSubjects, i);
        const ASN1_OCTET_STRING* identifier = subject != nullptr ? subject->subjectIdentifier : nullptr;
        auto tag = *format == MemberFormat::kText ? MemberTag(identifier) : BinaryMemberTag(identifier);
        if (!tag) return std::nullopt;
        catalog.memberTags.push_back(std::move(*tag));
    }
    std::sort(catalog.memberTags.begin(), catalog.memberTags.end());
    catalog.memberTags.erase(std::unique(catalog.memberTags.begin(), catalog.memberTags.end()), catalog.memberTags.end());
    catalog.signedContent.assign(signedContent->begin(), signedContent->end());
    catalog.signedData = std::move(signedData);
    return catalog;
}

} // namespace

std::optional<SecurityCatalog> ReadCatalog(std::span<const std::uint8_t> der)
{
    std::optional<SecurityCatalog> catalog;
    try {
        catalog = Read(der);
    } catch (...) {
        catalog.reset();
    }
    // What OpenSSL queued while refusing the file is of no use to the caller.
    if (!catalog) ERR_clear_error();
    return catalog;
}

bool Lists(const SecurityCatalog& catalog, std::wstring_view upperHexTag)
{
    const std::wstring tag = Upper(upperHexTag);
    return !tag.empty() && std::binary_search(catalog.memberTags.begin(), catalog.memberTags.end(), tag);
}

} // namespace Kestrel::Authenticode::Catalog
