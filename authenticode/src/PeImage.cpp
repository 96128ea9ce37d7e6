// PE headers, the certificate table and the Authenticode image digest.
//
// Sources of the layout: Microsoft's "PE Format" page (DOS stub, COFF and
// optional headers, data directories, the attribute certificate table and
// WIN_CERTIFICATE) and "Windows Authenticode Portable Executable Signature
// Format" (what the image digest leaves out).
//
// The image digest is taken over the file in file order, leaving out the
// CheckSum field, the certificate directory entry and the table. Microsoft
// describes a walk of the headers, then the sections by file offset, then
// the rest; the section rule below accepts only files where both walks
// give the same sequence of bytes.
//
// Where Windows is lenient, the rules here are not: a verifier must never
// trust bytes that a signature does not cover, so each accepted file has no
// byte that is neither hashed nor part of a checked WIN_CERTIFICATE entry.
#include "PeImage.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <memory>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <openssl/evp.h>

namespace Kestrel::Authenticode::Pe {

namespace {

constexpr std::uint64_t kDosHeaderBytes = 64;
constexpr std::uint64_t kLfanewAt = 0x3C;
constexpr std::uint32_t kPeSignature = 0x00004550; // "PE\0\0"
constexpr std::uint64_t kCoffHeaderBytes = 20;
constexpr std::uint64_t kSectionHeaderBytes = 40;
constexpr std::uint64_t kDirectoryEntryBytes = 8;
constexpr std::uint32_t kCertificateDirectory = 4;
constexpr std::uint64_t kCertificateEntryHeaderBytes = 8;
constexpr std::size_t kChunkBytes = 1024 * 1024;

// Optional header fields at the same place in both formats.
constexpr std::uint64_t kSizeOfHeadersAt = 60;
constexpr std::uint64_t kCheckSumAt = 64;

// Where the two formats differ: the count sits just before the directories.
struct OptionalHeaderShape {
    std::uint64_t directoryCountAt;
    std::uint64_t directoriesAt;
};
constexpr OptionalHeaderShape kPe32Shape{92, 96};
constexpr OptionalHeaderShape kPe32PlusShape{108, 112};

// Little-endian fields at checked offsets: nothing where a field would run
// past the bytes.
class LittleEndian {
public:
    explicit LittleEndian(std::span<const std::uint8_t> bytes) : bytes_(bytes) {}

    bool Holds(std::uint64_t offset, std::uint64_t size) const
    {
        return offset <= bytes_.size() && size <= bytes_.size() - offset;
    }
    std::optional<std::uint16_t> U16(std::uint64_t offset) const
    {
        if (!Holds(offset, 2)) return std::nullopt;
        return static_cast<std::uint16_t>(Byte(offset) | Byte(offset + 1) << 8);
    }
    std::optional<std::uint32_t> U32(std::uint64_t offset) const
    {
        if (!Holds(offset, 4)) return std::nullopt;
        return Byte(offset) | Byte(offset + 1) << 8 | Byte(offset + 2) << 16 | Byte(offset + 3) << 24;
    }

private:
    std::uint32_t Byte(std::uint64_t offset) const { return bytes_[static_cast<std::size_t>(offset)]; }

