// The parts of a PE file that Authenticode needs: where its headers put the
// checksum and the certificate table, the WIN_CERTIFICATE entries of that
// table, and the image digest, which leaves out exactly the bytes that
// signing changes. Malformed input gives a Problem, never an exception.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <utility>
#include <variant>
#include <vector>

namespace Kestrel::Authenticode::Pe {

// Why a file cannot be read as an image, or cannot be trusted as one. From
// kNotPe on, each is a property of the bytes.
enum class Problem {
    kCannotOpen,   // no regular file to read at the path
    kReadFailed,   // the system refused a read
    kFileChanged,  // the bytes are not the ones parsed before (or the size changed)
    kDigestFailed, // OpenSSL refused an algorithm
    kNotPe,        // no "MZ": not an image at all
    kBadPeHeaderOffset,
    kNoPeSignature,
    kTruncatedHeaders,
    kUnknownOptionalHeader,
    kBadOptionalHeaderSize,
    kBadSizeOfHeaders,
    kSectionsNotContiguous,
    kSectionOutsideFile,
    kCertificateTableTooLarge,
    kCertificateTableOutsideFile,
    kCertificateTableOverlapsHeaders,
    kCertificateTableMisaligned,
    kDataAfterCertificateTable,
    kSectionOverlapsCertificateTable,
    kTruncatedCertificateEntry,
    kBadCertificateEntryLength,
    kNonZeroPadding,
};

// A problem of the certificate table's place or size, found while the
// headers otherwise hold together.
constexpr bool IsCertificateTableProblem(Problem problem)
{
    return problem == Problem::kCertificateTableTooLarge || problem == Problem::kCertificateTableOutsideFile ||
           problem == Problem::kCertificateTableOverlapsHeaders || problem == Problem::kCertificateTableMisaligned ||
           problem == Problem::kDataAfterCertificateTable || problem == Problem::kSectionOverlapsCertificateTable;
}

const char* Describe(Problem problem);

// A value, or the problem that stopped it.
template <typename T>
class Expected {
public:
    Expected(T value) : state_(std::move(value)) {}
    Expected(Problem problem) : state_(problem) {}

    explicit operator bool() const noexcept { return std::holds_alternative<T>(state_); }
    // Without a value these throw std::bad_variant_access: a caller's slip.
    const T& operator*() const& { return std::get<T>(state_); }
    T& operator*() & { return std::get<T>(state_); }
    T&& operator*() && { return std::get<T>(std::move(state_)); }
    const T* operator->() const { return &std::get<T>(state_); }
    T* operator->() { return &std::get<T>(state_); }
    Problem Why() const { return std::get<Problem>(state_); }

private:
    std::variant<T, Problem> state_;
};

// Everything parsed lies in this much of the file's start.
constexpr std::size_t kMaxHeaderBytes = 64 * 1024;
// Larger tables are refused before any of them is read.
constexpr std::uint64_t kMaxCertificateTableBytes = 16 * 1024 * 1024;

struct ByteRange {
    std::uint64_t offset = 0;
    std::uint64_t size = 0;
    friend bool operator==(const ByteRange&, const ByteRange&) = default;
};

enum class Format { kPe32, kPe32Plus };

struct Layout {
    Format format = Format::kPe32;
    std::uint64_t fileSize = 0;
    std::uint32_t peHeaderOffset = 0; // e_lfanew
    std::uint32_t sizeOfHeaders = 0;
    std::uint32_t directoryCount = 0; // NumberOfRvaAndSizes
    std::uint64_t checksumOffset = 0; // the 4-byte CheckSum field
    // The 8-byte certificate directory entry, when there are five directories.
    std::optional<std::uint64_t> certificateEntryOffset;
    // None when there is no entry or its size is 0.
    std::optional<ByteRange> certificateTable;
};

// The headers of a file of fileSize bytes whose first bytes are head (the
// first kMaxHeaderBytes are enough).
Expected<Layout> ParseHeaders(std::span<const std::uint8_t> head, std::uint64_t fileSize);

constexpr std::uint16_t kCertificateRevision2 = 0x0200;         // WIN_CERT_REVISION_2_0
constexpr std::uint16_t kCertificateTypePkcsSignedData = 0x0002; // WIN_CERT_TYPE_PKCS_SIGNED_DATA

struct CertificateEntry {
    std::uint64_t offset = 0; // of the entry's header, in the table
    std::uint16_t revision = 0;
    std::uint16_t type = 0;
    std::span<const std::uint8_t> content; // bCertificate, a view of the table
};

// The WIN_CERTIFICATE entries of a certificate table, in order.
Expected<std::vector<CertificateEntry>> ListCertificates(std::span<const std::uint8_t> table);

// The entry WinVerifyTrust reads the signature from: the first of type
// WIN_CERT_TYPE_PKCS_SIGNED_DATA (Secure Boot images carry several; the rest
// are ignored). Nothing when there is none or it is not revision 2.0.
const CertificateEntry* AuthenticodeEntry(std::span<const CertificateEntry> entries);

enum class Algorithm { kSha1, kSha256 };

struct Digest {
    Algorithm algorithm = Algorithm::kSha256;
    std::vector<std::uint8_t> value;
};

// One per algorithm asked for, in the order asked.
using Digests = std::vector<Digest>;

// The Authenticode digest of a whole file in memory, laid out as parsed.
Expected<Digests> ImageDigest(std::span<const std::uint8_t> file, const Layout& layout, std::span<const Algorithm> algorithms);
// The digest of every byte, for files that are not images.
Expected<Digests> FlatDigest(std::span<const std::uint8_t> file, std::span<const Algorithm> algorithms);

// A file opened for reading once from start to end; memory stays bounded by
// kMaxHeaderBytes, a fixed read buffer and the certificate table.
class ImageFile {
public:
    static Expected<ImageFile> Open(const std::filesystem::path& path);

    std::uint64_t Size() const noexcept { return size_; }
    // The first min(Size(), kMaxHeaderBytes) bytes.
    std::span<const std::uint8_t> Head() const noexcept { return head_; }
    Expected<Layout> Headers() const { return ParseHeaders(head_, size_); }
    // The table's bytes, its entries checked; empty without one.
    Expected<std::vector<std::uint8_t>> CertificateTable(const Layout& layout) const;
    // One pass over the file. When certificateTable is given, the pass also
    // makes sure the file still holds those bytes (and the head) unchanged.
    Expected<Digests> ImageDigest(const Layout& layout, std::span<const Algorithm> algorithms,
                                  std::span<const std::uint8_t> certificateTable = {}) const;
    Expected<Digests> FlatDigest(std::span<const Algorithm> algorithms) const;

private:
    class Descriptor {
    public:
        explicit Descriptor(int fd) noexcept : fd_(fd) {}
        Descriptor(Descriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
        Descriptor& operator=(Descriptor&& other) noexcept;
        Descriptor(const Descriptor&) = delete;
        Descriptor& operator=(const Descriptor&) = delete;
        ~Descriptor();
        int Get() const noexcept { return fd_; }

    private:
        int fd_;
    };

    ImageFile(Descriptor descriptor, std::uint64_t size, std::vector<std::uint8_t> head)
        : descriptor_(std::move(descriptor)), size_(size), head_(std::move(head)) {}

    Descriptor descriptor_;
    std::uint64_t size_;
    std::vector<std::uint8_t> head_;
};

} // namespace Kestrel::Authenticode::Pe
