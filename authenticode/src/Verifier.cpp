// The library's face: files by path or bytes, trust from the sources given.
#include "kestrel/Authenticode.h"

#include "AuthenticodeSignature.h"
#include "Hex.h"
#include "PeImage.h"
#include "SecurityCatalog.h"

#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

#include <algorithm>
#include <ctime>
#include <fstream>
#include <iterator>
#include <mutex>
#include <stdexcept>
#include <sys/stat.h>

namespace Kestrel::Authenticode {

namespace {

// The next DER element of `bytes`: the whole element, and its content.
std::optional<std::pair<std::span<const std::uint8_t>, std::span<const std::uint8_t>>> NextElement(std::span<const std::uint8_t> bytes)
{
    if (bytes.size() < 2) return std::nullopt;
    std::size_t header = 2;
    std::size_t length = bytes[1];
    if (length & 0x80) {
        const std::size_t octets = length & 0x7f;
        if (octets == 0 || octets > 4 || bytes.size() < 2 + octets) return std::nullopt;
        length = 0;
        for (std::size_t i = 0; i < octets; ++i) length = length << 8 | bytes[2 + i];
        header += octets;
    }
    if (length > bytes.size() - header) return std::nullopt;
    return std::pair{bytes.first(header + length), bytes.subspan(header, length)};
}

// A certificate's subject, read without decoding the rest of it.
X509_NAME* SubjectOf(std::span<const std::uint8_t> der)
{
    const auto certificate = NextElement(der);
    const auto tbs = certificate ? NextElement(certificate->second) : std::nullopt;
    if (!tbs) return nullptr;
    std::span<const std::uint8_t> rest = tbs->second;
    // [0] version, serial number, signature algorithm, issuer, validity, subject
    const bool versioned = !rest.empty() && rest[0] == 0xa0;
    for (int field = versioned ? 0 : 1; field < 5; ++field) {
        const auto element = NextElement(rest);
        if (!element) return nullptr;
        rest = rest.subspan(element->first.size());
    }
    const auto subject = NextElement(rest);
    if (!subject) return nullptr;
    const unsigned char* cursor = subject->first.data();
    return d2i_X509_NAME(nullptr, &cursor, static_cast<long>(subject->first.size()));
}

} // namespace

// Roots are read when a chain asks for their subject: decoding a
// certificate's key is most of what reading one costs, and a bundle of a
// hundred and fifty roots serves a file that needs one or two.
struct Roots::Store {
    struct Free {
        void operator()(X509_STORE* owned) const noexcept { X509_STORE_free(owned); }
        void operator()(X509_NAME* owned) const noexcept { X509_NAME_free(owned); }
        void operator()(X509* owned) const noexcept { X509_free(owned); }
        void operator()(X509_LOOKUP_METHOD* owned) const noexcept { X509_LOOKUP_meth_free(owned); }
    };
    struct Pending {
        std::unique_ptr<X509_NAME, Free> subject;
        std::vector<std::uint8_t> der;
        std::unique_ptr<X509, Free> certificate; // once decoded, and in the store
    };

    Store();
    static int LookUp(X509_LOOKUP* lookup, X509_LOOKUP_TYPE type, const X509_NAME* name, X509_OBJECT* found);

