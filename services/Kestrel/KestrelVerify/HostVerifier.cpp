// KestrelVerify off Windows: the Authenticode engine on the host's own files,
// trusting only the roots and catalogs named on the command line.
#include "FileVerifier.h"

#include "platform/common/Utf8.h"

#include <kestrel/Authenticode.h>

namespace Tessel::Bridge::Server::Services::Kestrel {

namespace {

namespace Authenticode = ::Kestrel::Authenticode;
namespace Utf8 = Platform::Utf8;
using Platform::SignatureCheck;

constexpr std::uint32_t kErrorFileNotFound = 2;
constexpr std::uint32_t kErrorNotFound = 1168; // no catalog lists the hash

SignatureCheck CheckOf(const Authenticode::Signature& signature)
{
    SignatureCheck check{signature.result, signature.secondarySignatures, std::nullopt, signature.digestAlgorithm, std::nullopt};
    if (signature.signer) check.signer = Platform::Signer{Utf8::Decode(signature.signer->subject), signature.signer->publicKey};
    if (signature.timestamp) {
        using Kind = Platform::Timestamp::Kind;
        const bool rfc3161 = signature.timestamp->kind == Authenticode::Timestamp::Kind::Rfc3161;
        check.timestamp = Platform::Timestamp{rfc3161 ? Kind::Rfc3161 : Kind::Countersignature, signature.timestamp->time};
    }
    return check;
}

std::filesystem::path HostPath(const std::wstring& path)
{
    return Utf8::Encode(path);
}

class HostVerifier final : public Platform::ISignatureVerifier {
public:
    explicit HostVerifier(Authenticode::TrustSources trust) : engine_(std::move(trust)) {}

    SignatureCheck VerifyEmbedded(const std::wstring& path, std::uint32_t index) override
    {
        return CheckOf(engine_.VerifyEmbedded(HostPath(path), index));
    }

    SignatureCheck VerifyThroughCatalog(const Platform::CatalogMembership& membership, const std::wstring& path,
                                        std::uint32_t index) override
    {
        const Authenticode::CatalogListing listing{HostPath(membership.catalogPath), Utf8::Encode(membership.memberTag)};
        return CheckOf(engine_.VerifyThroughCatalog(listing, HostPath(path), index));
    }

    std::optional<Platform::CatalogMembership> FindCatalog(const std::wstring& path, Platform::CatalogLookupFailure& failure) override
    {
        using Step = Platform::CatalogLookupFailure::Step;
        const std::optional<std::string> tag = engine_.MemberTag(HostPath(path));
        const auto listing = tag ? engine_.FindCatalog(*tag) : std::nullopt;
        if (!listing) {
            failure = tag ? Platform::CatalogLookupFailure{Step::FindCatalog, kErrorNotFound}
                          : Platform::CatalogLookupFailure{Step::HashFile, kErrorFileNotFound};
            return std::nullopt;
        }
        return Platform::CatalogMembership{Utf8::Decode(listing->catalog.string()), Utf8::Decode(listing->memberTag)};
    }

private:
    Authenticode::Verifier engine_;
};

} // namespace

std::unique_ptr<Platform::ISignatureVerifier> CreateFileVerifier(const Platform::TrustSources& sources)
{
    Authenticode::TrustSources trust;
    if (!sources.roots.empty()) trust.roots = Authenticode::Roots::FromPemFile(sources.roots);
    if (!sources.catalogs.empty()) trust.catalogs.push_back(sources.catalogs);
    return std::make_unique<HostVerifier>(std::move(trust));
}

} // namespace Tessel::Bridge::Server::Services::Kestrel
