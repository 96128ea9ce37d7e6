#include "platform/SignatureVerification.h"

#include "platform/common/Hex.h"
#include "platform/windows/TrustDeclarations.h"
#include "platform/windows/UniqueHandle.h"

#include <windows.h>

#include <cwchar>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <utility>
#include <system_error>

namespace Tessel::Bridge::Platform {
namespace {

using Windows::UniqueHandle;
using Windows::UniqueResource;

constexpr DWORD kSubjectNameFlags = CERT_X500_NAME_STR | CERT_NAME_STR_NO_QUOTING_FLAG | CERT_NAME_STR_CRLF_FLAG;
static_assert(kSubjectNameFlags == 0x18000003);

std::uint32_t HresultFromError(DWORD error)
{
    return static_cast<std::uint32_t>(HRESULT_FROM_WIN32(error));
}

// The Windows 8 catalog functions have no import library (Microsoft's
// documentation says to look them up); wintrust.dll is loaded already, as the
// program imports WinVerifyTrust from it.
class CatalogFunctions {
public:
    static const CatalogFunctions& Get()
    {
        static const CatalogFunctions functions;
        return functions;
    }

    Windows::CryptCatAdminAcquireContext2Function acquireContext = nullptr;
    Windows::CryptCatAdminCalcHashFromFileHandle2Function calcHashFromFileHandle = nullptr;

private:
    CatalogFunctions()
    {
        const HMODULE wintrust = ::GetModuleHandleW(L"wintrust.dll");
        if (wintrust == nullptr) return;
        acquireContext = Find<Windows::CryptCatAdminAcquireContext2Function>(wintrust, "CryptCATAdminAcquireContext2");
        calcHashFromFileHandle =
            Find<Windows::CryptCatAdminCalcHashFromFileHandle2Function>(wintrust, "CryptCATAdminCalcHashFromFileHandle2");
    }

    template <typename Function>
    static Function Find(HMODULE module, const char* name)
    {
        const FARPROC found = ::GetProcAddress(module, name);
        // Through void(*)(): the one function type any function pointer converts from without a warning.
        return found == nullptr ? nullptr : reinterpret_cast<Function>(reinterpret_cast<void (*)()>(found));
    }
};

struct CatalogAdminTraits {
    using Type = HCATADMIN;
    static Type Empty() noexcept { return nullptr; }
    static bool IsValid(Type admin) noexcept { return admin != nullptr; }
    static void Close(Type admin) noexcept { ::CryptCATAdminReleaseContext(admin, 0); }
};

using UniqueCatalogAdmin = UniqueResource<CatalogAdminTraits>;

// A catalog found through an administrator context, given back through it.
class UniqueCatalogContext {
public:
    UniqueCatalogContext(HCATADMIN admin, HCATINFO catalog) noexcept : admin_(admin), catalog_(catalog) {}
    ~UniqueCatalogContext()
    {
        if (catalog_ != nullptr) ::CryptCATAdminReleaseCatalogContext(admin_, catalog_, 0);
    }
    UniqueCatalogContext(const UniqueCatalogContext&) = delete;
    UniqueCatalogContext& operator=(const UniqueCatalogContext&) = delete;

