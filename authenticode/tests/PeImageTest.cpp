// PE headers, certificate entries and the Authenticode digest, over small
// images built here with every offset known.
#include "PeImage.h"
#include "support/TempDirectory.h"

#include <fstream>

#include <gtest/gtest.h>
#include <openssl/evp.h>

using namespace Kestrel::Authenticode::Pe;
using Bytes = std::vector<std::uint8_t>;

namespace {

constexpr std::size_t kOptional = 0x58;   // e_lfanew 0x40 + "PE\0\0" + COFF header
constexpr std::size_t kChecksum = 0x98;   // kOptional + 64, both formats
constexpr std::size_t kTableAt = 0x400;   // headers 0x200, one section 0x200
constexpr Algorithm kBoth[] = {Algorithm::kSha1, Algorithm::kSha256};

constexpr std::size_t EntryAt(bool plus) { return kOptional + (plus ? 112 : 96) + 32; }
constexpr std::size_t kEntry = EntryAt(true);

void Put(Bytes& bytes, std::size_t at, std::uint64_t value, int size)
{
    for (int i = 0; i < size; ++i) bytes.at(at + static_cast<std::size_t>(i)) = static_cast<std::uint8_t>(value >> (8 * i));
}

// One WIN_CERTIFICATE, padded to 8 bytes.
Bytes Entry(std::size_t contentSize, std::uint8_t fill = 0x30)
{
    Bytes entry(8 + contentSize, fill);
    Put(entry, 0, entry.size(), 4);
    Put(entry, 4, 0x00020200, 4); // WIN_CERT_REVISION_2_0, WIN_CERT_TYPE_PKCS_SIGNED_DATA
    entry.resize((entry.size() + 7) / 8 * 8, 0);
    return entry;
}

// MZ, PE header, 16 directories, one section at 0x200; the table after it.
Bytes Image(bool plus, const Bytes& table, std::size_t sectionSize = 0x200)
{
    Bytes image(0x200 + sectionSize, 0);
    for (std::size_t i = 0x200; i < image.size(); ++i) image[i] = static_cast<std::uint8_t>(i * 7);
    Put(image, 0, 0x5A4D, 2);
    Put(image, 0x3C, 0x40, 4);
    Put(image, 0x40, 0x4550, 4);
    Put(image, 0x46, 1, 2);                 // NumberOfSections
    Put(image, 0x54, plus ? 240 : 224, 2);  // SizeOfOptionalHeader
    Put(image, kOptional, plus ? 0x20B : 0x10B, 2);
    Put(image, kOptional + 60, 0x200, 4);   // SizeOfHeaders
    Put(image, kChecksum, 0xA5A5A5A5, 4);
    Put(image, kOptional + (plus ? 108 : 92), 16, 4);
    const std::size_t section = kOptional + (plus ? 240u : 224u);
    Put(image, section + 16, sectionSize, 4); // SizeOfRawData
    Put(image, section + 20, 0x200, 4);     // PointerToRawData
    if (!table.empty()) {
        Put(image, EntryAt(plus), image.size(), 4);
        Put(image, EntryAt(plus) + 4, table.size(), 4);
        image.insert(image.end(), table.begin(), table.end());
    }
    return image;
}

Bytes Evp(const EVP_MD* md, const Bytes& bytes)
{
    Bytes value(static_cast<std::size_t>(EVP_MD_get_size(md)));
    unsigned int size = 0;
    EXPECT_EQ(EVP_Digest(bytes.data(), bytes.size(), value.data(), &size, md, nullptr), 1);
    return value;
}

Bytes Sha256Of(const Bytes& file, const Layout& layout)
{
    const auto digests = ImageDigest(file, layout, kBoth);
    return digests ? digests->at(1).value : Bytes();
}

} // namespace