    std::span<const std::uint8_t> bytes_;
};

constexpr std::uint64_t AlignUp8(std::uint64_t value)
{
    return (value + 7) & ~std::uint64_t{7};
}

// Where the sections' raw data ends. Sections with data, taken by file
// offset, start right at SizeOfHeaders and follow each other with no gap or
// overlap: bytes in a gap would be outside one walk and bytes in an overlap
// twice in the other.
Expected<std::uint64_t> SectionDataEnd(const LittleEndian& in, std::uint64_t sectionTable, std::uint16_t sections,
                                       std::uint32_t sizeOfHeaders, std::uint64_t fileSize)
{
    std::vector<ByteRange> data;
    for (std::uint16_t i = 0; i < sections; ++i) {
        const std::uint64_t header = sectionTable + kSectionHeaderBytes * i;
        const std::optional<std::uint32_t> rawSize = in.U32(header + 16);
        const std::optional<std::uint32_t> rawOffset = in.U32(header + 20);
        if (!rawSize || !rawOffset) return Problem::kTruncatedHeaders;
        if (*rawSize != 0) data.push_back({*rawOffset, *rawSize});
    }
    std::sort(data.begin(), data.end(), [](const ByteRange& a, const ByteRange& b) { return a.offset < b.offset; });
    std::uint64_t end = sizeOfHeaders;
    for (const ByteRange& section : data) {
        if (section.offset != end) return Problem::kSectionsNotContiguous;
        end += section.size;
    }
    if (end > fileSize) return Problem::kSectionOutsideFile;
    return end;
}

// The table's checks, in the order they are reported.
std::optional<Problem> CheckCertificateTable(ByteRange table, std::uint64_t sectionDataEnd, std::uint32_t sizeOfHeaders,
                                             std::uint64_t fileSize)
{
    // Bounded before anything is read or allocated for it.
    if (table.size > kMaxCertificateTableBytes) return Problem::kCertificateTableTooLarge;
    // WinVerifyTrust's own rule: the table lies within the file.
    if (table.offset > fileSize || table.size > fileSize - table.offset) return Problem::kCertificateTableOutsideFile;
    // The headers hold the excluded CheckSum and directory entry; a table
    // among them would make those ranges overlap.
    if (table.offset < sizeOfHeaders) return Problem::kCertificateTableOverlapsHeaders;
    // Entries start on 8-byte boundaries and the last one's padding is part
    // of the table, so both ends are aligned.
    if (table.offset % 8 != 0 || table.size % 8 != 0) return Problem::kCertificateTableMisaligned;
    // Microsoft's walk takes the table's size off the end of the file, so
    // with bytes after the table it would hash part of the table and miss
    // them; such files are refused, not read either way.
    if (table.offset + table.size != fileSize) return Problem::kDataAfterCertificateTable;
    // Section data is hashed and the table is not: they cannot share bytes.
    if (sectionDataEnd > table.offset) return Problem::kSectionOverlapsCertificateTable;
    return std::nullopt;
}

struct MdContextFree {
    void operator()(EVP_MD_CTX* context) const { EVP_MD_CTX_free(context); }
};
using UniqueMdContext = std::unique_ptr<EVP_MD_CTX, MdContextFree>;

const EVP_MD* MessageDigestOf(Algorithm algorithm)
{
    switch (algorithm) {
    case Algorithm::kSha1: return EVP_sha1();
    case Algorithm::kSha256: return EVP_sha256();
    }
    return nullptr;
}

// Hashes a file's bytes, given in order and in any pieces, with several
// algorithms at once, leaving out the skipped ranges.
class DigestStream {
public:
    DigestStream(std::span<const Algorithm> algorithms, std::vector<ByteRange> skipped)
    {
        for (const Algorithm algorithm : algorithms) {
            UniqueMdContext context(EVP_MD_CTX_new());
            const EVP_MD* md = MessageDigestOf(algorithm);
            if (context == nullptr || md == nullptr || EVP_DigestInit_ex(context.get(), md, nullptr) != 1) failed_ = true;
            contexts_.push_back({algorithm, std::move(context)});
        }
        // Sorted and merged, so one forward walk meets each once.
        std::erase_if(skipped, [](const ByteRange& range) { return range.size == 0; });
        std::sort(skipped.begin(), skipped.end(), [](const ByteRange& a, const ByteRange& b) { return a.offset < b.offset; });
        for (const ByteRange& range : skipped) {
            const std::uint64_t end = EndOf(range);
            if (!skipped_.empty() && range.offset <= skipped_.back().end) {
                skipped_.back().end = std::max(skipped_.back().end, end);
            } else {
                skipped_.push_back({range.offset, end});
            }
        }
    }

    void Update(std::span<const std::uint8_t> chunk)
    {
        const std::uint64_t start = position_;
        const std::uint64_t end = start + chunk.size();
        for (std::uint64_t at = start; at < end;) {
            while (next_ < skipped_.size() && skipped_[next_].end <= at) ++next_;
            std::uint64_t stop = end;
            if (next_ < skipped_.size()) {
                const Span& skip = skipped_[next_];
                if (skip.begin <= at) {
                    at = std::min(end, skip.end);
                    continue;
                }
                stop = std::min(end, skip.begin);
            }
            Hash(chunk.subspan(static_cast<std::size_t>(at - start), static_cast<std::size_t>(stop - at)));
            at = stop;
        }
        position_ = end;
    }

