#pragma once

#include "kestrel/Authenticode.h"

#include <openssl/pkcs7.h>
#include <openssl/x509.h>

#include <ctime>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <vector>

namespace Kestrel::Authenticode::Signatures {

struct Pkcs7Free {
    void operator()(PKCS7* p) const noexcept { PKCS7_free(p); }
};
using OwnedPkcs7 = std::unique_ptr<PKCS7, Pkcs7Free>;

// The digest a signature claims for its file, and the algorithm (an OpenSSL NID).
struct ClaimedDigest {
    int algorithm = 0;
    std::vector<std::uint8_t> value;
};

// How a signature is judged: the trusted roots, and the time to judge at (a
// valid timestamp inside the signature, RFC 3161 or a PKCS#9
// countersignature, can move it back).
struct Judgement {
    X509_STORE* roots = nullptr;
    std::time_t now = 0;
};

// The signatures of one PKCS#7 SignedData: the signature itself and those
// nested in its unauthenticated attributes, in order, as WinVerifyTrust counts
// them.
class SignatureSet {
public:
    // Nothing when the bytes are not one whole DER SignedData (zero padding to
    // eight bytes allowed).
    static std::optional<SignatureSet> Parse(std::span<const std::uint8_t> der);

    std::size_t Count() const noexcept { return signatures_.size(); }

    // The file digest signature `index` of an Authenticode signature claims;
    // nothing for another kind of content or an unreadable one.
    std::optional<ClaimedDigest> Claimed(std::size_t index) const;

    // Judges signature `index` over its own content. The content must be of
    // the type `contentType` (a dotted OID); `contentMatches` then decides
    // whether it describes the file (TRUST_E_BAD_DIGEST when not).
    Signature Judge(std::size_t index, const char* contentType, const std::function<bool()>& contentMatches,
                         const Judgement& judgement) const;

    // The DER of the content that signature `index` signs, without its outer
    // tag and length (what its message digest covers).
    std::span<const std::uint8_t> SignedContent(std::size_t index) const;

private:
    std::vector<OwnedPkcs7> signatures_;
};

// The subject as CertNameToStrW writes it with CERT_X500_NAME_STR,
// CERT_NAME_STR_NO_QUOTING_FLAG and CERT_NAME_STR_CRLF_FLAG, in UTF-8.
std::string SubjectText(const X509_NAME* name);

} // namespace Kestrel::Authenticode::Signatures
