#include "security/util/UtilHelper.h"

#include "platform/CallerIdentity.h"
#include "platform/TypeName.h"
#include "security/util/NoThrowCallerPlatform.h"

#include <array>
#include <typeinfo>

namespace Tessel::Bridge::Server::Services {
namespace {

constexpr std::uint32_t kPathCharacters = 260;          // MAX_PATH
constexpr std::uint32_t kProcessAllAccess = 0x1FFFFF;   // PROCESS_ALL_ACCESS
constexpr std::uint32_t kTokenAllAccess = 0xF01FF;      // TOKEN_ALL_ACCESS

const std::string& TypeName()
{
    static const std::string name = Platform::ClassTypeName(typeid(UtilHelper));
    return name;
}

} // namespace

UtilHelper::UtilHelper() : UtilHelper(Platform::CreateCallerPlatform()) {}
UtilHelper::UtilHelper(std::shared_ptr<Platform::ICallerPlatform> platform)
    : platform_(Security::NoThrow(std::move(platform))) {}
UtilHelper::~UtilHelper() = default;

bool UtilHelper::NullChecker(std::vector<NullCheckEntry> entries, Logging::LoggingContext context)
{
    bool sawNull = false;
    for (const auto& [pointer, name] : entries) {
        if (pointer != nullptr) continue;
        Logging::LogManager::GetLogger()->LogWarning(context, L"%S.%S - %S cannot be null", TypeName().c_str(), "NullChecker",
                                                     name.c_str());
        sawNull = true;
    }
    return sawNull;
}

std::wstring UtilHelper::GetFullExpandedPath(const wchar_t* filePath, Logging::LoggingContext context)
{
    const auto logger = Logging::LogManager::GetLogger();
    const auto warn = [&](const wchar_t* function, std::uint32_t error) {
        logger->LogWarning(context, L"%S.%S failed on function %s with result %d", TypeName().c_str(),
                           "GetFullExpandedPath", function, static_cast<int>(error));
    };
    std::wstring result;
    std::array<wchar_t, kPathCharacters> expanded{};
    std::array<wchar_t, kPathCharacters> full{};
    if (NullChecker({{filePath, "filePath"}}, context)) return result;

    std::uint32_t processId = 0;
    if (platform_->QueryCallClientProcessId(processId) == 0) {
        // Serving a client: its user's environment, read through its token
        // without impersonating it.
        const Platform::NativeHandle process = platform_->OpenProcessById(kProcessAllAccess, processId);
        if (!Platform::IsUsableHandle(process)) {
            warn(L"process_handle is NULL or INVALID_HANDLE_VALUE", platform_->LastError());
        } else {
            if (const Platform::NativeHandle token = platform_->OpenToken(process, kTokenAllAccess)) {
                if (!platform_->ExpandForUser(token, filePath, expanded.data(), kPathCharacters)) {
                    warn(L"ExpandEnvironmentStringsForUser", platform_->LastError());
                    expanded[0] = L'\0';
                }
                platform_->CloseNativeHandle(token);
            }
            platform_->CloseNativeHandle(process);
        }
    } else if (const std::uint32_t needed = platform_->ExpandInProcess(filePath, expanded.data(), kPathCharacters);
               needed == 0 || needed > kPathCharacters) {
        // Too long for the buffer fails as well; what was cut is not used.
        warn(L"ExpandEnvironmentStrings", platform_->LastError());
        expanded[0] = L'\0';
    } else {
        logger->LogInfo(context, L"ExpandEnvironmentStrings: [%s] [%s]", filePath, expanded.data());
    }

    if (const std::uint32_t length = platform_->FullPath(expanded.data(), kPathCharacters, full.data());
        length == 0 || length >= kPathCharacters) {
        warn(L"GetFullPathName", platform_->LastError());
        return result;
    }
    result = full.data();
    logger->LogInfo(context, L"GetFullPathName: [%s]", result.c_str());
    return result;
}

} // namespace Tessel::Bridge::Server::Services