TEST(PeImage, BothFormatsLeaveOutExactlyChecksumEntryAndTable)
{
    for (const bool plus : {false, true}) {
        const Bytes file = Image(plus, Entry(100));
        const auto layout = ParseHeaders(file, file.size());
        ASSERT_TRUE(layout);
        const std::size_t entry = EntryAt(plus);
        EXPECT_EQ(layout->format, plus ? Format::kPe32Plus : Format::kPe32);
        EXPECT_EQ(layout->checksumOffset, kChecksum);
        EXPECT_EQ(layout->certificateEntryOffset, entry);
        EXPECT_EQ(layout->certificateTable, (ByteRange{kTableAt, 112}));
        Bytes kept(file.begin(), file.begin() + kChecksum);
        kept.insert(kept.end(), file.begin() + kChecksum + 4, file.begin() + static_cast<std::ptrdiff_t>(entry));
        kept.insert(kept.end(), file.begin() + static_cast<std::ptrdiff_t>(entry + 8), file.begin() + kTableAt);
        const auto digests = ImageDigest(file, *layout, kBoth);
        ASSERT_TRUE(digests);
        EXPECT_EQ(digests->at(0).value, Evp(EVP_sha1(), kept));
        EXPECT_EQ(digests->at(1).value, Evp(EVP_sha256(), kept));

        for (std::size_t at = 0; at < file.size(); ++at) {
            Bytes changed = file;
            changed[at] ^= 0x01;
            const bool left = (at >= kChecksum && at < kChecksum + 4) || (at >= entry && at < entry + 8) || at >= kTableAt;
            EXPECT_EQ(Sha256Of(changed, *layout) == digests->at(1).value, left) << "byte " << at;
        }
    }
    Bytes bare = Image(true, {});
    Put(bare, kOptional + 108, 4, 4); // no certificate directory at all
    const auto layout = ParseHeaders(bare, bare.size());
    ASSERT_TRUE(layout);
    EXPECT_FALSE(layout->certificateEntryOffset);
    Bytes kept = bare;
    kept.erase(kept.begin() + kChecksum, kept.begin() + kChecksum + 4);
    EXPECT_EQ(Sha256Of(bare, *layout), Evp(EVP_sha256(), kept));
}

// How accepted entries tile the table is the fuzz target's property; here the refusals.
TEST(PeImage, TheSignatureIsTheFirstSignedDataEntryAndMalformedEntriesAreRefused)
{
    Bytes table = Entry(3, 0x11);
    const Bytes second = Entry(9, 0x22);
    table.insert(table.end(), second.begin(), second.end());
    const auto entries = ListCertificates(table);
    ASSERT_TRUE(entries && entries->size() == 2);
    // One of revision 1.0 is no signature.
    std::vector<CertificateEntry> kinds{{0, kCertificateRevision2, 1, {}}, entries->at(0), entries->at(1)};
    EXPECT_EQ(AuthenticodeEntry(kinds), &kinds[1]);
    kinds[1].revision = 0x0100;
    EXPECT_EQ(AuthenticodeEntry(kinds), nullptr);

    const auto listed = [](Bytes bytes) { const auto list = ListCertificates(bytes); return list ? std::optional<Problem>() : list.Why(); };
    EXPECT_EQ(listed({8, 0, 0, 0}), Problem::kTruncatedCertificateEntry);
    EXPECT_EQ(listed({24, 0, 0, 0, 0, 2, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0}), Problem::kTruncatedCertificateEntry);
    EXPECT_EQ(listed({4, 0, 0, 0, 0, 2, 2, 0}), Problem::kBadCertificateEntryLength);
    EXPECT_EQ(listed(Bytes(16, 0)), Problem::kBadCertificateEntryLength); // dwLength 0 must not loop
    table[12] = 1; // padding of the first entry
    EXPECT_EQ(listed(table), Problem::kNonZeroPadding);
}