    Expected<Digests> Finish()
    {
        Digests digests;
        for (const Context& context : contexts_) {
            if (failed_) break;
            std::array<std::uint8_t, EVP_MAX_MD_SIZE> value{};
            unsigned int size = 0;
            if (EVP_DigestFinal_ex(context.md.get(), value.data(), &size) != 1) failed_ = true;
            digests.push_back({context.algorithm, std::vector<std::uint8_t>(value.begin(), value.begin() + size)});
        }
        if (failed_) return Problem::kDigestFailed;
        return digests;
    }

private:
    struct Context {
        Algorithm algorithm;
        UniqueMdContext md;
    };
    struct Span {
        std::uint64_t begin;
        std::uint64_t end;
    };

    static std::uint64_t EndOf(const ByteRange& range)
    {
        return range.size > UINT64_MAX - range.offset ? UINT64_MAX : range.offset + range.size;
    }

    void Hash(std::span<const std::uint8_t> bytes)
    {
        for (const Context& context : contexts_) {
            if (EVP_DigestUpdate(context.md.get(), bytes.data(), bytes.size()) != 1) failed_ = true;
        }
    }

    std::vector<Context> contexts_;
    std::vector<Span> skipped_;
    std::size_t next_ = 0;
    std::uint64_t position_ = 0;
    bool failed_ = false;
};

std::vector<ByteRange> SkippedBy(const Layout& layout)
{
    std::vector<ByteRange> skipped{{layout.checksumOffset, 4}};
    if (layout.certificateEntryOffset) skipped.push_back({*layout.certificateEntryOffset, kDirectoryEntryBytes});
    if (layout.certificateTable) skipped.push_back(*layout.certificateTable);
    return skipped;
}

// Bytes read before, which a later read of the same place must give again.
struct KnownBytes {
    std::uint64_t offset;
    std::span<const std::uint8_t> bytes;
};

bool Agrees(std::uint64_t at, std::span<const std::uint8_t> chunk, const KnownBytes& known)
{
    const std::uint64_t begin = std::max(at, known.offset);
    const std::uint64_t end = std::min(at + chunk.size(), known.offset + known.bytes.size());
    if (begin >= end) return true;
    const auto count = static_cast<std::size_t>(end - begin);
    return std::ranges::equal(chunk.subspan(static_cast<std::size_t>(begin - at), count),
                              known.bytes.subspan(static_cast<std::size_t>(begin - known.offset), count));
}

// Fills out from offset; the count falls short only where the file ends.
std::optional<std::size_t> ReadAt(int fd, std::uint64_t offset, std::span<std::uint8_t> out)
{
    std::size_t done = 0;
    while (done < out.size()) {
        const std::span<std::uint8_t> rest = out.subspan(done);
        const ssize_t got = ::pread(fd, rest.data(), rest.size(), static_cast<off_t>(offset + done));
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) return std::nullopt;
        if (got == 0) break;
        done += static_cast<std::size_t>(got);
    }
    return done;
}

// The one pass: start to end through a fixed buffer, then a read at the end
// that must find nothing, so a file that grew or shrank is not half-hashed.
Expected<Digests> Stream(int fd, std::uint64_t size, std::vector<ByteRange> skipped, std::span<const Algorithm> algorithms,
                         std::span<const KnownBytes> known)
{
    DigestStream stream(algorithms, std::move(skipped));
    const auto buffer = std::make_unique_for_overwrite<std::uint8_t[]>(kChunkBytes);
    const std::span<std::uint8_t> whole(buffer.get(), kChunkBytes);
    for (std::uint64_t at = 0; at < size;) {
        const std::span<std::uint8_t> chunk = whole.first(static_cast<std::size_t>(std::min<std::uint64_t>(kChunkBytes, size - at)));
        const std::optional<std::size_t> got = ReadAt(fd, at, chunk);
        if (!got) return Problem::kReadFailed;
        if (*got != chunk.size()) return Problem::kFileChanged;
        for (const KnownBytes& bytes : known) {
            if (!Agrees(at, chunk, bytes)) return Problem::kFileChanged;
        }
        stream.Update(chunk);
        at += chunk.size();
    }
    std::array<std::uint8_t, 1> probe{};
    const std::optional<std::size_t> past = ReadAt(fd, size, probe);
    if (!past) return Problem::kReadFailed;
    if (*past != 0) return Problem::kFileChanged;
    return stream.Finish();
}

} // namespace

