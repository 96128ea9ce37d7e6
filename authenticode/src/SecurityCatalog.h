#pragma once

// Security catalogs (.cat): a PKCS#7 SignedData whose content is a
// Certificate Trust List naming the files the signature covers.
//
// The CTL as Microsoft's CTL_INFO and CTL_ENTRY pages describe it (wincrypt.h),
// in ASN.1:
//
//   CertificateTrustList ::= SEQUENCE {
//       version           INTEGER DEFAULT v1,       -- CTL_V1 = 0
//       subjectUsage      SEQUENCE OF OBJECT IDENTIFIER,
//       listIdentifier    OCTET STRING OPTIONAL,
//       sequenceNumber    INTEGER OPTIONAL,
//       thisUpdate        Time,
//       nextUpdate        Time OPTIONAL,
//       subjectAlgorithm  AlgorithmIdentifier,
//       trustedSubjects   SEQUENCE OF TrustedSubject OPTIONAL,
//       ctlExtensions     [0] EXPLICIT Extensions OPTIONAL }
//
//   TrustedSubject ::= SEQUENCE {
//       subjectIdentifier OCTET STRING,
//       subjectAttributes SET OF Attribute OPTIONAL }
//
// The structures are OpenSSL ASN.1 items, so that OpenSSL both reads them and
// (for tests) writes them.
#include "AuthenticodeSignature.h"

#include <openssl/asn1.h>
#include <openssl/pkcs7.h>
#include <openssl/safestack.h>
#include <openssl/x509.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace Kestrel::Authenticode::Catalog {

// OIDs of catalogs (wincrypt.h and mscat.h).
inline constexpr const char* kCtlOid = "1.3.6.1.4.1.311.10.1";              // szOID_CTL
inline constexpr const char* kCatalogListOid = "1.3.6.1.4.1.311.12.1.1";    // szOID_CATALOG_LIST
inline constexpr const char* kCatalogMemberOid = "1.3.6.1.4.1.311.12.1.2";  // szOID_CATALOG_LIST_MEMBER
inline constexpr const char* kCatalogMember2Oid = "1.3.6.1.4.1.311.12.1.3"; // szOID_CATALOG_LIST_MEMBER2

struct TrustedSubject {
    ASN1_OCTET_STRING* subjectIdentifier;
    STACK_OF(X509_ATTRIBUTE)* subjectAttributes;
};

DEFINE_STACK_OF(TrustedSubject)

struct CertificateTrustList {
    ASN1_INTEGER* version;
    STACK_OF(ASN1_OBJECT)* subjectUsage;
    ASN1_OCTET_STRING* listIdentifier;
    ASN1_INTEGER* sequenceNumber;
    ASN1_TIME* thisUpdate;
    ASN1_TIME* nextUpdate;
    X509_ALGOR* subjectAlgorithm;
    STACK_OF(TrustedSubject)* trustedSubjects;
    STACK_OF(X509_EXTENSION)* ctlExtensions;
};

DECLARE_ASN1_FUNCTIONS(TrustedSubject)
DECLARE_ASN1_FUNCTIONS(CertificateTrustList)

using Signatures::OwnedPkcs7;

struct CertificateTrustListFree {
    void operator()(CertificateTrustList* p) const noexcept { CertificateTrustList_free(p); }
};
using OwnedTrustList = std::unique_ptr<CertificateTrustList, CertificateTrustListFree>;

// A catalog read from its file.
struct SecurityCatalog {
    // The whole SignedData, for checking its signature.
    OwnedPkcs7 signedData;
    // The member tags in upper case, sorted, each once.
    std::vector<std::wstring> memberTags;
    // The bytes the signature's message digest covers: the CTL's DER without
    // its outer tag and length.
    std::vector<std::uint8_t> signedContent;
};

// Nothing unless the bytes are exactly one signed catalog: a SignedData that
// carries a CTL with the catalog usage and a member algorithm, and whose every
// member identifier reads as that algorithm names members: UTF-16LE text for
// CATALOG_LIST_MEMBER, the hash's bytes for CATALOG_LIST_MEMBER2.
std::optional<SecurityCatalog> ReadCatalog(std::span<const std::uint8_t> der);

// Whether the catalog lists the tag (ASCII letters compared ignoring case).
bool Lists(const SecurityCatalog& catalog, std::wstring_view upperHexTag);

} // namespace Kestrel::Authenticode::Catalog