    // The store goes first, as it uses the method.
    std::unique_ptr<X509_LOOKUP_METHOD, Free> method{X509_LOOKUP_meth_new("kestrel roots")};
    std::unique_ptr<X509_STORE, Free> store{X509_STORE_new()};
    std::mutex lock;
    std::vector<Pending> pending;
};

struct RootsAccess {
    static X509_STORE* Of(const Roots& roots) noexcept { return roots.store_->store.get(); }
};

// Adds the roots named `name` to the store, and lends the first to the
// caller: OpenSSL takes its own reference to what a lookup gives.
int Roots::Store::LookUp(X509_LOOKUP* lookup, X509_LOOKUP_TYPE type, const X509_NAME* name, X509_OBJECT* found)
{
    auto* roots = static_cast<Store*>(X509_LOOKUP_get_method_data(lookup));
    if (type != X509_LU_X509 || roots == nullptr) return 0;
    const std::lock_guard guard(roots->lock);
    X509* first = nullptr;
    for (Pending& root : roots->pending) {
        if (X509_NAME_cmp(root.subject.get(), name) != 0) continue;
        if (root.certificate == nullptr) {
            const unsigned char* cursor = root.der.data();
            root.certificate.reset(d2i_X509(nullptr, &cursor, static_cast<long>(root.der.size())));
            if (root.certificate == nullptr || X509_STORE_add_cert(roots->store.get(), root.certificate.get()) != 1) {
                root.certificate.reset();
                continue;
            }
        }
        if (first == nullptr) first = root.certificate.get();
    }
    ERR_clear_error();
    if (first == nullptr || X509_OBJECT_set1_X509(found, first) != 1) return 0;
    X509_free(first); // the reference set1 took: `found` only borrows it
    return 1;
}

Roots::Store::Store()
{
    if (method == nullptr || store == nullptr || X509_LOOKUP_meth_set_get_by_subject(method.get(), LookUp) != 1) throw std::bad_alloc();
    X509_LOOKUP* lookup = X509_STORE_add_lookup(store.get(), method.get());
    if (lookup == nullptr || X509_LOOKUP_set_method_data(lookup, this) != 1) throw std::bad_alloc();
}

namespace {

constexpr const char* kIndirectDataOid = "1.3.6.1.4.1.311.2.1.4"; // SPC_INDIRECT_DATA_OBJID
constexpr std::uintmax_t kMaxCatalogBytes = 256u << 20;

std::optional<Pe::Algorithm> AlgorithmOf(int nid)
{
    if (nid == NID_sha1) return Pe::Algorithm::kSha1;
    if (nid == NID_sha256) return Pe::Algorithm::kSha256;
    return std::nullopt;
}

const std::vector<std::uint8_t>* Find(const Pe::Digests& digests, Pe::Algorithm algorithm)
{
    for (const Pe::Digest& digest : digests) {
        if (digest.algorithm == algorithm) return &digest.value;
    }
    return nullptr;
}

std::optional<std::vector<std::uint8_t>> ReadSmallFile(const std::filesystem::path& path, std::uintmax_t limit)
{
    std::error_code error;
    const std::uintmax_t size = std::filesystem::file_size(path, error);
    if (error || size > limit) return std::nullopt;
    std::ifstream in(path, std::ios::binary);
    std::vector<std::uint8_t> bytes(static_cast<std::size_t>(size));
    if (!in.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()))) return std::nullopt;
    if (in.peek() != std::char_traits<char>::eof()) return std::nullopt;
    return bytes;
}

bool EqualIgnoringCase(std::string_view a, std::string_view b)
{
    const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; };
    return std::ranges::equal(a, b, [&](char x, char y) { return lower(x) == lower(y); });
}

// A file in memory, read as an ImageFile is.
class MemoryImage {
public:
    explicit MemoryImage(std::span<const std::uint8_t> bytes) : bytes_(bytes) {}

    Pe::Expected<Pe::Layout> Headers() const { return Pe::ParseHeaders(bytes_, bytes_.size()); }
    Pe::Expected<std::vector<std::uint8_t>> CertificateTable(const Pe::Layout& layout) const
    {
        if (!layout.certificateTable) return std::vector<std::uint8_t>();
        const auto table = bytes_.subspan(static_cast<std::size_t>(layout.certificateTable->offset),
                                          static_cast<std::size_t>(layout.certificateTable->size));
        if (const auto entries = Pe::ListCertificates(table); !entries) return entries.Why();
        return std::vector<std::uint8_t>(table.begin(), table.end());
    }
    Pe::Expected<Pe::Digests> ImageDigest(const Pe::Layout& layout, std::span<const Pe::Algorithm> algorithms,
                                          std::span<const std::uint8_t>) const
    {
        return Pe::ImageDigest(bytes_, layout, algorithms);
    }
    Pe::Expected<Pe::Digests> FlatDigest(std::span<const Pe::Algorithm> algorithms) const { return Pe::FlatDigest(bytes_, algorithms); }

private:
    std::span<const std::uint8_t> bytes_;
};

// What one pass over a file gives: its embedded signatures, the digests they
// claim, and its catalog tag.
struct FileFacts {
    // Set when the file gives every index the same result.
    std::optional<std::uint32_t> problem;
    std::optional<Signatures::SignatureSet> signatures;
    Pe::Digests digests;
    // The SHA-256 Authenticode digest of an image, the SHA-256 of every byte
    // of any other file; nothing when the file cannot be read.
    std::optional<std::string> tag;
};

FileFacts Hashed(FileFacts& read, Pe::Expected<Pe::Digests>&& digests)
{
    if (!digests) {
        read.problem = Result::kFileError;
        return std::move(read);
    }
    read.digests = std::move(*digests);
    read.tag = HexDigits(*Find(read.digests, Pe::Algorithm::kSha256));
    return std::move(read);
}