const char* Describe(Problem problem)
{
    switch (problem) {
    case Problem::kCannotOpen: return "the file cannot be opened";
    case Problem::kReadFailed: return "the file cannot be read";
    case Problem::kFileChanged: return "the file changed while it was read";
    case Problem::kDigestFailed: return "the digest cannot be computed";
    case Problem::kNotPe: return "the file is not an image";
    case Problem::kBadPeHeaderOffset: return "the PE header offset is out of range";
    case Problem::kNoPeSignature: return "the PE signature is missing";
    case Problem::kTruncatedHeaders: return "the headers are cut short";
    case Problem::kUnknownOptionalHeader: return "the optional header is neither PE32 nor PE32+";
    case Problem::kBadOptionalHeaderSize: return "the optional header is too small for its fields";
    case Problem::kBadSizeOfHeaders: return "SizeOfHeaders does not fit the headers and the file";
    case Problem::kCertificateTableTooLarge: return "the certificate table is too large";
    case Problem::kCertificateTableOutsideFile: return "the certificate table lies outside the file";
    case Problem::kCertificateTableOverlapsHeaders: return "the certificate table overlaps the headers";
    case Problem::kCertificateTableMisaligned: return "the certificate table is not 8-byte aligned";
    case Problem::kDataAfterCertificateTable: return "data follows the certificate table";
    case Problem::kSectionsNotContiguous: return "section data does not follow the headers without gaps";
    case Problem::kSectionOutsideFile: return "section data runs past the end of the file";
    case Problem::kSectionOverlapsCertificateTable: return "a section overlaps the certificate table";
    case Problem::kTruncatedCertificateEntry: return "a certificate entry is cut short";
    case Problem::kBadCertificateEntryLength: return "a certificate entry is shorter than its header";
    case Problem::kNonZeroPadding: return "a certificate entry's padding is not zero";
    }
    return "unknown problem";
}

