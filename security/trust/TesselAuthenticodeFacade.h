#pragma once

#include "logging/Export.h"
#include "security/trust/CertificateDetails.h"
#include "security/trust/TesselAuthenticodeHelper.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace Tessel::Bridge::Platform {
class ISignatureVerifier;
} // namespace Tessel::Bridge::Platform

namespace Tessel::Bridge::Security {

using PublicKeyList = std::vector<std::string>;

// Whether a file (a client's program) may be trusted: Windows accepts one of
// its Authenticode signatures, embedded or through a catalog, and the signer
// is pinned; most checks also want the file in an allowed place. Every
// operation answers false rather than throwing.
class KESTREL_SECURITY_API TesselAuthenticodeFacadeBase {
public:
    // Signed by a key of file-trust list A, and in an allowed place.
    virtual bool IsFileTrustedByListA(const wchar_t* path) = 0;
    // The same with file-trust list B.
    virtual bool IsFileTrustedByListB(const wchar_t* path) = 0;
    // An embedded signature Windows trusts from Dropbox (by common name), in an allowed place.
    virtual bool IsDropboxFileTrusted(const wchar_t* path) = 0;
    // A signature Windows trusts, in an allowed place; no key is pinned.
    virtual bool IsFileTrustedByWindows(const wchar_t* path) = 0;
    // Some signer key of the first file is a signer key of the second; no trust test.
    virtual bool AreSignedBySameKey(const wchar_t* path, const wchar_t* otherPath) = 0;
    // In an allowed place (see TesselAuthenticodeHelper::IsPathAllowed).
    virtual bool IsPathAllowed(const wchar_t* path) = 0;
    // A host process allowed to carry the packaged caller.
    virtual bool IsHostProcessAllowed(const wchar_t* packageFamilyName, bool judgeByWindows, const wchar_t* hostPath,
                                      const wchar_t* commandLine) = 0;

    // After the operations, so they keep their places in the table.
    virtual ~TesselAuthenticodeFacadeBase();
};

class KESTREL_SECURITY_API TesselAuthenticodeFacade final : public TesselAuthenticodeFacadeBase {
public:
    using VerifierFactory = std::function<std::unique_ptr<Platform::ISignatureVerifier>()>;

    // The built-in pinned keys and the platform's signature checks.
    TesselAuthenticodeFacade();
    // Other keys for lists A and B (a deployment's test keys), the rest as built in.
    TesselAuthenticodeFacade(PublicKeyList listA, PublicKeyList listB);
    // Every part given: a verifier is made for each operation, so calls on
    // many threads share none.
    TesselAuthenticodeFacade(PublicKeyList listA, PublicKeyList listB, VerifierFactory verifiers,
                             std::shared_ptr<const TesselAuthenticodeHelper> helper);
    ~TesselAuthenticodeFacade() override;

    bool IsFileTrustedByListA(const wchar_t* path) override;
    bool IsFileTrustedByListB(const wchar_t* path) override;
    bool IsDropboxFileTrusted(const wchar_t* path) override;
    bool IsFileTrustedByWindows(const wchar_t* path) override;
    bool AreSignedBySameKey(const wchar_t* path, const wchar_t* otherPath) override;
    bool IsPathAllowed(const wchar_t* path) override;
    bool IsHostProcessAllowed(const wchar_t* packageFamilyName, bool judgeByWindows, const wchar_t* hostPath,
                              const wchar_t* commandLine) override;

    // Windows trusts the file and a signer's key is in the list. Logs its
    // verdict, unless the file has no acceptable signature.
    bool IsFileTrusted(const wchar_t* path, const PublicKeyList* keys) const;
    // A record for every signature Windows accepts (also with an expired
    // signer or an untrusted root): the catalog's first, then the embedded ones.
    std::vector<CertificateDetails> GatherCertificates(const wchar_t* path) const;

private:
    std::vector<CertificateDetails> VerifySignatures(Platform::ISignatureVerifier& verifier, const wchar_t* path,
                                                     bool throughCatalog) const;

    std::shared_ptr<const PublicKeyList> listA_;
    std::shared_ptr<const PublicKeyList> listB_;
    VerifierFactory verifiers_;
    std::shared_ptr<const TesselAuthenticodeHelper> helper_;
};

} // namespace Tessel::Bridge::Security
