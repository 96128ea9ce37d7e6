// Authenticode on the emulated PC: the engine of authenticode/ over the PC's
// drives, its trusted roots and its catalog folder.
#include "platform/SignatureVerification.h"

#include "platform/common/Utf8.h"
#include "platform/emulated/EmulatedFiles.h"
#include "platform/emulated/EmulatedPc.h"

#include <kestrel/Authenticode.h>

#include <openssl/sha.h>

namespace Tessel::Bridge::Platform {

namespace {

namespace Authenticode = ::Kestrel::Authenticode;
using namespace Emulated;

constexpr std::uint32_t kErrorFileNotFound = 2;
constexpr std::uint32_t kErrorNotFound = 1168; // no catalog lists the hash

SignatureCheck CheckOf(const Authenticode::Signature& signature)
{
    SignatureCheck check{signature.result, signature.secondarySignatures, std::nullopt, signature.digestAlgorithm, std::nullopt};
    if (signature.signer) check.signer = Signer{Utf8::Decode(signature.signer->subject), signature.signer->publicKey};
    if (signature.timestamp) {
        const bool rfc3161 = signature.timestamp->kind == Authenticode::Timestamp::Kind::Rfc3161;
        check.timestamp = Timestamp{rfc3161 ? Timestamp::Kind::Rfc3161 : Timestamp::Kind::Countersignature, signature.timestamp->time};
    }
    return check;
}

class EmulatedSignatureVerifier final : public ISignatureVerifier {
public:
    EmulatedSignatureVerifier(EmulatedPc pc, Authenticode::TrustSources trust) : pc_(std::move(pc)), engine_(std::move(trust)) {}

    SignatureCheck VerifyEmbedded(const std::wstring& path, std::uint32_t index) override
    {
        return CheckOf(engine_.VerifyEmbedded(HostPath(path), index));
    }

    SignatureCheck VerifyThroughCatalog(const CatalogMembership& membership, const std::wstring& path,
                                        std::uint32_t index) override
    {
        const Authenticode::CatalogListing listing{Utf8::Encode(membership.catalogPath), Utf8::Encode(membership.memberTag)};
        return CheckOf(engine_.VerifyThroughCatalog(listing, HostPath(path), index));
    }

    std::optional<CatalogMembership> FindCatalog(const std::wstring& path, CatalogLookupFailure& failure) override
    {
        const std::optional<std::string> tag = engine_.MemberTag(HostPath(path));
        if (!tag) {
            failure = {CatalogLookupFailure::Step::HashFile, kErrorFileNotFound};
            return std::nullopt;
        }
        const auto listing = engine_.FindCatalog(*tag);
        if (!listing) {
            failure = {CatalogLookupFailure::Step::FindCatalog, kErrorNotFound};
            return std::nullopt;
        }
        return CatalogMembership{Utf8::Decode(listing->catalog.string()), Utf8::Decode(listing->memberTag)};
    }

private:
    // The file is opened as the PC opens it, so the verdict is on the file
    // that the path rules judged; a path to no file is the empty path, which
    // no file has.
    std::filesystem::path HostPath(const std::wstring& path) const { return HostPathOf(pc_, pc_.Read(), path).value_or(std::filesystem::path()); }

    EmulatedPc pc_;
    Authenticode::Verifier engine_;
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
    Authenticode::TrustSources engineTrust(roots.empty() ? Authenticode::Roots() : Authenticode::Roots::FromPemFile(roots));
    if (!catalogs.empty()) engineTrust.catalogs.push_back(std::move(catalogs));
    return std::make_unique<EmulatedSignatureVerifier>(std::move(pc), std::move(engineTrust));
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
