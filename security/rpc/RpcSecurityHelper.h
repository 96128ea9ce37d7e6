#pragma once

#include "logging/Export.h"

#include <cstdint>
#include <map>
#include <memory>
#include <string>

namespace Tessel::Bridge::Platform {
class ICallerPlatform;
}

namespace Tessel::Bridge::Security {

// Identifies the packaged application behind the RPC call a server thread is
// serving, and carries the names the product's manifest check works with.
class KESTREL_SECURITY_API RpcSecurityHelper {
public:
    RpcSecurityHelper();
    // Over another implementation of the platform's calls.
    explicit RpcSecurityHelper(std::shared_ptr<Platform::ICallerPlatform> platform);
    RpcSecurityHelper(const RpcSecurityHelper&) = delete;
    RpcSecurityHelper& operator=(const RpcSecurityHelper&) = delete;
    ~RpcSecurityHelper();

    // The caller's package family name; empty, with one error logged, when
    // the caller cannot be identified. Never throws.
    std::wstring GetPFNOfCaller();

    // Processes the owner already holds, for callers this process cannot
    // open itself. The handles stay the owner's; fill before serving calls.
    std::map<std::uint32_t, void*>& KnownProcesses() noexcept { return knownProcesses_; }

    const wchar_t* PublisherHash() const noexcept { return publisherHash_; }
    const std::wstring& ManifestName() const noexcept { return manifestName_; }
    const std::wstring& ManifestExtension() const noexcept { return manifestExtension_; }
    const std::wstring& CatalogExtension() const noexcept { return catalogExtension_; }
    const std::wstring& SignatureExtension() const noexcept { return signatureExtension_; }
    const std::wstring& ProductExtension() const noexcept { return productExtension_; }
    const std::wstring& Catalog64Name() const noexcept { return catalog64Name_; }
    const std::wstring& Catalog32Name() const noexcept { return catalog32Name_; }

private:
    // The caller's process, or a duplicate of the owner's handle for it.
    void* OpenCallerProcess(std::uint32_t processId);

    const wchar_t* publisherHash_;
    std::wstring manifestName_;
    std::wstring manifestExtension_;
    std::wstring catalogExtension_;
    std::wstring signatureExtension_;
    std::wstring productExtension_;
    std::wstring catalog64Name_;
    std::wstring catalog32Name_;
    std::wstring pattern_;
    std::map<std::uint32_t, void*> knownProcesses_;
    std::shared_ptr<void> first_;
    std::shared_ptr<void> second_;
    std::wstring text_;
    std::shared_ptr<Platform::ICallerPlatform> platform_;
};

} // namespace Tessel::Bridge::Security
