// Authenticode on the emulated PC: embedded signatures of PE files and
// signatures through the PC's catalogs, judged against the PC's roots.
#include "platform/SignatureVerification.h"

#include "platform/common/Hex.h"
#include "platform/common/StdioFile.h"
#include "platform/common/Utf8.h"
#include "platform/emulated/AuthenticodeSignature.h"
#include "platform/emulated/EmulatedFiles.h"
#include "platform/emulated/EmulatedPc.h"
#include "platform/emulated/PeImage.h"
#include "platform/emulated/SecurityCatalog.h"

#include <openssl/err.h>
#include <openssl/objects.h>
#include <openssl/pem.h>
#include <openssl/sha.h>
#include <openssl/x509.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <sys/stat.h>

namespace Tessel::Bridge::Platform {

namespace {

using namespace Emulated;
namespace Pe = Emulated::Pe;
namespace Catalog = Emulated::Catalog;

constexpr const char* kIndirectDataOid = "1.3.6.1.4.1.311.2.1.4"; // SPC_INDIRECT_DATA_OBJID
constexpr std::uint32_t kErrorFileNotFound = 2;
constexpr std::uint32_t kErrorNotFound = 1168; // no catalog lists the hash
constexpr std::uintmax_t kMaxCatalogBytes = 256u << 20;

struct StoreFree {
    void operator()(X509_STORE* store) const noexcept { X509_STORE_free(store); }
};
using OwnedStore = std::unique_ptr<X509_STORE, StoreFree>;

// Every certificate of a PEM file; a file that cannot be read or holds
// anything else is an error, never an empty store that trusts nothing quietly.
OwnedStore LoadRoots(const std::filesystem::path& pem)
{
    OwnedStore store(X509_STORE_new());
    if (!store) throw std::bad_alloc();
    if (pem.empty()) return store;
    const UniqueStdioFile file(std::fopen(pem.c_str(), "rb"));
    if (!file) throw std::runtime_error("cannot read the trusted roots '" + pem.string() + "'");
    int count = 0;
    while (X509* certificate = PEM_read_X509(file.get(), nullptr, nullptr, nullptr)) {
        const int added = X509_STORE_add_cert(store.get(), certificate);
        X509_free(certificate);
        if (added != 1) break;
        ++count;
    }
    const unsigned long last = ERR_peek_last_error();
    const bool cleanEnd = last == 0 || ERR_GET_REASON(last) == PEM_R_NO_START_LINE;
    ERR_clear_error();
    if (count == 0 || !cleanEnd || std::ferror(file.get())) {
        throw std::runtime_error("the trusted roots '" + pem.string() + "' are not PEM certificates");
    }
    return store;
}

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

// What one pass over a file gives: its embedded signatures, the digests they
// claim, and its catalog tag.
struct FileFacts {
    // Set when the file gives every index the same result.
    std::optional<std::uint32_t> problem;
    std::optional<Authenticode::SignatureSet> signatures;
    Pe::Digests digests;
    // The SHA-256 Authenticode digest of an image, the SHA-256 of every byte
    // of any other file; nothing when the file cannot be read.
    std::optional<std::wstring> tag;
};

class EmulatedSignatureVerifier final : public ISignatureVerifier {
public:
    EmulatedSignatureVerifier(EmulatedPc pc, OwnedStore roots, std::filesystem::path catalogs, bool hostPaths)
        : pc_(std::move(pc)), roots_(std::move(roots)), catalogs_(std::move(catalogs)), hostPaths_(hostPaths)
    {
    }

    SignatureCheck VerifyEmbedded(const std::wstring& path, std::uint32_t index) override
    {
        const FileFacts& embedded = Facts(path);
        SignatureCheck check;
        if (embedded.problem) {
            check.result = *embedded.problem;
            return check;
        }
        const Authenticode::SignatureSet& set = *embedded.signatures;
        const auto matches = [&] {
            const auto claimed = set.Claimed(index);
            const auto algorithm = claimed ? AlgorithmOf(claimed->algorithm) : std::nullopt;
            const auto* digest = algorithm ? Find(embedded.digests, *algorithm) : nullptr;
            return digest != nullptr && *digest == claimed->value;
        };
        return set.Judge(index, kIndirectDataOid, matches, JudgedNow());
    }

