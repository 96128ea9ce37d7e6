#pragma once

#include "logging/Export.h"

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace Tessel::Bridge::Platform {
class ICallerPlatform;
class IFolderSecurity;
} // namespace Tessel::Bridge::Platform

namespace Tessel::Bridge::Security {

// Where a signed file may lie to be accepted, which system programs may host
// a packaged caller, and the patterns that vet path values.
class KESTREL_SECURITY_API TesselAuthenticodeHelper {
public:
    // Judges a library named on a host's command line (signed by a pinned key
    // and in an allowed place).
    using LibraryJudge = std::function<bool(const std::wstring& path)>;
    // Reads a host's command line and judges the library it names.
    using ArgumentValidator = bool (*)(const std::wstring& commandLine, const LibraryJudge& judge);

    struct HostProcessRule {
        std::vector<std::wstring> packageFamilyNames; // the callers this row is for
        bool enabled = true;
        ArgumentValidator validator = nullptr;        // none: the host's arguments are not judged
    };

    using Pause = std::function<void(std::chrono::milliseconds)>;

    TesselAuthenticodeHelper();
    // Over other implementations of the platform's calls and of the pause
    // between attempts to read a store folder's security.
    TesselAuthenticodeHelper(std::shared_ptr<Platform::ICallerPlatform> caller,
                             std::shared_ptr<Platform::IFolderSecurity> folders, Pause pause);
    ~TesselAuthenticodeHelper();

    // True for a file under the Windows or a program-files directory, or in a
    // package store folder ("X:\WindowsApps") that TrustedInstaller and SYSTEM
    // both fully control. Every miss is logged as an error.
    bool IsPathAllowed(const wchar_t* path) const;
    // Whether the folder's DACL has allow entries with GENERIC_ALL for both
    // NT SERVICE\TrustedInstaller and NT AUTHORITY\SYSTEM.
    bool CheckForFullConrolByTrustedInstallAndSystem(const std::wstring& folder) const;

    // Whether a host process may carry a packaged caller: a row of the table
    // for the host's program and the caller, with its validator's verdict on
    // the command line. With no row, `judgeByWindows` set lets a host whose
    // own file Windows trusts through (`isTrustedByWindows`).
    bool IsHostProcessAllowed(const std::wstring& packageFamilyName, bool judgeByWindows, const std::wstring& hostPath,
                              const std::wstring& commandLine, const LibraryJudge& judge,
                              const std::function<bool(const std::wstring& path)>& isTrustedByWindows) const;

    // Host programs (unexpanded paths) and their rows.
    static const std::map<std::wstring, HostProcessRule>& HostProcesses();
    // The allowed places, unexpanded, in the order they are tried.
    static const std::vector<std::wstring>& AllowedPrefixes();

    // regsvr32: the first argument that is not a "/" switch names the library.
    static bool SwitchSkippingValidator(const std::wstring& commandLine, const LibraryJudge& judge);
    // rundll32: the first argument up to its first comma names the library.
    static bool CommaCuttingValidator(const std::wstring& commandLine, const LibraryJudge& judge);

    // A value starting with a drive, a backslash, an http(s) scheme or a %variable%.
    static bool IsAbsoluteOrVariablePath(const std::wstring& value);
    // A value with a ".." step.
    static bool HasParentDirectoryStep(const std::wstring& value);

private:
    std::wstring Expand(const wchar_t* path) const;

    std::shared_ptr<Platform::ICallerPlatform> caller_;
    std::shared_ptr<Platform::IFolderSecurity> folders_;
    Pause pause_;
};

} // namespace Tessel::Bridge::Security