TEST(PeImage, RefusesEachMalformedHeader)
{
    const std::vector<std::pair<void (*)(Bytes&), Problem>> cases{
        {[](Bytes& f) { f[0] = 'X'; }, Problem::kNotPe},
        {[](Bytes& f) { Put(f, 0x3C, 0xFFFFFFF0, 4); }, Problem::kBadPeHeaderOffset},
        {[](Bytes& f) { Put(f, 0x3C, 0x20, 4); }, Problem::kBadPeHeaderOffset},
        {[](Bytes& f) { f[0x42] = 1; }, Problem::kNoPeSignature},
        {[](Bytes& f) { Put(f, 0x46, 2000, 2); }, Problem::kTruncatedHeaders},
        {[](Bytes& f) { Put(f, kOptional, 0x107, 2); }, Problem::kUnknownOptionalHeader},
        {[](Bytes& f) { Put(f, kOptional + 108, 17, 4); }, Problem::kBadOptionalHeaderSize},
        {[](Bytes& f) { Put(f, kOptional + 60, 0x100, 4); }, Problem::kBadSizeOfHeaders},
        {[](Bytes& f) { Put(f, kOptional + 240 + 20, 0x208, 4); }, Problem::kSectionsNotContiguous},
        {[](Bytes& f) { Put(f, kOptional + 240 + 16, 0x400, 4); }, Problem::kSectionOutsideFile},
        {[](Bytes& f) { Put(f, kEntry + 4, kMaxCertificateTableBytes + 8, 4); }, Problem::kCertificateTableTooLarge},
        {[](Bytes& f) { Put(f, kEntry + 4, 24, 4); }, Problem::kCertificateTableOutsideFile},
        {[](Bytes& f) { Put(f, kEntry, 0x1F8, 4); }, Problem::kCertificateTableOverlapsHeaders},
        {[](Bytes& f) { Put(f, kEntry, kTableAt + 4, 4); Put(f, kEntry + 4, 12, 4); }, Problem::kCertificateTableMisaligned},
        {[](Bytes& f) { f.resize(f.size() + 8); }, Problem::kDataAfterCertificateTable},
        {[](Bytes& f) { Put(f, kOptional + 240 + 16, 0x201, 4); }, Problem::kSectionOverlapsCertificateTable},
    };
    for (const auto& [change, problem] : cases) {
        Bytes file = Image(true, Entry(5));
        change(file);
        const auto layout = ParseHeaders(file, file.size());
        EXPECT_EQ(layout ? std::optional<Problem>() : layout.Why(), problem) << Describe(problem);
    }
}

TEST(PeImage, TheFileGivesTheSameAsMemoryInOnePass)
{
    const KestrelTest::TempDirectory directory;
    // The section crosses the read buffer's 1 MiB boundary.
    const std::size_t tableAt = 0x200 + (1u << 20) + 0x100;
    const Bytes bytes = Image(true, Entry(2000), tableAt - 0x200);
    std::ofstream(directory / "a.exe", std::ios::binary).write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    const auto file = ImageFile::Open(directory / "a.exe");
    ASSERT_TRUE(file);
    const auto layout = file->Headers();
    ASSERT_TRUE(layout);
    const auto table = file->CertificateTable(*layout);
    ASSERT_TRUE(table);
    EXPECT_EQ(*table, Bytes(bytes.begin() + static_cast<std::ptrdiff_t>(tableAt), bytes.end()));
    const auto digests = file->ImageDigest(*layout, kBoth, *table);
    ASSERT_TRUE(digests);
    EXPECT_EQ(digests->at(1).value, Sha256Of(bytes, *layout));
    const auto flat = file->FlatDigest(kBoth);
    ASSERT_TRUE(flat);
    EXPECT_EQ(flat->at(1).value, Evp(EVP_sha256(), bytes));

    Bytes other = *table;
    other.back() ^= 1; // what the file held is not what was checked
    EXPECT_EQ(file->ImageDigest(*layout, kBoth, other).Why(), Problem::kFileChanged);
    std::ofstream(directory / "a.exe", std::ios::binary | std::ios::app) << 'x'; // the file grows
    EXPECT_EQ(file->FlatDigest(kBoth).Why(), Problem::kFileChanged);
    EXPECT_EQ(ImageFile::Open(directory.Path()).Why(), Problem::kCannotOpen);
}