    SignatureCheck VerifyThroughCatalog(const CatalogMembership& membership, const std::wstring& path,
                                        std::uint32_t index) override
    {
        SignatureCheck check;
        const auto bytes = ReadSmallFile(Utf8::Encode(membership.catalogPath), kMaxCatalogBytes);
        const auto catalog = bytes ? Catalog::ReadCatalog(*bytes) : std::nullopt;
        const auto set = bytes ? Authenticode::SignatureSet::Parse(*bytes) : std::nullopt;
        if (!catalog || !set) {
            check.result = TrustResult::kBadSignature;
            return check;
        }
        // The file must still have the hash the catalog lists, and the list
        // must be the bytes that this signature covers.
        const std::optional<std::wstring> tag = Facts(path).tag;
        const auto matches = [&] {
            const auto content = set->SignedContent(index);
            return tag && EqualIgnoringCase(*tag, membership.memberTag) && Catalog::Lists(*catalog, *tag) &&
                   std::equal(content.begin(), content.end(), catalog->signedContent.begin(), catalog->signedContent.end());
        };
        return set->Judge(index, Catalog::kCtlOid, matches, JudgedNow());
    }

    std::optional<CatalogMembership> FindCatalog(const std::wstring& path, CatalogLookupFailure& failure) override
    {
        const std::optional<std::wstring> tag = Facts(path).tag;
        if (!tag) {
            failure = {CatalogLookupFailure::Step::HashFile, kErrorFileNotFound};
            return std::nullopt;
        }
        std::vector<std::filesystem::path> files;
        std::error_code listing;
        for (std::filesystem::directory_iterator it(catalogs_, listing), end; !listing && it != end; it.increment(listing)) {
            if (EqualIgnoringCase(Utf8::Decode(it->path().extension().string()), L".cat")) files.push_back(it->path());
        }
        // The same catalog every time when several list the file.
        std::sort(files.begin(), files.end());
        for (const std::filesystem::path& file : files) {
            const auto bytes = ReadSmallFile(file, kMaxCatalogBytes);
            const auto catalog = bytes ? Catalog::ReadCatalog(*bytes) : std::nullopt;
            if (catalog && Catalog::Lists(*catalog, *tag)) return CatalogMembership{Utf8::Decode(file.string()), *tag};
        }
        failure = {CatalogLookupFailure::Step::FindCatalog, kErrorNotFound};
        return std::nullopt;
    }

private:
    Authenticode::Judgement JudgedNow() const { return {roots_.get(), std::time(nullptr)}; }

    // The file is opened as the PC opens it, so the verdict is on the file
    // that the path rules judged.
    std::optional<std::filesystem::path> HostPath(const std::wstring& path) const
    {
        const bool onPc = (path.size() >= 2 && path[1] == L':') || path.starts_with(L"\\\\");
        if (hostPaths_ && !path.empty() && !onPc) return std::filesystem::path(Utf8::Encode(path));
        return HostPathOf(pc_, pc_.Read(), path);
    }

    // Reads the file once for its catalog tag and all of its signature
    // indexes: asked again for the same unchanged file, the verifier answers
    // from what it read. As
    // with git's racy files, a file changed shortly before it was read may
    // change again without a new time stamp, so it is not kept.
    const FileFacts& Facts(const std::wstring& path)
    {
        const auto host = HostPath(path);
        struct stat status{};
        if (host && cachedIdentity_ && ::stat(host->c_str(), &status) == 0 && cachedPath_ == *host &&
            *cachedIdentity_ == Identity(status)) {
            return cached_;
        }
        const std::time_t readAt = std::time(nullptr);
        const bool settled = host && ::stat(host->c_str(), &status) == 0 &&
                             std::max(status.st_mtim.tv_sec, status.st_ctim.tv_sec) + 2 < readAt;
        cached_ = Read(host);
        cachedPath_ = host.value_or(std::filesystem::path());
        cachedIdentity_.reset();
        if (settled) cachedIdentity_ = Identity(status);
        return cached_;
    }

    struct FileIdentity {
        dev_t device = 0;
        ino_t inode = 0;
        off_t size = -1;
        std::int64_t modified = 0;
        std::int64_t changed = 0;
        friend bool operator==(const FileIdentity&, const FileIdentity&) = default;
    };

