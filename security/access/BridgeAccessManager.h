#pragma once

#include "logging/Export.h"
#include "security/client/ClientInformation.h"

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace Tessel::Bridge::Security {

// Misuse of the security library, such as a question asked before the
// object that answers it was set.
class KESTREL_SECURITY_API bridge_access_exception : public std::logic_error {
public:
    explicit bridge_access_exception(const std::string& message);
    explicit bridge_access_exception(const char* message);
    bridge_access_exception(const bridge_access_exception&) = default;
    bridge_access_exception(bridge_access_exception&&) = default;
    bridge_access_exception& operator=(const bridge_access_exception&) = default;
    bridge_access_exception& operator=(bridge_access_exception&&) = default;
    ~bridge_access_exception() override;
};

struct KESTREL_SECURITY_API MatchingDescriptor {
    enum Operation : std::int32_t { Exempt = 1 };

    Operation operation;
    MatchingDescriptor();
    explicit MatchingDescriptor(Operation op);
};

struct KESTREL_SECURITY_API UwpMatchingDescriptor : MatchingDescriptor {
    Server::Uwp::UwpInformation client;
    UwpMatchingDescriptor(Server::Uwp::UwpInformation information, Operation op);
};

struct KESTREL_SECURITY_API Win32MatchingDescriptor : MatchingDescriptor {
    Server::Win32::Win32Information client;
    Win32MatchingDescriptor(Server::Win32::Win32Information information, Operation op);
};

// Packaged clients that predate the product's manifest.
class KESTREL_SECURITY_API UwpWithNoTesselManifestExemptionWhiteList {
public:
    // A copy of the list, in order, for the caller to keep or change.
    std::shared_ptr<std::vector<UwpMatchingDescriptor>> GetExemption() const;

    static const std::vector<UwpMatchingDescriptor> _white_list;
};

// Desktop programs that predate the product's manifest.
class KESTREL_SECURITY_API Win32WithNoTesselManifestExemptionWhiteList {
public:
    std::shared_ptr<std::vector<Win32MatchingDescriptor>> GetExemption() const;

    static const std::vector<Win32MatchingDescriptor> _white_list;
};

class KESTREL_SECURITY_API IClientWithNoTesselManifestCheckCriteria {
public:
    virtual ~IClientWithNoTesselManifestCheckCriteria();
    virtual bool IsAnException() = 0;
};

// Exempt when a row has the client's package family name (same letter case)
// at the client's version or a later one.
class KESTREL_SECURITY_API UwpWithNoTesselManifestCheckBasedOnMajorAndMinorVersion
    : public IClientWithNoTesselManifestCheckCriteria {
public:
    UwpWithNoTesselManifestCheckBasedOnMajorAndMinorVersion(std::shared_ptr<std::vector<UwpMatchingDescriptor>> list,
                                                           std::shared_ptr<Server::Uwp::UwpInformation> client);
    bool IsAnException() override;

private:
    std::shared_ptr<std::vector<UwpMatchingDescriptor>> list_;
    std::shared_ptr<Server::Uwp::UwpInformation> client_;
};

// Exempt when a row has the client's program name at the client's version or
// a later one. The client's name is lower-cased in place first, in the record
// every holder shares.
class KESTREL_SECURITY_API Win32WithNoTesselManifestCheckBasedOnMajorAndMinorVersion
    : public IClientWithNoTesselManifestCheckCriteria {
public:
    Win32WithNoTesselManifestCheckBasedOnMajorAndMinorVersion(std::shared_ptr<std::vector<Win32MatchingDescriptor>> list,
                                                             std::shared_ptr<Server::Win32::Win32Information> client);
    bool IsAnException() override;

private:
    std::shared_ptr<std::vector<Win32MatchingDescriptor>> list_;
    std::shared_ptr<Server::Win32::Win32Information> client_;
};

// Asks the checker a server set whether its client is exempt from the manifest.
class KESTREL_SECURITY_API BridgeAccessManager {
public:
    BridgeAccessManager();

    void SetUwpChecker(std::shared_ptr<IClientWithNoTesselManifestCheckCriteria> checker);
    void SetWin32Checker(std::shared_ptr<IClientWithNoTesselManifestCheckCriteria> checker);
    // Throw bridge_access_exception when no checker of that kind is set.
    bool IsUwpExempt();
    bool IsWin32Exempt();

private:
    std::shared_ptr<UwpWithNoTesselManifestExemptionWhiteList> uwpWhiteList_;
    std::shared_ptr<Win32WithNoTesselManifestExemptionWhiteList> win32WhiteList_;
    std::shared_ptr<IClientWithNoTesselManifestCheckCriteria> uwpChecker_;
    std::shared_ptr<IClientWithNoTesselManifestCheckCriteria> win32Checker_;
};

} // namespace Tessel::Bridge::Security
