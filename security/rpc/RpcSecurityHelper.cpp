#include "security/rpc/RpcSecurityHelper.h"

#include "logging/TraceLogger.h"
#include "platform/CallerIdentity.h"
#include "security/util/NoThrowCallerPlatform.h"

#include <algorithm>
#include <system_error>

namespace Tessel::Bridge::Security {
namespace {

constexpr std::uint32_t kQueryLimitedInformation = 0x1000; // PROCESS_QUERY_LIMITED_INFORMATION
constexpr std::int32_t kAccessDenied = 5;
constexpr std::int32_t kInsufficientBuffer = 122;
using Platform::IsUsableHandle;

// A failed step: the platform's status in the generic category, and the
// step's own text, which is what the log shows.
class StepFailed : public std::system_error {
public:
    StepFailed(std::int32_t status, const char* text) : std::system_error(status, std::generic_category(), text), text_(text) {}
    const char* Text() const noexcept { return text_; }

private:
    const char* text_;
};

// Closes the process handle however the lookup ends.
class ProcessGuard {
public:
    ProcessGuard(Platform::ICallerPlatform& platform, Platform::NativeHandle handle) : platform_(platform), handle_(handle) {}
    ProcessGuard(const ProcessGuard&) = delete;
    ProcessGuard& operator=(const ProcessGuard&) = delete;
    ~ProcessGuard()
    {
        if (IsUsableHandle(handle_)) platform_.CloseNativeHandle(handle_);
    }
    Platform::NativeHandle Get() const noexcept { return handle_; }

private:
    Platform::ICallerPlatform& platform_;
    Platform::NativeHandle handle_;
};

} // namespace

RpcSecurityHelper::RpcSecurityHelper() : RpcSecurityHelper(Platform::CreateCallerPlatform()) {}

RpcSecurityHelper::RpcSecurityHelper(std::shared_ptr<Platform::ICallerPlatform> platform)
    : publisherHash_(L"r7w2k9d4m1q8z"), manifestName_(L"TesselManifest"), manifestExtension_(L".xml"),
      catalogExtension_(L".cat"), signatureExtension_(L".p7s"), productExtension_(L".tsc"),
      catalog64Name_(L"tesselcustomcapcompx64.cat"), catalog32Name_(L"tesselcustomcapcompx86.cat"),
      platform_(NoThrow(std::move(platform))) {}

RpcSecurityHelper::~RpcSecurityHelper() = default;

void* RpcSecurityHelper::OpenCallerProcess(std::uint32_t processId)
{
    Platform::NativeHandle process = platform_->OpenProcessById(kQueryLimitedInformation, processId);
    if (IsUsableHandle(process)) return process;
    // A caller this process may not open, but whose handle the owner holds.
    const auto known = knownProcesses_.find(processId);
    if (known != knownProcesses_.end()) return platform_->DuplicateIntoThisProcess(known->second, kQueryLimitedInformation);
    return process;
}

std::wstring RpcSecurityHelper::GetPFNOfCaller()
{
    const auto logger = Logging::LogManager::GetLogger();
    std::wstring result;
    bool impersonating = false;
    try {
        std::uint32_t processId = 0;
        if (const std::int32_t status = platform_->QueryCallClientProcessId(processId); status != 0) {
            throw StepFailed(status, "RpcServerInqCallAttributes failed");
        }
        const ProcessGuard process(*platform_, OpenCallerProcess(processId));
        if (!IsUsableHandle(process.Get())) throw StepFailed(kAccessDenied, "OpenProcess yielded null or invalid handle");
        if (const std::int32_t status = platform_->ImpersonateCaller(); status != 0) {
            throw StepFailed(status, "Failed to impersonate client");
        }
        impersonating = true;
        std::uint32_t length = 0;
        const std::int32_t sized = platform_->PackageFamilyName(process.Get(), length, nullptr);
        if (sized != 0 && sized != kInsufficientBuffer) throw StepFailed(sized, "GetPackageFamilyName failed");
        std::wstring name(length, L'\0');
        if (platform_->PackageFamilyName(process.Get(), length, name.data()) != 0) throw kAccessDenied;
        // The length counted the terminating zero.
        name.erase(std::remove(name.begin(), name.end(), L'\0'), name.end());
        result = std::move(name);
    } catch (const StepFailed& failure) {
        logger->LogError(0, L"RpcSecurityHelper::GetPFNOfCaller - %S, Status: %ld", failure.Text(),
                         static_cast<long>(failure.code().value()));
        result.clear();
    } catch (const std::int32_t code) {
        logger->LogError(0, L"RpcSecurityHelper::GetPFNOfCaller - Caught error %ld", static_cast<long>(code));
        result.clear();
    } catch (...) {
        // Nothing escapes: an unidentified caller is an empty name.
        result.clear();
    }
    if (impersonating) platform_->RevertImpersonation();
    return result;
}

} // namespace Tessel::Bridge::Security