template <typename Image>
FileFacts ReadFacts(const Image& image)
{
    FileFacts read;
    std::vector<Pe::Algorithm> algorithms{Pe::Algorithm::kSha256};
    const auto layout = image.Headers();
    if (!layout) {
        // Headers that hold together around a table Windows would not
        // read leave an image without a signature; others, no image.
        read.problem = Pe::IsCertificateTableProblem(layout.Why()) ? Result::kNoSignature : Result::kSubjectFormUnknown;
        return Hashed(read, image.FlatDigest(algorithms));
    }
    // A table Windows could read in another way than this one is no
    // signature; so is one without a PKCS#7 SignedData entry to read.
    const auto table = layout->certificateTable ? image.CertificateTable(*layout)
                                                : Pe::Expected<std::vector<std::uint8_t>>(std::vector<std::uint8_t>());
    const auto entries = table ? Pe::ListCertificates(*table) : Pe::Expected<std::vector<Pe::CertificateEntry>>(table.Why());
    const Pe::CertificateEntry* entry = layout->certificateTable && entries ? Pe::AuthenticodeEntry(*entries) : nullptr;
    if (entry == nullptr) {
        read.problem = Result::kNoSignature;
        return Hashed(read, image.ImageDigest(*layout, algorithms, {}));
    }
    read.signatures = Signatures::SignatureSet::Parse(entry->content);
    if (!read.signatures) read.problem = Result::kBadSignature;
    for (std::size_t i = 0; read.signatures && i < read.signatures->Count(); ++i) {
        const auto claimed = read.signatures->Claimed(i);
        const auto algorithm = claimed ? AlgorithmOf(claimed->algorithm) : std::nullopt;
        if (algorithm && std::find(algorithms.begin(), algorithms.end(), *algorithm) == algorithms.end()) {
            algorithms.push_back(*algorithm);
        }
    }
    return Hashed(read, image.ImageDigest(*layout, algorithms, *table));
}

FileFacts ReadFacts(const std::filesystem::path& path)
{
    const auto image = Pe::ImageFile::Open(path);
    if (!image) {
        FileFacts read;
        read.problem = image.Why() == Pe::Problem::kCannotOpen ? Result::kNoSignature : Result::kFileError;
        return read;
    }
    return ReadFacts(*image);
}

// Which file a path named when it was read, to tell whether it changed since.
struct FileIdentity {
    dev_t device = 0;
    ino_t inode = 0;
    off_t size = -1;
    std::int64_t modified = 0;
    std::int64_t changed = 0;
    friend bool operator==(const FileIdentity&, const FileIdentity&) = default;
};

FileIdentity Identity(const struct stat& status)
{
    return {status.st_dev, status.st_ino, status.st_size,
            static_cast<std::int64_t>(status.st_mtim.tv_sec) * 1'000'000'000 + status.st_mtim.tv_nsec,
            static_cast<std::int64_t>(status.st_ctim.tv_sec) * 1'000'000'000 + status.st_ctim.tv_nsec};
}

Signature EmbeddedSignature(const FileFacts& embedded, std::uint32_t index, const Signatures::Judgement& judgement)
{
    if (embedded.problem) {
        Signature check;
        check.result = *embedded.problem;
        return check;
    }
    const Signatures::SignatureSet& set = *embedded.signatures;
    const auto matches = [&] {
        const auto claimed = set.Claimed(index);
        const auto algorithm = claimed ? AlgorithmOf(claimed->algorithm) : std::nullopt;
        const auto* digest = algorithm ? Find(embedded.digests, *algorithm) : nullptr;
        return digest != nullptr && *digest == claimed->value;
    };
    return set.Judge(index, kIndirectDataOid, matches, judgement);
}

Signature CatalogSignature(const CatalogListing& listing, const std::optional<std::string>& tag, std::uint32_t index,
                           const Signatures::Judgement& judgement)
{
    const auto bytes = ReadSmallFile(listing.catalog, kMaxCatalogBytes);
    const auto catalog = bytes ? Catalog::ReadCatalog(*bytes) : std::nullopt;
    const auto set = bytes ? Signatures::SignatureSet::Parse(*bytes) : std::nullopt;
    if (!catalog || !set) {
        Signature check;
        check.result = Result::kBadSignature;
        return check;
    }
    // The file must still have the hash the catalog lists, and the list
    // must be the bytes that this signature covers.
    const auto matches = [&] {
        const auto content = set->SignedContent(index);
        return tag && EqualIgnoringCase(*tag, listing.memberTag) && Catalog::Lists(*catalog, std::wstring(tag->begin(), tag->end())) &&
               std::ranges::equal(content, catalog->signedContent);
    };
    return set->Judge(index, Catalog::kCtlOid, matches, judgement);
}

// Signatures 0, 1, ... until the count of secondary signatures says the last.
template <typename Verify>
std::vector<Signature> AllSignatures(const Verify& verify)
{
    std::vector<Signature> all;
    for (std::uint32_t index = 0;; ++index) {
        all.push_back(verify(index));
        if (all.back().secondarySignatures < index + 1) return all;
    }
}

} // namespace