    static FileIdentity Identity(const struct stat& status)
    {
        return {status.st_dev, status.st_ino, status.st_size,
                static_cast<std::int64_t>(status.st_mtim.tv_sec) * 1'000'000'000 + status.st_mtim.tv_nsec,
                static_cast<std::int64_t>(status.st_ctim.tv_sec) * 1'000'000'000 + status.st_ctim.tv_nsec};
    }

    static FileFacts Read(const std::optional<std::filesystem::path>& host)
    {
        FileFacts read;
        auto image = host ? Pe::ImageFile::Open(*host) : Pe::Expected<Pe::ImageFile>(Pe::Problem::kCannotOpen);
        if (!image) {
            read.problem = image.Why() == Pe::Problem::kCannotOpen ? TrustResult::kNoSignature : TrustResult::kFileError;
            return read;
        }
        std::vector<Pe::Algorithm> algorithms{Pe::Algorithm::kSha256};
        const auto layout = image->Headers();
        if (!layout) {
            // Headers that hold together around a table Windows would not
            // read leave an image without a signature; others, no image.
            read.problem = Pe::IsCertificateTableProblem(layout.Why()) ? TrustResult::kNoSignature : TrustResult::kSubjectFormUnknown;
            return Hashed(read, image->FlatDigest(algorithms));
        }
        // A table Windows could read in another way than this one is no
        // signature; so is one without a PKCS#7 SignedData entry to read.
        const auto table = layout->certificateTable ? image->CertificateTable(*layout)
                                                    : Pe::Expected<std::vector<std::uint8_t>>(std::vector<std::uint8_t>());
        const auto entries = table ? Pe::ListCertificates(*table) : Pe::Expected<std::vector<Pe::CertificateEntry>>(table.Why());
        const Pe::CertificateEntry* entry = layout->certificateTable && entries ? Pe::AuthenticodeEntry(*entries) : nullptr;
        if (entry == nullptr) {
            read.problem = TrustResult::kNoSignature;
            return Hashed(read, image->ImageDigest(*layout, algorithms));
        }
        read.signatures = Authenticode::SignatureSet::Parse(entry->content);
        if (!read.signatures) read.problem = TrustResult::kBadSignature;
        for (std::size_t i = 0; read.signatures && i < read.signatures->Count(); ++i) {
            const auto claimed = read.signatures->Claimed(i);
            const auto algorithm = claimed ? AlgorithmOf(claimed->algorithm) : std::nullopt;
            if (algorithm && std::find(algorithms.begin(), algorithms.end(), *algorithm) == algorithms.end()) {
                algorithms.push_back(*algorithm);
            }
        }
        return Hashed(read, image->ImageDigest(*layout, algorithms, *table));
    }

    static FileFacts Hashed(FileFacts& read, Pe::Expected<Pe::Digests>&& digests)
    {
        if (!digests) {
            read.problem = TrustResult::kFileError;
            return std::move(read);
        }
        read.digests = std::move(*digests);
        read.tag = HexDigits(*Find(read.digests, Pe::Algorithm::kSha256), true);
        return std::move(read);
    }

    EmulatedPc pc_;
    OwnedStore roots_;
    std::filesystem::path catalogs_;
    bool hostPaths_;
    FileFacts cached_;
    std::filesystem::path cachedPath_;
    std::optional<FileIdentity> cachedIdentity_;
};

std::unique_ptr<ISignatureVerifier> Create(const TrustSources& sources)
{
    EmulatedPc pc = EmulatedPc::FromEnvironment();
    const State state = pc.Read();
    const State& trust = Member(state, "trust");
    std::filesystem::path roots = sources.roots;
    if (roots.empty() && !Member(trust, "roots").is_null()) roots = HostPathFromState(pc, Member(trust, "roots"), "/trust/roots");
    std::filesystem::path catalogs = sources.catalogs;
    if (catalogs.empty() && !Member(trust, "catalogs").is_null()) {
        catalogs = HostPathFromState(pc, Member(trust, "catalogs"), "/trust/catalogs");
    }
    // A drive the file maps to no folder is reported now, not at the first path on it.
    for (const auto& [drive, folder] : Member(state, "drives").items()) {
        if (!folder.is_null()) HostPathFromState(pc, folder, ("/drives/" + drive).c_str());
    }
    return std::make_unique<EmulatedSignatureVerifier>(std::move(pc), LoadRoots(roots), std::move(catalogs), sources.hostPaths);
}

} // namespace

std::vector<std::uint8_t> Sha256Of(std::span<const std::uint8_t> bytes)
{
    std::vector<std::uint8_t> digest(SHA256_DIGEST_LENGTH);
    SHA256(bytes.data(), bytes.size(), digest.data());
    return digest;
}

std::unique_ptr<ISignatureVerifier> CreateSignatureVerifier()
{
    return Create({});
}

std::unique_ptr<ISignatureVerifier> CreateSignatureVerifier(const TrustSources& sources)
{
    return Create(sources);
}

} // namespace Tessel::Bridge::Platform
