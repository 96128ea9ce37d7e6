// PE headers, certificate entries and the image digest over arbitrary bytes,
// against a byte-by-byte reference digest of what an accepted layout keeps.
#include "FuzzSupport.h"

#include "PeImage.h"

#include <algorithm>
#include <cstdint>
#include <span>
#include <vector>

#include <openssl/evp.h>

using KestrelFuzz::Require;
using namespace Kestrel::Authenticode::Pe;

namespace {

constexpr Algorithm kSha256[] = {Algorithm::kSha256};

std::vector<std::uint8_t> Sha256(std::span<const std::uint8_t> bytes)
{
    std::vector<std::uint8_t> value(32);
    Require(EVP_Digest(bytes.data(), bytes.size(), value.data(), nullptr, EVP_sha256(), nullptr) == 1, "OpenSSL hashes");
    return value;
}

// Accepted entries tile the table: each starts where the last one's padding ends.
void CheckEntries(std::span<const std::uint8_t> table)
{
    const auto entries = ListCertificates(table);
    if (!entries) return;
    std::uint64_t next = 0;
    for (const CertificateEntry& entry : *entries) {
        Require(entry.offset == next && entry.content.data() == table.subspan(entry.offset + 8).data(), "entries follow each other");
        next = (entry.offset + 8 + entry.content.size() + 7) / 8 * 8;
    }
    Require(next == table.size(), "entries and padding fill the table");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::span<const std::uint8_t> file(data, size);
    CheckEntries(file);
    const auto flat = FlatDigest(file, kSha256);
    Require(flat && flat->at(0).value == Sha256(file), "the flat digest is SHA-256");

    const auto layout = ParseHeaders(file, size);
    const auto fromHead = ParseHeaders(file.first(std::min(size, kMaxHeaderBytes)), size);
    Require(bool(layout) == bool(fromHead) && (layout || layout.Why() == fromHead.Why()), "the head alone decides");
    if (!layout) return 0;

    const std::uint64_t checksum = layout->checksumOffset;
    const std::uint64_t entry = layout->certificateEntryOffset.value_or(checksum);
    Require(checksum + 4 <= layout->sizeOfHeaders && entry + 8 <= layout->sizeOfHeaders && layout->sizeOfHeaders <= size,
            "the excluded fields lie in the headers, the headers in the file");
    const ByteRange table = layout->certificateTable.value_or(ByteRange{size, 0});
    Require(table.size <= kMaxCertificateTableBytes && table.offset >= layout->sizeOfHeaders && table.offset + table.size == size &&
                (!layout->certificateTable || (table.size > 0 && (table.offset | table.size) % 8 == 0)),
            "an accepted table is aligned, after the headers and at the end");
    CheckEntries(file.subspan(table.offset));

    std::vector<std::uint8_t> kept;
    for (std::uint64_t at = 0; at < table.offset; ++at) {
        // Unsigned differences: below the field they wrap to large values.
        const bool left = at - checksum < 4 || (layout->certificateEntryOffset && at - entry < 8);
        if (!left) kept.push_back(file[at]);
    }
    const auto digests = ImageDigest(file, *layout, kSha256);
    Require(digests && digests->at(0).value == Sha256(kept), "the image digest hashes exactly the kept bytes");
    return 0;
}