Expected<Layout> ParseHeaders(std::span<const std::uint8_t> head, std::uint64_t fileSize)
{
    if (head.size() > fileSize) head = head.first(static_cast<std::size_t>(fileSize));
    const LittleEndian in(head);
    if (in.U16(0) != 0x5A4D) return Problem::kNotPe; // "MZ"
    const std::optional<std::uint32_t> lfanew = in.U32(kLfanewAt);
    if (!lfanew) return Problem::kTruncatedHeaders;
    // The PE header follows the whole DOS header (Windows also loads files
    // where the two overlap; they are refused here) and starts in the head.
    const std::uint64_t coff = std::uint64_t{*lfanew} + 4;
    if (*lfanew < kDosHeaderBytes || !in.Holds(*lfanew, 4 + kCoffHeaderBytes)) return Problem::kBadPeHeaderOffset;
    if (in.U32(*lfanew) != kPeSignature) return Problem::kNoPeSignature;

    const std::optional<std::uint16_t> sections = in.U16(coff + 2);
    const std::optional<std::uint16_t> optionalBytes = in.U16(coff + 16);
    if (!sections || !optionalBytes) return Problem::kTruncatedHeaders;
    const std::uint64_t optional = coff + kCoffHeaderBytes;
    const std::uint64_t sectionTable = optional + *optionalBytes;
    const std::uint64_t headersEnd = sectionTable + kSectionHeaderBytes * *sections;
    // Optional header and section table, whole, within the head.
    if (!in.Holds(optional, headersEnd - optional)) return Problem::kTruncatedHeaders;
    if (*optionalBytes < 2) return Problem::kBadOptionalHeaderSize;

    Layout layout;
    const std::optional<std::uint16_t> magic = in.U16(optional);
    if (magic == 0x10B) {
        layout.format = Format::kPe32;
    } else if (magic == 0x20B) {
        layout.format = Format::kPe32Plus;
    } else {
        return Problem::kUnknownOptionalHeader;
    }
    const OptionalHeaderShape shape = layout.format == Format::kPe32 ? kPe32Shape : kPe32PlusShape;
    // The fixed fields and every directory it counts lie in SizeOfOptionalHeader.
    if (*optionalBytes < shape.directoriesAt) return Problem::kBadOptionalHeaderSize;
    const std::optional<std::uint32_t> directoryCount = in.U32(optional + shape.directoryCountAt);
    const std::optional<std::uint32_t> sizeOfHeaders = in.U32(optional + kSizeOfHeadersAt);
    if (!directoryCount || !sizeOfHeaders) return Problem::kTruncatedHeaders;
    if (*directoryCount > (*optionalBytes - shape.directoriesAt) / kDirectoryEntryBytes) return Problem::kBadOptionalHeaderSize;
    // SizeOfHeaders covers the section table and stays within the file.
    if (*sizeOfHeaders < headersEnd || *sizeOfHeaders > fileSize) return Problem::kBadSizeOfHeaders;

    layout.fileSize = fileSize;
    layout.peHeaderOffset = *lfanew;
    layout.sizeOfHeaders = *sizeOfHeaders;
    layout.directoryCount = *directoryCount;
    layout.checksumOffset = optional + kCheckSumAt;
    const Expected<std::uint64_t> sectionDataEnd = SectionDataEnd(in, sectionTable, *sections, *sizeOfHeaders, fileSize);
    if (!sectionDataEnd) return sectionDataEnd.Why();
    if (*directoryCount <= kCertificateDirectory) return layout;

    // Its "VirtualAddress" is a file offset, unlike every other directory's.
    const std::uint64_t entry = optional + shape.directoriesAt + kDirectoryEntryBytes * kCertificateDirectory;
    const std::optional<std::uint32_t> tableOffset = in.U32(entry);
    const std::optional<std::uint32_t> tableSize = in.U32(entry + 4);
    if (!tableOffset || !tableSize) return Problem::kTruncatedHeaders;
    layout.certificateEntryOffset = entry;
    // No bytes, no table, wherever the entry points; the entry itself is
    // still left out of the digest.
    if (*tableSize == 0) return layout;
    const ByteRange table{*tableOffset, *tableSize};
    if (const auto problem = CheckCertificateTable(table, *sectionDataEnd, *sizeOfHeaders, fileSize)) return *problem;
    layout.certificateTable = table;
    return layout;
}

// Each entry: dwLength (its header included), wRevision, wCertificateType,
// then bCertificate; the next starts at the next 8-byte boundary. The table
// holds entries and their padding and nothing else; padding is zero so that
// no byte in it goes unchecked.
Expected<std::vector<CertificateEntry>> ListCertificates(std::span<const std::uint8_t> table)
{
    const LittleEndian in(table);
    std::vector<CertificateEntry> entries;
    for (std::uint64_t at = 0; at < table.size();) {
        const std::optional<std::uint32_t> length = in.U32(at);
        const std::optional<std::uint16_t> revision = in.U16(at + 4);
        const std::optional<std::uint16_t> type = in.U16(at + 6);
        if (!length || !revision || !type) return Problem::kTruncatedCertificateEntry;
        // Also what keeps the walk moving forward.
        if (*length < kCertificateEntryHeaderBytes) return Problem::kBadCertificateEntryLength;
        const std::uint64_t end = at + *length;
        const std::uint64_t next = AlignUp8(end);
        if (!in.Holds(at, next - at)) return Problem::kTruncatedCertificateEntry;
        const auto padding = table.subspan(static_cast<std::size_t>(end), static_cast<std::size_t>(next - end));
        if (std::ranges::any_of(padding, [](std::uint8_t byte) { return byte != 0; })) return Problem::kNonZeroPadding;
        entries.push_back({at, *revision, *type,
                           table.subspan(static_cast<std::size_t>(at + kCertificateEntryHeaderBytes),
                                         static_cast<std::size_t>(*length - kCertificateEntryHeaderBytes))});
        at = next;
    }
    return entries;
}