Roots::Roots() : store_(std::make_shared<Store>())
{
    if (store_->store == nullptr) throw std::bad_alloc();
}

Roots Roots::FromPem(std::string_view pem)
{
    Roots roots;
    struct BioFree {
        void operator()(BIO* bio) const noexcept { BIO_free(bio); }
    };
    const std::unique_ptr<BIO, BioFree> in(BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())));
    if (in == nullptr || pem.size() > INT32_MAX) throw std::runtime_error("the trusted roots cannot be read");
    bool clean = true;
    for (;;) {
        char* type = nullptr;
        char* header = nullptr;
        unsigned char* data = nullptr;
        long size = 0;
        if (PEM_read_bio(in.get(), &type, &header, &data, &size) != 1) break;
        const std::string_view kind(type);
        if (kind == PEM_STRING_X509 || kind == PEM_STRING_X509_OLD) {
            Store::Pending root{{}, std::vector<std::uint8_t>(data, data + size), {}};
            root.subject.reset(SubjectOf(root.der));
            if (root.subject != nullptr) roots.store_->pending.push_back(std::move(root));
            else clean = false;
        } else {
            clean = false;
        }
        OPENSSL_free(type);
        OPENSSL_free(header);
        OPENSSL_free(data);
        if (!clean) break;
    }
    // An empty store would trust nothing quietly: anything but certificates is an error.
    const unsigned long last = ERR_peek_last_error();
    clean = clean && (last == 0 || ERR_GET_REASON(last) == PEM_R_NO_START_LINE);
    ERR_clear_error();
    if (roots.store_->pending.empty() || !clean) throw std::runtime_error("the trusted roots are not PEM certificates");
    return roots;
}

Roots Roots::FromPemFile(const std::filesystem::path& file)
{
    std::ifstream in(file, std::ios::binary);
    std::string text{std::istreambuf_iterator<char>(in), {}};
    if (!in || in.bad()) throw std::runtime_error("cannot read the trusted roots '" + file.string() + "'");
    try {
        return FromPem(text);
    } catch (const std::runtime_error&) {
        throw std::runtime_error("the trusted roots '" + file.string() + "' are not PEM certificates");
    }
}

void Roots::Add(std::span<const std::uint8_t> der)
{
    const unsigned char* cursor = der.data();
    X509* certificate = der.size() > INT32_MAX ? nullptr : d2i_X509(nullptr, &cursor, static_cast<long>(der.size()));
    const bool whole = certificate != nullptr && cursor == der.data() + der.size();
    const bool added = whole && X509_STORE_add_cert(store_->store.get(), certificate) == 1;
    X509_free(certificate);
    ERR_clear_error();
    if (!added) throw std::invalid_argument("not a DER certificate");
}

bool FileReport::TrustedByWindows() const
{
    const auto trusted = [](const Signature& s) { return Result::CountsAsTrusted(s.result); };
    return std::ranges::any_of(catalogSignatures, trusted) || std::ranges::any_of(embedded, trusted);
}

struct Verifier::State {
    TrustSources trust;
    // The facts of the last file read by path, while it stays unchanged.
    FileFacts cached;
    std::filesystem::path cachedPath;
    std::optional<FileIdentity> cachedIdentity;

    Signatures::Judgement Now() const
    {
        return {RootsAccess::Of(trust.roots), static_cast<std::time_t>(trust.time.value_or(std::time(nullptr)))};
    }

