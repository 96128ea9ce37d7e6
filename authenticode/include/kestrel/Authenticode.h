// Kestrel Authenticode: the Authenticode signatures of Windows files, judged
// as WinVerifyTrust judges them, on any platform, against the trust given.
//
//     Kestrel::Authenticode::Verifier verifier({Roots::FromPemFile("roots.pem"), {"catalogs/"}});
//     for (const Signature& s : verifier.Verify("app.exe").embedded) ...
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Kestrel::Authenticode {

// WinVerifyTrust's answers.
namespace Result {
inline constexpr std::uint32_t kTrusted = 0;
inline constexpr std::uint32_t kNoSignature = 0x800B0100;        // TRUST_E_NOSIGNATURE
inline constexpr std::uint32_t kExpired = 0x800B0101;            // CERT_E_EXPIRED
inline constexpr std::uint32_t kUntrustedRoot = 0x800B0109;      // CERT_E_UNTRUSTEDROOT
inline constexpr std::uint32_t kChaining = 0x800B010A;           // CERT_E_CHAINING
inline constexpr std::uint32_t kWrongUsage = 0x800B0110;         // CERT_E_WRONG_USAGE
inline constexpr std::uint32_t kSubjectFormUnknown = 0x800B0003; // TRUST_E_SUBJECT_FORM_UNKNOWN
inline constexpr std::uint32_t kBadDigest = 0x80096010;          // TRUST_E_BAD_DIGEST
inline constexpr std::uint32_t kBadSignature = 0x80096004;       // TRUST_E_CERT_SIGNATURE
inline constexpr std::uint32_t kFileError = 0x80092003;          // CRYPT_E_FILE_ERROR
inline constexpr std::uint32_t kNoIndex = 0x80092004;            // CRYPT_E_NOT_FOUND: no signature at that index

// What WinVerifyTrust's callers count as trusted: an expired signer too.
constexpr bool CountsAsTrusted(std::uint32_t result) { return result == kTrusted || result == kExpired; }
} // namespace Result

struct Signer {
    // UTF-8, as CertNameToStrW writes it with X.500 keys, no quoting and CR LF
    // between the parts: "CN=Name\r\nO=Org\r\nC=US".
    std::string subject;
    // The subject public key: the bit string's contents (CERT_PUBLIC_KEY_INFO.PublicKey).
    std::vector<std::uint8_t> publicKey;
};

struct Timestamp {
    enum class Kind { Rfc3161, Countersignature };
    Kind kind = Kind::Rfc3161;
    std::int64_t time = 0; // seconds since 1970-01-01 UTC
};

// One signature, as WinVerifyTrust finds it by index (WSS_VERIFY_SPECIFIC).
struct Signature {
    std::uint32_t result = Result::kNoSignature;
    // The signer's digest algorithm: "sha1", "sha256", "sha384", "sha512",
    // "md5", else its dotted OID; empty where no signer was read.
    std::string digestAlgorithm;
    // For the results that come with a signer: 0, CERT_E_EXPIRED, CERT_E_UNTRUSTEDROOT.
    std::optional<Signer> signer;
    // With the signer, when it carries a valid timestamp (whether needed or not).
    std::optional<Timestamp> timestamp;
    // How many signatures follow the first (WSS_GET_SECONDARY_SIG_COUNT).
    std::uint32_t secondarySignatures = 0;
};

// Trusted root certificates. Copies share one store.
class Roots {
public:
    Roots(); // trusts nothing
    // Every certificate of a PEM file or text; std::runtime_error when it
    // cannot be read or holds anything else.
    static Roots FromPemFile(const std::filesystem::path& file);
    static Roots FromPem(std::string_view pem);
    // One DER certificate; std::invalid_argument when it is not one.
    void Add(std::span<const std::uint8_t> der);

private:
    struct Store;
    friend struct RootsAccess;
    std::shared_ptr<Store> store_;
};

struct TrustSources {
    TrustSources(Roots trustedRoots = {}, std::vector<std::filesystem::path> catalogFiles = {}, std::optional<std::int64_t> at = {})
        : roots(std::move(trustedRoots)), catalogs(std::move(catalogFiles)), time(at)
    {
    }

    Roots roots;
    // Catalog (.cat) files, and folders whose .cat files count, read when asked.
    std::vector<std::filesystem::path> catalogs;
    // When to judge, in seconds since 1970-01-01 UTC; the moment of each call when absent.
    std::optional<std::int64_t> time;
};

// A catalog that lists a file, and the file's tag in it.
struct CatalogListing {
    std::filesystem::path catalog;
    std::string memberTag; // the file's SHA-256 hash in upper-case hexadecimal
};

// Everything about one file: catalog signatures first, as Windows' callers
// ask, then the embedded ones, each by index.
struct FileReport {
    std::optional<CatalogListing> catalog;
    std::vector<Signature> catalogSignatures;
    std::vector<Signature> embedded;

    bool TrustedByWindows() const;
};

// A file is a path, or its bytes in memory.
class Verifier {
public:
    explicit Verifier(TrustSources trust = {});
    ~Verifier();
    Verifier(Verifier&&) noexcept;
    Verifier& operator=(Verifier&&) noexcept;

    FileReport Verify(const std::filesystem::path& file);
    FileReport Verify(std::span<const std::uint8_t> file);

    // Signature `index` embedded in the file.
    Signature VerifyEmbedded(const std::filesystem::path& file, std::uint32_t index = 0);
    Signature VerifyEmbedded(std::span<const std::uint8_t> file, std::uint32_t index = 0);

    // The file's catalog tag: the SHA-256 Authenticode digest of an image, else
    // of every byte; none when the file cannot be read.
    std::optional<std::string> MemberTag(const std::filesystem::path& file);
    std::optional<std::string> MemberTag(std::span<const std::uint8_t> file);
    // The first catalog, by path, that lists the tag.
    std::optional<CatalogListing> FindCatalog(std::string_view memberTag) const;
    // Signature `index` of a catalog, for the file it lists.
    Signature VerifyThroughCatalog(const CatalogListing& listing, const std::filesystem::path& file, std::uint32_t index = 0);
    Signature VerifyThroughCatalog(const CatalogListing& listing, std::span<const std::uint8_t> file, std::uint32_t index = 0);

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace Kestrel::Authenticode