const CertificateEntry* AuthenticodeEntry(std::span<const CertificateEntry> entries)
{
    const auto first = std::ranges::find(entries, kCertificateTypePkcsSignedData, &CertificateEntry::type);
    return first != entries.end() && first->revision == kCertificateRevision2 ? &*first : nullptr;
}

Expected<Digests> ImageDigest(std::span<const std::uint8_t> file, const Layout& layout, std::span<const Algorithm> algorithms)
{
    if (layout.fileSize != file.size()) return Problem::kFileChanged;
    DigestStream stream(algorithms, SkippedBy(layout));
    stream.Update(file);
    return stream.Finish();
}

Expected<Digests> FlatDigest(std::span<const std::uint8_t> file, std::span<const Algorithm> algorithms)
{
    DigestStream stream(algorithms, {});
    stream.Update(file);
    return stream.Finish();
}

ImageFile::Descriptor& ImageFile::Descriptor::operator=(Descriptor&& other) noexcept
{
    if (this != &other) {
        if (fd_ >= 0) ::close(fd_);
        fd_ = std::exchange(other.fd_, -1);
    }
    return *this;
}

ImageFile::Descriptor::~Descriptor()
{
    if (fd_ >= 0) ::close(fd_);
}

Expected<ImageFile> ImageFile::Open(const std::filesystem::path& path)
{
    // Non-blocking so that a FIFO is refused rather than waited on.
    Descriptor descriptor(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK));
    if (descriptor.Get() < 0) return Problem::kCannotOpen;
    struct stat status {};
    if (::fstat(descriptor.Get(), &status) != 0 || !S_ISREG(status.st_mode) || status.st_size < 0) return Problem::kCannotOpen;
    const auto size = static_cast<std::uint64_t>(status.st_size);
    ::posix_fadvise(descriptor.Get(), 0, 0, POSIX_FADV_SEQUENTIAL);

    std::vector<std::uint8_t> head(static_cast<std::size_t>(std::min<std::uint64_t>(size, kMaxHeaderBytes)));
    const std::optional<std::size_t> got = ReadAt(descriptor.Get(), 0, head);
    if (!got) return Problem::kReadFailed;
    if (*got != head.size()) return Problem::kFileChanged;
    return ImageFile(std::move(descriptor), size, std::move(head));
}

Expected<std::vector<std::uint8_t>> ImageFile::CertificateTable(const Layout& layout) const
{
    if (layout.fileSize != size_) return Problem::kFileChanged;
    if (!layout.certificateTable) return std::vector<std::uint8_t>();
    const ByteRange table = *layout.certificateTable;
    // Checked again, for a layout that ParseHeaders did not make.
    if (table.size > kMaxCertificateTableBytes) return Problem::kCertificateTableTooLarge;
    if (table.offset > size_ || table.size > size_ - table.offset) return Problem::kCertificateTableOutsideFile;
    std::vector<std::uint8_t> bytes(static_cast<std::size_t>(table.size));
    const std::optional<std::size_t> got = ReadAt(descriptor_.Get(), table.offset, bytes);
    if (!got) return Problem::kReadFailed;
    if (*got != bytes.size()) return Problem::kFileChanged;
    if (const auto entries = ListCertificates(bytes); !entries) return entries.Why();
    return bytes;
}

Expected<Digests> ImageFile::ImageDigest(const Layout& layout, std::span<const Algorithm> algorithms,
                                         std::span<const std::uint8_t> certificateTable) const
{
    if (layout.fileSize != size_) return Problem::kFileChanged;
    std::vector<KnownBytes> known{{0, head_}};
    if (!certificateTable.empty()) {
        if (!layout.certificateTable || layout.certificateTable->size != certificateTable.size()) return Problem::kFileChanged;
        known.push_back({layout.certificateTable->offset, certificateTable});
    }
    return Stream(descriptor_.Get(), size_, SkippedBy(layout), algorithms, known);
}

Expected<Digests> ImageFile::FlatDigest(std::span<const Algorithm> algorithms) const
{
    const std::array<KnownBytes, 1> known{{{0, head_}}};
    return Stream(descriptor_.Get(), size_, {}, algorithms, known);
}

} // namespace Kestrel::Authenticode::Pe
