#include "security/trust/TesselAuthenticodeHelper.h"

#include "logging/TraceLogger.h"
#include "platform/CallerIdentity.h"
#include "platform/CommandLine.h"
#include "platform/FolderSecurity.h"
#include "security/util/UtilHelper.h"

#include <algorithm>
#include <cwctype>
#include <regex>
#include <thread>

namespace Tessel::Bridge::Security {
namespace {

constexpr Logging::LoggingContext kContext = 0;
constexpr const wchar_t* kStoreMarker = L":\\WindowsApps\\";
constexpr const char* kIsPathAllowed = "Tessel::Bridge::Security::TesselAuthenticodeHelper::IsPathAllowed";
constexpr int kStoreFolderAttempts = 5;
constexpr std::chrono::milliseconds kStoreFolderPause{250};
constexpr std::uint32_t kGenericAll = 0x10000000;
constexpr std::uint8_t kAccessAllowed = 0;
constexpr const wchar_t* kCaretto = L"7C3E9B10.Caretto_r7w2k9d4m1q8z";

std::wstring Lower(std::wstring text)
{
    std::transform(text.begin(), text.end(), text.begin(), [](wchar_t ch) { return static_cast<wchar_t>(std::towlower(static_cast<std::wint_t>(ch))); });
    return text;
}

// An empty prefix (one that did not expand) begins nothing.
bool BeginsWith(const std::wstring& text, const std::wstring& prefix)
{
    return !prefix.empty() && text.size() >= prefix.size() && Lower(text.substr(0, prefix.size())) == Lower(prefix);
}

// The arguments after a dummy program name, so the whole command line is arguments.
std::vector<std::wstring> Arguments(const std::wstring& commandLine)
{
    std::vector<std::wstring> words = Platform::SplitCommandLine(L"test.exe " + commandLine);
    if (!words.empty()) words.erase(words.begin());
    return words;
}

const std::wregex& Pattern(bool absoluteOrVariable)
{
    // Compiled once, on first use; statics are initialised thread-safely.
    static const std::wregex absolute(LR"(^((?:[\w]\:|\\)|(http[s]?\:)|(\%[\(|\w|\)]+\%))+)", std::regex::ECMAScript);
    static const std::wregex parent(LR"(((\/+)?\.\.(\/+)?))", std::regex::ECMAScript);
    return absoluteOrVariable ? absolute : parent;
}

} // namespace

TesselAuthenticodeHelper::TesselAuthenticodeHelper()
    : TesselAuthenticodeHelper(Platform::CreateCallerPlatform(), Platform::CreateFolderSecurity(),
                               [](std::chrono::milliseconds pause) { std::this_thread::sleep_for(pause); })
{
}

TesselAuthenticodeHelper::TesselAuthenticodeHelper(std::shared_ptr<Platform::ICallerPlatform> caller,
                                                   std::shared_ptr<Platform::IFolderSecurity> folders, Pause pause)
    : caller_(std::move(caller)), folders_(std::move(folders)), pause_(std::move(pause))
{
}

TesselAuthenticodeHelper::~TesselAuthenticodeHelper() = default;

const std::vector<std::wstring>& TesselAuthenticodeHelper::AllowedPrefixes()
{
    static const std::vector<std::wstring> prefixes = {L"%windir%\\", L"%PROGRAMFILES(x86)%\\", L"%PROGRAMFILES%\\"};
    return prefixes;
}

const std::map<std::wstring, TesselAuthenticodeHelper::HostProcessRule>& TesselAuthenticodeHelper::HostProcesses()
{
    static const std::map<std::wstring, HostProcessRule> rows = {
        {L"%windir%\\System32\\regsvr32.exe", {{kCaretto}, true, &SwitchSkippingValidator}},
        {L"%windir%\\System32\\DISM.exe", {{kCaretto}, true, nullptr}},
        {L"%windir%\\System32\\sfc.exe", {{kCaretto}, true, nullptr}},
        {L"%windir%\\System32\\rundll32.exe", {{kCaretto}, true, &CommaCuttingValidator}},
        {L"%windir%\\System32\\mmc.exe", {{kCaretto}, true, nullptr}},
        {L"%windir%\\System32\\rstrui.exe", {{kCaretto}, true, nullptr}},
    };
    return rows;
}

std::wstring TesselAuthenticodeHelper::Expand(const wchar_t* path) const
{
    return Server::Services::UtilHelper(caller_).GetFullExpandedPath(path, kContext);
}

bool TesselAuthenticodeHelper::IsPathAllowed(const wchar_t* path) const
{
    const auto logger = Logging::LogManager::GetLogger();
    try {
        const std::wstring expanded = Expand(path);
        for (const std::wstring& prefix : AllowedPrefixes()) {
            const std::wstring place = Expand(prefix.c_str());
            if (BeginsWith(expanded, place)) return true;
            // A miss is logged even when a later place allows the file.
            logger->LogError(kContext, L"%S - BeginsWith() failed [%s] [%s]", kIsPathAllowed, expanded.c_str(), place.c_str());
        }
        const std::size_t marker = expanded.find(kStoreMarker);
        if (marker == std::wstring::npos) {
            logger->LogError(kContext, L"%S - Didn't find substring [%s] in [%s]", kIsPathAllowed, kStoreMarker, expanded.c_str());
            return false;
        }
        // Up to the marker's end, without its trailing backslash.
        const std::wstring storeFolder = expanded.substr(0, marker + std::char_traits<wchar_t>::length(kStoreMarker) - 1);
        for (int attempt = 1; attempt <= kStoreFolderAttempts; ++attempt) {
            if (CheckForFullConrolByTrustedInstallAndSystem(storeFolder)) return true;
            logger->LogError(kContext, L"Security - GetNamedSecurityInfo - Failed %d of %d times. Error Code = %d", attempt,
                             kStoreFolderAttempts, static_cast<int>(folders_->LastError()));
            if (attempt < kStoreFolderAttempts) pause_(kStoreFolderPause);
        }
    } catch (...) {
        // Nothing is thrown to the caller: any failure refuses the path.
    }
    return false;
}

bool TesselAuthenticodeHelper::CheckForFullConrolByTrustedInstallAndSystem(const std::wstring& folder) const
{
    try {
        Platform::FolderSecurityDescriptor descriptor;
        if (folders_->ReadFolderSecurity(folder, descriptor) != 0 || !descriptor.dacl) return false;
        bool trustedInstaller = false;
        bool system = false;
        for (const Platform::AccessEntry& entry : *descriptor.dacl) {
            if (entry.type != kAccessAllowed) continue;
            Platform::AccountName account;
            if (folders_->LookupAccount(entry.sid, account) != 0) continue;
            // Only GENERIC_ALL counts as full control, not every specific right.
            if ((entry.mask & kGenericAll) == 0) continue;
            if (account.domain == L"NT SERVICE" && account.name == L"TrustedInstaller") trustedInstaller = true;
            if (account.domain == L"NT AUTHORITY" && account.name == L"SYSTEM") system = true;
        }
        return trustedInstaller && system;
    } catch (...) {
        Logging::LogManager::GetLogger()->LogError(kContext, L"Exception in CheckForFullConrolByTrustedInstallAndSystem().");
        return false;
    }
}

bool TesselAuthenticodeHelper::IsHostProcessAllowed(const std::wstring& packageFamilyName, bool judgeByWindows,
                                                    const std::wstring& hostPath, const std::wstring& commandLine,
                                                    const LibraryJudge& judge,
                                                    const std::function<bool(const std::wstring& path)>& isTrustedByWindows) const
{
    try {
        const std::wstring host = Lower(Expand(hostPath.c_str()));
        if (host.empty()) return false;
        for (const auto& [program, rule] : HostProcesses()) {
            if (!rule.enabled || Lower(Expand(program.c_str())) != host) continue;
            const auto& callers = rule.packageFamilyNames;
            if (std::find(callers.begin(), callers.end(), packageFamilyName) == callers.end()) continue;
            return rule.validator == nullptr || rule.validator(commandLine, judge);
        }
        return judgeByWindows && isTrustedByWindows(hostPath);
    } catch (...) {
        return false;
    }
}

bool TesselAuthenticodeHelper::SwitchSkippingValidator(const std::wstring& commandLine, const LibraryJudge& judge)
{
    for (const std::wstring& argument : Arguments(commandLine)) {
        if (!argument.empty() && argument.front() == L'/') continue;
        return judge(argument);
    }
    return false;
}

bool TesselAuthenticodeHelper::CommaCuttingValidator(const std::wstring& commandLine, const LibraryJudge& judge)
{
    const std::vector<std::wstring> arguments = Arguments(commandLine);
    if (arguments.empty()) return false;
    return judge(arguments.front().substr(0, arguments.front().find(L',')));
}

bool TesselAuthenticodeHelper::IsAbsoluteOrVariablePath(const std::wstring& value)
{
    return std::regex_search(value, Pattern(true));
}

bool TesselAuthenticodeHelper::HasParentDirectoryStep(const std::wstring& value)
{
    return std::regex_search(value, Pattern(false));
}

} // namespace Tessel::Bridge::Security