    HCATINFO Get() const noexcept { return catalog_; }

private:
    HCATADMIN admin_;
    HCATINFO catalog_;
};

// An administrator context that hashes files with SHA-256, as the catalogs of
// current Windows list them; on failure, the reason in `error`.
UniqueCatalogAdmin AcquireSha256Admin(DWORD& error)
{
    const auto acquire = CatalogFunctions::Get().acquireContext;
    if (acquire == nullptr) {
        error = ERROR_PROC_NOT_FOUND;
        return {};
    }
    UniqueCatalogAdmin admin;
    if (!acquire(admin.Put(), nullptr, L"SHA256", nullptr, 0)) {
        error = ::GetLastError();
        return {};
    }
    return admin;
}

// Nothing when the conversion fails; an empty name converts to "".
std::optional<std::wstring> SubjectText(CERT_NAME_BLOB& subject)
{
    const DWORD size = ::CertNameToStrW(X509_ASN_ENCODING, &subject, kSubjectNameFlags, nullptr, 0);
    if (size == 0) return std::nullopt;
    std::wstring text(size, L'\0');
    const DWORD written = ::CertNameToStrW(X509_ASN_ENCODING, &subject, kSubjectNameFlags, text.data(), size);
    if (written == 0) return std::nullopt;
    // Both counts include the terminating zero.
    text.resize(written - 1);
    return text;
}

// The signer's own certificate.
std::optional<Signer> SignerOf(CRYPT_PROVIDER_SGNR& signer)
{
    const CRYPT_PROVIDER_CERT* certificate = ::WTHelperGetProvCertFromChain(&signer, 0);
    if (certificate == nullptr || certificate->pCert == nullptr || certificate->pCert->pCertInfo == nullptr) {
        return std::nullopt;
    }
    CERT_INFO& info = *certificate->pCert->pCertInfo;
    const CRYPT_BIT_BLOB& key = info.SubjectPublicKeyInfo.PublicKey;
    Signer result;
    std::optional<std::wstring> subject = SubjectText(info.Subject);
    result.subjectUnreadable = !subject;
    result.subject = std::move(subject).value_or(L"");
    if (key.pbData != nullptr) result.publicKey.assign(key.pbData, key.pbData + key.cbData);
    return result;
}

// The usual name of a digest algorithm, else its dotted OID.
std::string DigestName(const char* oid)
{
    static constexpr std::pair<std::string_view, const char*> kNames[] = {
        {"1.3.14.3.2.26", "sha1"},           {"2.16.840.1.101.3.4.2.1", "sha256"}, {"2.16.840.1.101.3.4.2.2", "sha384"},
        {"2.16.840.1.101.3.4.2.3", "sha512"}, {"1.2.840.113549.2.5", "md5"}};
    if (oid == nullptr) return {};
    for (const auto& [dotted, name] : kNames) {
        if (dotted == oid) return name;
    }
    return oid;
}

bool HasAttribute(const CRYPT_ATTRIBUTES& attributes, std::string_view oid)
{
    for (DWORD i = 0; i < attributes.cAttr; ++i) {
        if (attributes.rgAttr[i].pszObjId != nullptr && attributes.rgAttr[i].pszObjId == oid) return true;
    }
    return false;
}

// The timestamp WinTrust accepted: a countersigner it verified (the RFC 3161
// token's signer or the PKCS #9 countersigner), whose time the signature was
// judged at. The unsigned attribute that carries it tells the kind.
std::optional<Timestamp> TimestampOf(const CRYPT_PROVIDER_SGNR& signer)
{
    if (signer.csCounterSigners == 0 || signer.pasCounterSigners == nullptr || signer.pasCounterSigners[0].dwError != 0 ||
        signer.psSigner == nullptr) {
        return std::nullopt;
    }
    Timestamp timestamp;
    if (HasAttribute(signer.psSigner->UnauthAttrs, "1.3.6.1.4.1.311.3.3.1")) { // SPC_RFC3161_OBJID
        timestamp.kind = Timestamp::Kind::Rfc3161;
    } else if (HasAttribute(signer.psSigner->UnauthAttrs, szOID_RSA_counterSign)) {
        timestamp.kind = Timestamp::Kind::Countersignature;
    } else {
        return std::nullopt;
    }
    // FILETIME counts 100 ns since 1601-01-01.
    const std::uint64_t ticks = (static_cast<std::uint64_t>(signer.sftVerifyAsOf.dwHighDateTime) << 32) | signer.sftVerifyAsOf.dwLowDateTime;
    timestamp.time = static_cast<std::int64_t>(ticks / 10'000'000) - 11'644'473'600;
    return timestamp;
}

// The first signer in WinVerifyTrust's state: its certificate, digest and timestamp.
void ReadSigner(HANDLE state, SignatureCheck& check)
{
    CRYPT_PROVIDER_DATA* provider = ::WTHelperProvDataFromStateData(state);
    if (provider == nullptr) return;
    CRYPT_PROVIDER_SGNR* signer = ::WTHelperGetProvSignerFromChain(provider, 0, FALSE, 0);
    if (signer == nullptr) return;
    check.signer = SignerOf(*signer);
    if (!check.signer) return;
    if (signer->psSigner != nullptr) check.digestAlgorithm = DigestName(signer->psSigner->HashAlgorithm.pszObjId);
    check.timestamp = TimestampOf(*signer);
}

// One WinVerifyTrust pass over signature `index` of a file or of a catalog
// member. The state it leaves is closed when this ends, also by an exception.
class TrustVerification {
public:
    TrustVerification(WINTRUST_FILE_INFO& file, std::uint32_t index) noexcept : TrustVerification(WTD_CHOICE_FILE, index)
    {
        data_.pFile = &file;
    }

    TrustVerification(WINTRUST_CATALOG_INFO& catalog, std::uint32_t index) noexcept
        : TrustVerification(WTD_CHOICE_CATALOG, index)
    {
        data_.pCatalog = &catalog;
    }

    ~TrustVerification()
    {
        if (!verified_) return;
        data_.dwStateAction = WTD_STATEACTION_CLOSE;
        ::WinVerifyTrust(nullptr, &action_, &data_);
    }

    TrustVerification(const TrustVerification&) = delete;
    TrustVerification& operator=(const TrustVerification&) = delete;

    SignatureCheck Run()
    {
        data_.dwStateAction = WTD_STATEACTION_VERIFY;
        verified_ = true;
        SignatureCheck check;
        check.result = static_cast<std::uint32_t>(::WinVerifyTrust(nullptr, &action_, &data_));
        check.secondarySignatures = settings_.cSecondarySigs;
        if (TrustResult::GivesSigner(check.result)) ReadSigner(data_.hWVTStateData, check);
        return check;
    }

private:
    TrustVerification(DWORD unionChoice, std::uint32_t index) noexcept
    {
        settings_.cbStruct = sizeof settings_;
        settings_.dwIndex = index;
        settings_.dwFlags = Windows::kWssVerifySpecific | Windows::kWssGetSecondarySigCount;
        data_.cbStruct = sizeof data_;
        data_.dwUIChoice = WTD_UI_NONE;
        data_.fdwRevocationChecks = WTD_REVOKE_NONE;
        data_.dwUnionChoice = unionChoice;
        data_.pSignatureSettings = &settings_;
    }

