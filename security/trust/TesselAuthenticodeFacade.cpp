#include "security/trust/TesselAuthenticodeFacade.h"

#include "logging/TraceLogger.h"
#include "platform/SignatureVerification.h"
#include "security/trust/PinnedKeys.h"

#include <algorithm>
#include <exception>
#include <optional>

namespace Tessel::Bridge::Security {
namespace {

using Platform::CatalogLookupFailure;
namespace TrustResult = Platform::TrustResult;

constexpr Logging::LoggingContext kContext = 0;

bool TrustedByWindows(const std::vector<CertificateDetails>& records)
{
    return std::any_of(records.begin(), records.end(),
                       [](const CertificateDetails& record) { return TrustResult::CountsAsTrusted(record.status); });
}

std::string TrimEnd(std::string text)
{
    text.erase(text.find_last_not_of(" \f\n\r\t\v") + 1);
    return text;
}

// A step that cannot go on; the operation answers false.
struct InternalError {
    int code;
};

// The catalog that lists the file, for verifying through it.
std::optional<Platform::CatalogMembership> GetSecurityCatalogInfo(Platform::ISignatureVerifier& verifier, const wchar_t* path)
{
    const auto logger = Logging::LogManager::GetLogger();
    logger->LogInfo(kContext, L"Security - GetSecurityCatalogInfo - File = %s", path);
    CatalogLookupFailure failure;
    std::optional<Platform::CatalogMembership> catalog = verifier.FindCatalog(path, failure);
    if (catalog) {
        if (catalog->memberTag.empty()) throw InternalError{1};
        return catalog;
    }
    switch (failure.step) {
    case CatalogLookupFailure::Step::AcquireContext:
        logger->LogError(kContext, L"Security - GetSecurityCatalogInfo - Failed during CryptCATAdminAcquireContext2. Error Code = %d",
                         static_cast<int>(failure.error));
        return std::nullopt;
    case CatalogLookupFailure::Step::FindCatalog:
        logger->LogError(kContext, L"Security - GetSecurityCatalogInfo - Failed during CryptCATAdminEnumCatalogFromHash. Error Code = %d",
                         static_cast<int>(failure.error));
        return std::nullopt;
    case CatalogLookupFailure::Step::HashFile:
        // No member tag to look for.
        throw InternalError{static_cast<int>(failure.error)};
    case CatalogLookupFailure::Step::CatalogInfo:
        break;
    }
    throw InternalError{static_cast<int>(failure.error)};
}

std::shared_ptr<const PublicKeyList> BuiltIn(const PublicKeyList& list)
{
    return {&list, [](const PublicKeyList*) {}};
}

} // namespace

TesselAuthenticodeFacadeBase::~TesselAuthenticodeFacadeBase() = default;

TesselAuthenticodeFacade::TesselAuthenticodeFacade()
    : listA_(BuiltIn(PinnedKeys::kFileTrustListA)), listB_(BuiltIn(PinnedKeys::kFileTrustListB)),
      verifiers_([] { return Platform::CreateSignatureVerifier(); }),
      helper_(std::make_shared<TesselAuthenticodeHelper>())
{
}

TesselAuthenticodeFacade::TesselAuthenticodeFacade(PublicKeyList listA, PublicKeyList listB)
    : TesselAuthenticodeFacade(std::move(listA), std::move(listB), [] { return Platform::CreateSignatureVerifier(); },
                               std::make_shared<TesselAuthenticodeHelper>())
{
}

TesselAuthenticodeFacade::TesselAuthenticodeFacade(PublicKeyList listA, PublicKeyList listB, VerifierFactory verifiers,
                                                   std::shared_ptr<const TesselAuthenticodeHelper> helper)
    : listA_(std::make_shared<const PublicKeyList>(std::move(listA))),
      listB_(std::make_shared<const PublicKeyList>(std::move(listB))), verifiers_(std::move(verifiers)),
      helper_(std::move(helper))
{
}

TesselAuthenticodeFacade::~TesselAuthenticodeFacade() = default;

std::vector<CertificateDetails> TesselAuthenticodeFacade::VerifySignatures(Platform::ISignatureVerifier& verifier,
                                                                           const wchar_t* path, bool throughCatalog) const
{
    std::vector<CertificateDetails> records;
    if (path == nullptr) return records;
    std::optional<Platform::CatalogMembership> catalog;
    if (throughCatalog && !(catalog = GetSecurityCatalogInfo(verifier, path))) return records;

    const auto logger = Logging::LogManager::GetLogger();
    for (std::uint32_t index = 0;; ++index) {
        const Platform::SignatureCheck check =
            catalog ? verifier.VerifyThroughCatalog(*catalog, path, index) : verifier.VerifyEmbedded(path, index);
        if (TrustResult::GivesSigner(check.result) && check.signer) {
            CertificateDetails record;
            record.publicKey = TrimEnd(PublicKeyText(check.signer->publicKey));
            record.status = check.result;
            if (check.signer->subjectUnreadable) logger->LogError(kContext, L"Error while retrieving Subject field.");
            ParseSubject(check.signer->subject, record);
            logger->LogInfo(kContext, L"Subject = %s", check.signer->subject.c_str());
            records.push_back(std::move(record));
        }
        if (check.secondarySignatures < index + 1) break;
    }
    return records;
}

std::vector<CertificateDetails> TesselAuthenticodeFacade::GatherCertificates(const wchar_t* path) const
{
    const std::unique_ptr<Platform::ISignatureVerifier> verifier = verifiers_();
    std::vector<CertificateDetails> records = VerifySignatures(*verifier, path, true);
    std::vector<CertificateDetails> embedded = VerifySignatures(*verifier, path, false);
    records.insert(records.end(), std::make_move_iterator(embedded.begin()), std::make_move_iterator(embedded.end()));
    return records;
}

bool TesselAuthenticodeFacade::IsFileTrusted(const wchar_t* path, const PublicKeyList* keys) const
{
    if (keys == nullptr || path == nullptr) return false;
    try {
        const std::vector<CertificateDetails> records = GatherCertificates(path);
        if (records.empty() || keys->empty()) return false;
        const bool byWindows = TrustedByWindows(records);
        const bool byKeys = std::any_of(records.begin(), records.end(), [keys](const CertificateDetails& record) {
            return std::find(keys->begin(), keys->end(), record.publicKey) != keys->end();
        });
        Logging::LogManager::GetLogger()->LogInfo(kContext,
                                                  L"Security - IsFileTrusted - trusted by windows = %S, trusted by Lattice = %S",
                                                  byWindows ? "yes" : "no", byKeys ? "yes" : "no");
        return byWindows && byKeys;
    } catch (...) {
        return false;
    }
}

bool TesselAuthenticodeFacade::IsFileTrustedByListA(const wchar_t* path)
{
    return IsFileTrusted(path, listA_.get()) && helper_->IsPathAllowed(path);
}

bool TesselAuthenticodeFacade::IsFileTrustedByListB(const wchar_t* path)
{
    return IsFileTrusted(path, listB_.get()) && helper_->IsPathAllowed(path);
}

bool TesselAuthenticodeFacade::IsDropboxFileTrusted(const wchar_t* path)
{
    const auto logger = Logging::LogManager::GetLogger();
    try {
        logger->LogInfo(kContext, L"Starting validation of Dropbox file.");
        const std::unique_ptr<Platform::ISignatureVerifier> verifier = verifiers_();
        const std::vector<CertificateDetails> records = VerifySignatures(*verifier, path, false);
        if (!TrustedByWindows(records)) {
            logger->LogError(kContext, L"Dropbox file is not trusted by windows.");
            return false;
        }
        bool matched = false;
        try {
            // The common name alone decides; key and other fields play no part.
            for (const CertificateDetails& record : records) {
                for (const CertificateDetails& row : TrustedPublishers::kDropbox) {
                    matched = matched || record.commonName == row.commonName;
                }
            }
        } catch (const std::exception& error) {
            logger->LogError(kContext, L"Problem while validating certificates from Dropbox. %S", error.what());
            return false;
        }
        return matched && helper_->IsPathAllowed(path);
    } catch (...) {
        return false;
    }
}

bool TesselAuthenticodeFacade::IsFileTrustedByWindows(const wchar_t* path)
{
    try {
        return TrustedByWindows(GatherCertificates(path)) && helper_->IsPathAllowed(path);
    } catch (...) {
        return false;
    }
}

bool TesselAuthenticodeFacade::AreSignedBySameKey(const wchar_t* path, const wchar_t* otherPath)
{
    try {
        const std::vector<CertificateDetails> first = GatherCertificates(path);
        if (first.empty()) return false;
        const std::vector<CertificateDetails> second = GatherCertificates(otherPath);
        return std::any_of(first.begin(), first.end(), [&second](const CertificateDetails& one) {
            return !one.publicKey.empty() && std::any_of(second.begin(), second.end(), [&one](const CertificateDetails& other) {
                       return other.publicKey == one.publicKey;
                   });
        });
    } catch (...) {
        return false;
    }
}

bool TesselAuthenticodeFacade::IsPathAllowed(const wchar_t* path)
{
    return helper_->IsPathAllowed(path);
}

bool TesselAuthenticodeFacade::IsHostProcessAllowed(const wchar_t* packageFamilyName, bool judgeByWindows,
                                                    const wchar_t* hostPath, const wchar_t* commandLine)
{
    if (packageFamilyName == nullptr || hostPath == nullptr || commandLine == nullptr) return false;
    try {
        const auto judge = [this](const std::wstring& library) {
            return IsFileTrusted(library.c_str(), listA_.get()) && helper_->IsPathAllowed(library.c_str());
        };
        const auto byWindows = [this](const std::wstring& file) { return TrustedByWindows(GatherCertificates(file.c_str())); };
        return helper_->IsHostProcessAllowed(packageFamilyName, judgeByWindows, hostPath, commandLine, judge, byWindows);
    } catch (...) {
        return false;
    }
}

} // namespace Tessel::Bridge::Security