    // Reads the file once for its catalog tag and all of its signature
    // indexes: asked again for the same unchanged file, the verifier answers
    // from what it read. As with git's racy files, a file changed shortly
    // before it was read may change again without a new time stamp, so it is
    // not kept.
    const FileFacts& Facts(const std::filesystem::path& path)
    {
        struct stat status{};
        if (cachedIdentity && cachedPath == path && ::stat(path.c_str(), &status) == 0 && *cachedIdentity == Identity(status)) {
            return cached;
        }
        const std::time_t readAt = std::time(nullptr);
        const bool settled = ::stat(path.c_str(), &status) == 0 && std::max(status.st_mtim.tv_sec, status.st_ctim.tv_sec) + 2 < readAt;
        cached = ReadFacts(path);
        cachedPath = path;
        cachedIdentity.reset();
        if (settled) cachedIdentity = Identity(status);
        return cached;
    }
};

Verifier::Verifier(TrustSources trust) : state_(std::make_unique<State>(State{std::move(trust), {}, {}, {}})) {}
Verifier::~Verifier() = default;
Verifier::Verifier(Verifier&&) noexcept = default;
Verifier& Verifier::operator=(Verifier&&) noexcept = default;

Signature Verifier::VerifyEmbedded(const std::filesystem::path& file, std::uint32_t index)
{
    return EmbeddedSignature(state_->Facts(file), index, state_->Now());
}

Signature Verifier::VerifyEmbedded(std::span<const std::uint8_t> file, std::uint32_t index)
{
    return EmbeddedSignature(ReadFacts(MemoryImage(file)), index, state_->Now());
}

std::optional<std::string> Verifier::MemberTag(const std::filesystem::path& file)
{
    return state_->Facts(file).tag;
}

std::optional<std::string> Verifier::MemberTag(std::span<const std::uint8_t> file)
{
    return ReadFacts(MemoryImage(file)).tag;
}

std::optional<CatalogListing> Verifier::FindCatalog(std::string_view memberTag) const
{
    std::vector<std::filesystem::path> files;
    for (const std::filesystem::path& source : state_->trust.catalogs) {
        std::error_code error;
        if (!std::filesystem::is_directory(source, error)) {
            files.push_back(source);
            continue;
        }
        for (std::filesystem::directory_iterator it(source, error), end; !error && it != end; it.increment(error)) {
            if (EqualIgnoringCase(it->path().extension().string(), ".cat")) files.push_back(it->path());
        }
    }
    // The same catalog every time when several list the file.
    std::sort(files.begin(), files.end());
    const std::wstring tag(memberTag.begin(), memberTag.end());
    for (const std::filesystem::path& file : files) {
        const auto bytes = ReadSmallFile(file, kMaxCatalogBytes);
        const auto catalog = bytes ? Catalog::ReadCatalog(*bytes) : std::nullopt;
        if (catalog && Catalog::Lists(*catalog, tag)) return CatalogListing{file, std::string(memberTag)};
    }
    return std::nullopt;
}

Signature Verifier::VerifyThroughCatalog(const CatalogListing& listing, const std::filesystem::path& file, std::uint32_t index)
{
    return CatalogSignature(listing, state_->Facts(file).tag, index, state_->Now());
}

Signature Verifier::VerifyThroughCatalog(const CatalogListing& listing, std::span<const std::uint8_t> file, std::uint32_t index)
{
    return CatalogSignature(listing, ReadFacts(MemoryImage(file)).tag, index, state_->Now());
}

FileReport Verifier::Verify(const std::filesystem::path& file)
{
    FileReport report;
    if (const auto tag = MemberTag(file)) report.catalog = FindCatalog(*tag);
    if (report.catalog) {
        report.catalogSignatures = AllSignatures([&](std::uint32_t i) { return VerifyThroughCatalog(*report.catalog, file, i); });
    }
    report.embedded = AllSignatures([&](std::uint32_t i) { return VerifyEmbedded(file, i); });
    return report;
}

FileReport Verifier::Verify(std::span<const std::uint8_t> file)
{
    // One reading of the bytes for every question.
    const FileFacts facts = ReadFacts(MemoryImage(file));
    const Signatures::Judgement judgement = state_->Now();
    FileReport report;
    if (facts.tag) report.catalog = FindCatalog(*facts.tag);
    if (report.catalog) {
        report.catalogSignatures = AllSignatures([&](std::uint32_t i) { return CatalogSignature(*report.catalog, facts.tag, i, judgement); });
    }
    report.embedded = AllSignatures([&](std::uint32_t i) { return EmbeddedSignature(facts, i, judgement); });
    return report;
}

} // namespace Kestrel::Authenticode
