#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace Tessel::Bridge::Platform {

// WinVerifyTrust's answers that the verification layer gives.
namespace TrustResult {
constexpr std::uint32_t kTrusted = 0;
constexpr std::uint32_t kNoSignature = 0x800B0100;        // TRUST_E_NOSIGNATURE
constexpr std::uint32_t kExpired = 0x800B0101;            // CERT_E_EXPIRED
constexpr std::uint32_t kUntrustedRoot = 0x800B0109;      // CERT_E_UNTRUSTEDROOT
constexpr std::uint32_t kWrongUsage = 0x800B0110;         // CERT_E_WRONG_USAGE
constexpr std::uint32_t kChaining = 0x800B010A;           // CERT_E_CHAINING
constexpr std::uint32_t kSubjectFormUnknown = 0x800B0003; // TRUST_E_SUBJECT_FORM_UNKNOWN
constexpr std::uint32_t kBadDigest = 0x80096010;          // TRUST_E_BAD_DIGEST
constexpr std::uint32_t kBadSignature = 0x80096004;       // TRUST_E_CERT_SIGNATURE
constexpr std::uint32_t kFileError = 0x80092003;          // CRYPT_E_FILE_ERROR
constexpr std::uint32_t kNoIndex = 0x80092004;            // CRYPT_E_NOT_FOUND: no signature at that index

// The answers that come with the signer: trusted, expired, untrusted root.
constexpr bool GivesSigner(std::uint32_t result)
{
    return result == kTrusted || result == kExpired || result == kUntrustedRoot;
}
// Trusted by Windows: an expired signer counts, an untrusted root does not.
constexpr bool CountsAsTrusted(std::uint32_t result)
{
    return result == kTrusted || result == kExpired;
}
} // namespace TrustResult

// The signer of an accepted signature.
struct Signer {
    // The subject as CertNameToStrW gives it with X.500 keys, no quoting and
    // CR LF between the parts ("CN=Name\r\nO=Org\r\nC=US").
    std::wstring subject;
    // The subject public key bytes (the bit string's contents).
    std::vector<std::uint8_t> publicKey;
    // The name could not be converted to text (CertNameToStrW failed); an
    // empty subject that converted is not this.
    bool subjectUnreadable = false;
};

// A timestamp that a signature carries and that Windows accepts.
struct Timestamp {
    enum class Kind {
        Rfc3161,          // an RFC 3161 token (SPC_RFC3161_OBJID)
        Countersignature, // a PKCS#9 countersignature, Authenticode's older kind
    };
    Kind kind = Kind::Rfc3161;
    std::int64_t time = 0; // seconds since 1970-01-01 UTC
};

// One signature of a file, found by index as WSS_VERIFY_SPECIFIC finds it.
struct SignatureCheck {
    std::uint32_t result = TrustResult::kNoSignature;
    // How many signatures follow the first (WSS_GET_SECONDARY_SIG_COUNT).
    std::uint32_t secondarySignatures = 0;
    // Set for the accepted results (0, CERT_E_EXPIRED, CERT_E_UNTRUSTEDROOT).
    std::optional<Signer> signer;
    // The signer's digest algorithm ("sha1", "sha256", "sha384", "sha512",
    // "md5", else the dotted OID); empty where no signature was read.
    std::string digestAlgorithm;
    // Set with the signer when the signature carries a valid timestamp.
    std::optional<Timestamp> timestamp;
};

// A security catalog that lists a file, and the file's tag in it.
struct CatalogMembership {
    std::wstring catalogPath;
    std::wstring memberTag; // the file hash in upper-case hexadecimal
};

// Why no catalog was found for a file: the step that failed and its Win32 error.
struct CatalogLookupFailure {
    enum class Step {
        AcquireContext, // CryptCATAdminAcquireContext2
        HashFile,       // opening and hashing the file, with its own context
        FindCatalog,    // CryptCATAdminEnumCatalogFromHash: no catalog lists the hash
        CatalogInfo,    // CryptCATCatalogInfoFromContext
    };
    Step step = Step::FindCatalog;
    std::uint32_t error = 0;
};

// Authenticode signatures of files: embedded in a PE file, or given for the
// file by a security catalog that lists its hash.
class ISignatureVerifier {
public:
    virtual ~ISignatureVerifier() = default;

    // Signature `index` embedded in the file.
    virtual SignatureCheck VerifyEmbedded(const std::wstring& path, std::uint32_t index) = 0;
    // Signature `index` of the catalog, for the file it lists.
    virtual SignatureCheck VerifyThroughCatalog(const CatalogMembership& catalog, const std::wstring& path, std::uint32_t index) = 0;
    // The catalog that lists the file's SHA-256 hash; none when no catalog
    // does or a step before failed, said in `failure`.
    virtual std::optional<CatalogMembership> FindCatalog(const std::wstring& path, CatalogLookupFailure& failure) = 0;
};

// The SHA-256 digest of the bytes.
std::vector<std::uint8_t> Sha256Of(std::span<const std::uint8_t> bytes);

// Where trust comes from instead of the platform's own: a PEM file of trusted
// root certificates and a folder of catalog (.cat) files. An empty path keeps
// the platform's own source.
struct TrustSources {
    std::filesystem::path roots;
    std::filesystem::path catalogs;
};

// The platform's verifier: on Windows WinTrust with the system's roots and
// catalog database; on the emulated PC the PC's roots and catalogs, and its
// drive letters for Windows paths.
std::unique_ptr<ISignatureVerifier> CreateSignatureVerifier();
// One that takes its trust from the sources given. Throws
// std::invalid_argument where the platform cannot (Windows trusts only its
// own stores).
std::unique_ptr<ISignatureVerifier> CreateSignatureVerifier(const TrustSources& sources);

} // namespace Tessel::Bridge::Platform