    GUID action_ = WINTRUST_ACTION_GENERIC_VERIFY_V2;
    Windows::WintrustSignatureSettings settings_{};
    Windows::WintrustData data_{};
    bool verified_ = false;
};

class WinTrustSignatureVerifier final : public ISignatureVerifier {
public:
    SignatureCheck VerifyEmbedded(const std::wstring& path, std::uint32_t index) override
    {
        WINTRUST_FILE_INFO file{};
        file.cbStruct = sizeof file;
        file.pcwszFilePath = path.c_str();
        TrustVerification verification(file, index);
        return verification.Run();
    }

    SignatureCheck VerifyThroughCatalog(const CatalogMembership& catalog, const std::wstring& path,
                                        std::uint32_t index) override
    {
        DWORD error = ERROR_SUCCESS;
        const UniqueCatalogAdmin admin = AcquireSha256Admin(error);
        if (!admin) {
            SignatureCheck check;
            check.result = HresultFromError(error);
            return check;
        }
        WINTRUST_CATALOG_INFO info{};
        info.cbStruct = sizeof info;
        info.pcwszCatalogFilePath = catalog.catalogPath.c_str();
        info.pcwszMemberTag = catalog.memberTag.c_str();
        info.pcwszMemberFilePath = path.c_str();
        info.hCatAdmin = admin.Get();
        // Declared after the context, so the state is closed before the context goes.
        TrustVerification verification(info, index);
        return verification.Run();
    }

    std::optional<CatalogMembership> FindCatalog(const std::wstring& path, CatalogLookupFailure& failure) override
    {
        using Step = CatalogLookupFailure::Step;
        const auto fail = [&failure](Step step, DWORD error) {
            failure = {step, error};
            return std::nullopt;
        };
        DWORD error = ERROR_SUCCESS;
        const UniqueCatalogAdmin admin = AcquireSha256Admin(error);
        if (!admin) return fail(Step::AcquireContext, error);

        const UniqueHandle file(::CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                              nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
        if (!file) return fail(Step::HashFile, ::GetLastError());
        // The hash is taken through a context of its own; without it there is
        // no tag, which ends the whole check rather than only the catalog pass.
        const UniqueCatalogAdmin hashAdmin = AcquireSha256Admin(error);
        if (!hashAdmin) return fail(Step::HashFile, error);
        const auto calcHash = CatalogFunctions::Get().calcHashFromFileHandle;
        if (calcHash == nullptr) return fail(Step::HashFile, ERROR_PROC_NOT_FOUND);
        // The first call gives the size only.
        DWORD size = 0;
        calcHash(hashAdmin.Get(), file.Get(), &size, nullptr, 0);
        if (size == 0) return fail(Step::HashFile, ::GetLastError());
        std::vector<BYTE> hash(size);
        if (!calcHash(hashAdmin.Get(), file.Get(), &size, hash.data(), 0)) return fail(Step::HashFile, ::GetLastError());
        hash.resize(size);

        const UniqueCatalogContext catalog(admin.Get(),
                                           ::CryptCATAdminEnumCatalogFromHash(admin.Get(), hash.data(), size, 0, nullptr));
        if (catalog.Get() == nullptr) return fail(Step::FindCatalog, ::GetLastError());
        CATALOG_INFO info{};
        info.cbStruct = sizeof info;
        if (!::CryptCATCatalogInfoFromContext(catalog.Get(), &info, 0)) return fail(Step::CatalogInfo, ::GetLastError());
        return CatalogMembership{std::wstring(info.wszCatalogFile, ::wcsnlen(info.wszCatalogFile, MAX_PATH)), HexDigits(hash, true)};
    }
};

} // namespace

std::vector<std::uint8_t> Sha256Of(std::span<const std::uint8_t> bytes)
{
    std::vector<std::uint8_t> digest(32);
    DWORD size = static_cast<DWORD>(digest.size());
    if (!::CryptHashCertificate2(L"SHA256", 0, nullptr, bytes.data(), static_cast<DWORD>(bytes.size()), digest.data(), &size) ||
        size != digest.size()) {
        throw std::system_error(static_cast<int>(::GetLastError()), std::system_category(), "CryptHashCertificate2");
    }
    return digest;
}

std::unique_ptr<ISignatureVerifier> CreateSignatureVerifier()
{
    return std::make_unique<WinTrustSignatureVerifier>();
}

std::unique_ptr<ISignatureVerifier> CreateSignatureVerifier(const TrustSources& sources)
{
    if (!sources.roots.empty() || !sources.catalogs.empty()) {
        throw std::invalid_argument("on Windows the system's trusted roots and catalog database are used; "
                                    "--roots and --catalogs are for other systems");
    }
    return CreateSignatureVerifier();
}

} // namespace Tessel::Bridge::Platform
