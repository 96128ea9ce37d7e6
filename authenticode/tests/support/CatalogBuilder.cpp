// Signed catalogs for tests, written with the same OpenSSL ASN.1 items the
// reader uses and signed with OpenSSL's PKCS#7 functions.
#include "support/CatalogBuilder.h"

#include "SecurityCatalog.h"

#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/objects.h>
#include <openssl/pem.h>
#include <openssl/pkcs7.h>

#include <ctime>
#include <fstream>
#include <stdexcept>

namespace KestrelTest {

namespace Catalog = Kestrel::Authenticode::Catalog;

namespace {

void Check(bool succeeded, const char* what)
{
    if (!succeeded) {
        ERR_clear_error();
        throw std::runtime_error(std::string("CatalogBuilder: ") + what);
    }
}

struct BioFree {
    void operator()(BIO* p) const noexcept { BIO_free(p); }
};
struct ObjectFree {
    void operator()(ASN1_OBJECT* p) const noexcept { ASN1_OBJECT_free(p); }
};
struct StringFree {
    void operator()(ASN1_STRING* p) const noexcept { ASN1_STRING_free(p); }
};
struct TypeFree {
    void operator()(ASN1_TYPE* p) const noexcept { ASN1_TYPE_free(p); }
};
struct SubjectFree {
    void operator()(Catalog::TrustedSubject* p) const noexcept { Catalog::TrustedSubject_free(p); }
};
using OwnedObject = std::unique_ptr<ASN1_OBJECT, ObjectFree>;
using OwnedString = std::unique_ptr<ASN1_STRING, StringFree>;

OwnedObject Oid(const char* dotted)
{
    OwnedObject object(OBJ_txt2obj(dotted, 1));
    Check(object != nullptr, "OID");
    return object;
}

OwnedString OctetString(std::span<const std::uint8_t> bytes)
{
    OwnedString string(ASN1_OCTET_STRING_new());
    Check(string && ASN1_OCTET_STRING_set(string.get(), bytes.data(), static_cast<int>(bytes.size())) == 1,
          "OCTET STRING");
    return string;
}

// i2d into a vector, for any type with an OpenSSL i2d function.
template <typename T, typename Encode>
std::vector<std::uint8_t> Der(const T* value, Encode encode)
{
    const int length = encode(value, nullptr);
    Check(length > 0, "encoding");
    std::vector<std::uint8_t> der(static_cast<std::size_t>(length));
    unsigned char* out = der.data();
    Check(encode(value, &out) == length, "encoding");
    return der;
}

std::vector<std::uint8_t> Utf16LeWithZero(const std::wstring& text)
{
    std::vector<std::uint8_t> bytes;
    for (const wchar_t ch : text) {
        bytes.push_back(static_cast<std::uint8_t>(ch & 0xFF));
        bytes.push_back(static_cast<std::uint8_t>((ch >> 8) & 0xFF));
    }
    bytes.insert(bytes.end(), {0, 0});
    return bytes;
}

// The contents octets of a DER value: what a SignedData's digest covers.
std::span<const std::uint8_t> Contents(std::span<const std::uint8_t> der)
{
    const unsigned char* at = der.data();
    long length = 0;
    int tag = 0;
    int tagClass = 0;
    Check((ASN1_get_object(&at, &length, &tag, &tagClass, static_cast<long>(der.size())) & 0x81) == 0, "content DER");
    return {at, static_cast<std::size_t>(length)};
}

OwnedX509 ReadCertificate(BIO* bio)
{
    return OwnedX509(PEM_read_bio_X509(bio, nullptr, nullptr, nullptr));
}

std::unique_ptr<BIO, BioFree> OpenPem(const std::filesystem::path& path)
{
    std::unique_ptr<BIO, BioFree> bio(BIO_new_file(path.c_str(), "r"));
    Check(bio != nullptr, "opening a PEM file");
    return bio;
}

} // namespace

CatalogSigner SignerFromPem(const std::filesystem::path& certificatePem, const std::filesystem::path& keyPem,
                            const std::filesystem::path& chainPem)
{
    CatalogSigner signer;
    signer.certificate = ReadCertificate(OpenPem(certificatePem).get());
    signer.key.reset(PEM_read_bio_PrivateKey(OpenPem(keyPem).get(), nullptr, nullptr, nullptr));
    Check(signer.certificate && signer.key, "reading the signer");
    if (!chainPem.empty()) {
        const auto bio = OpenPem(chainPem);
        while (OwnedX509 next = ReadCertificate(bio.get())) signer.chain.push_back(std::move(next));
        ERR_clear_error(); // the end of the file reads as an error
    }
    return signer;
}

std::vector<std::uint8_t> CatalogListDer(const std::vector<std::wstring>& tags, MemberFormat format)
{
    const Catalog::OwnedTrustList list(Catalog::CertificateTrustList_new());
    Check(list != nullptr, "new CTL");
    OwnedObject usage = Oid(Catalog::kCatalogListOid);
    Check(sk_ASN1_OBJECT_push(list->subjectUsage, usage.get()) > 0, "subject usage");
    usage.release();
    const std::uint8_t listId[16] = {0x4B, 0x65, 0x73, 0x74, 0x72, 0x65, 0x6C, 0x20, 0x63, 0x61, 0x74, 0x61, 0x6C, 0x6F, 0x67, 0x31};
    list->listIdentifier = OctetString(listId).release();
    Check(ASN1_TIME_set(list->thisUpdate, std::time(nullptr)) != nullptr, "thisUpdate");
    OwnedObject algorithm = Oid(format == MemberFormat::kText ? Catalog::kCatalogMemberOid : Catalog::kCatalogMember2Oid);
    Check(X509_ALGOR_set0(list->subjectAlgorithm, algorithm.get(), V_ASN1_NULL, nullptr) == 1, "subject algorithm");
    algorithm.release();

    list->trustedSubjects = Catalog::sk_TrustedSubject_new_null();
    Check(list->trustedSubjects != nullptr, "subject list");
    for (const std::wstring& tag : tags) {
        std::unique_ptr<Catalog::TrustedSubject, SubjectFree> subject(Catalog::TrustedSubject_new());
        std::vector<std::uint8_t> text = format == MemberFormat::kText ? Utf16LeWithZero(tag) : std::vector<std::uint8_t>();
        for (std::size_t at = 0; format == MemberFormat::kBinary && at + 1 < tag.size(); at += 2) {
            text.push_back(static_cast<std::uint8_t>(std::stoi(tag.substr(at, 2), nullptr, 16)));
        }
        Check(subject && ASN1_OCTET_STRING_set(subject->subjectIdentifier, text.data(), static_cast<int>(text.size())) == 1 &&
                  Catalog::sk_TrustedSubject_push(list->trustedSubjects, subject.get()) > 0,
              "member");
        subject.release();
    }
    return Der(list.get(), Catalog::i2d_CertificateTrustList);
}

std::vector<std::uint8_t> SignedDataDer(const char* contentType, std::span<const std::uint8_t> contentDer,
                                        const CatalogSigner& signer)
{
    Catalog::OwnedPkcs7 signedData(PKCS7_new());
    Check(signedData && PKCS7_set_type(signedData.get(), NID_pkcs7_signed) == 1, "new SignedData");
    PKCS7_SIGNER_INFO* info = PKCS7_add_signature(signedData.get(), signer.certificate.get(), signer.key.get(), EVP_sha256());
    Check(info != nullptr && PKCS7_add_certificate(signedData.get(), signer.certificate.get()) == 1, "signer");
    for (const OwnedX509& extra : signer.chain) {
        Check(PKCS7_add_certificate(signedData.get(), extra.get()) == 1, "chain certificate");
    }

    Catalog::OwnedPkcs7 content(PKCS7_new());
    OwnedObject type = Oid(contentType);
    std::span<const std::uint8_t> digested = contentDer;
    Check(content != nullptr, "new content");
    if (OBJ_obj2nid(type.get()) == NID_pkcs7_data) {
        Check(PKCS7_set_type(content.get(), NID_pkcs7_data) == 1 &&
                  ASN1_OCTET_STRING_set(content->d.data, contentDer.data(), static_cast<int>(contentDer.size())) == 1,
              "Data content");
    } else {
        // A type OpenSSL does not know travels as ANY holding the whole DER.
        std::unique_ptr<ASN1_TYPE, TypeFree> any(ASN1_TYPE_new());
        OwnedString sequence(ASN1_STRING_new());
        Check(any && sequence && ASN1_STRING_set(sequence.get(), contentDer.data(), static_cast<int>(contentDer.size())) == 1,
              "other content");
        ASN1_TYPE_set(any.get(), V_ASN1_SEQUENCE, sequence.release());
        content->type = OBJ_dup(type.get());
        content->d.other = any.release();
        digested = Contents(contentDer);
    }
    Check(PKCS7_set_content(signedData.get(), content.get()) == 1, "content");
    content.release();

    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int digestLength = 0;
    Check(EVP_Digest(digested.data(), digested.size(), digest, &digestLength, EVP_sha256(), nullptr) == 1, "digest");
    OwnedString messageDigest = OctetString({digest, digestLength});
    Check(PKCS7_add_signed_attribute(info, NID_pkcs9_contentType, V_ASN1_OBJECT, type.get()) == 1, "contentType");
    type.release();
    Check(PKCS7_add_signed_attribute(info, NID_pkcs9_messageDigest, V_ASN1_OCTET_STRING, messageDigest.get()) == 1,
          "messageDigest");
    messageDigest.release();
    Check(PKCS7_SIGNER_INFO_sign(info) == 1, "signature");
    return Der(signedData.get(), i2d_PKCS7);
}

void WriteCatalog(const std::filesystem::path& path, const std::vector<std::wstring>& tags, const CatalogSigner& signer,
                  MemberFormat format)
{
    const std::vector<std::uint8_t> der = SignedDataDer(Catalog::kCtlOid, CatalogListDer(tags, format), signer);
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(der.data()), static_cast<std::streamsize>(der.size()));
    Check(static_cast<bool>(out.flush()), "writing the catalog");
}

} // namespace KestrelTest
