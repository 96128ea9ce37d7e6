#pragma once

#include "logging/Export.h"

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace Tessel::Bridge::Security {

// A trusted publisher's certificate subject, or the signer certificate of a
// file's signature with its key and WinVerifyTrust's answer.
struct KESTREL_SECURITY_API CertificateDetails {
    std::string publicKey;    // public-key text; empty in publisher rows
    std::uint32_t status = 0; // WinVerifyTrust's result; zero in publisher rows
    std::wstring commonName;
    std::wstring organizationalUnit;
    std::wstring organization;
    std::wstring locality;
    std::wstring state;
    std::wstring country;
    std::wstring issuer;      // the issuer's common name; empty where a row pins none

    CertificateDetails();
    // Locality comes before organisation here, unlike the fields: the rows
    // are written in this order.
    CertificateDetails(std::wstring cn, std::wstring ou, std::wstring l, std::wstring o, std::wstring s, std::wstring c,
                       std::wstring issuerName);
};

// Publisher rows. Only the Dropbox rows are read (by the Dropbox check); the
// others are kept for the life of the process.
namespace TrustedPublishers {
KESTREL_SECURITY_API extern const std::vector<CertificateDetails> kTessel;
KESTREL_SECURITY_API extern const std::vector<CertificateDetails> kDropbox;
KESTREL_SECURITY_API extern const std::vector<CertificateDetails> kMicrosoft;
KESTREL_SECURITY_API extern const std::vector<CertificateDetails> kBitdefender;
} // namespace TrustedPublishers

// The key bytes of a certificate's subject public key (for RSA the DER
// RSAPublicKey, "30 82 01 0a ..."), each byte two lower-case hexadecimal
// digits, one blank between bytes.
KESTREL_SECURITY_API std::string PublicKeyText(std::span<const std::uint8_t> keyBytes);

// Fills the subject fields of `details` from a subject as CertNameToStrW
// gives it with CR LF between its parts ("CN=Name\r\nO=Org"); the keys CN,
// OU, O, L, S and C count, others are ignored.
KESTREL_SECURITY_API void ParseSubject(const std::wstring& subject, CertificateDetails& details);

} // namespace Tessel::Bridge::Security
