#include "ApplicationCommand.h"

#include <cwctype>

namespace Tessel::Bridge::Server::Services::Kestrel {
namespace {

constexpr const wchar_t* kShortcutTarget = L"System.Link.TargetParsingPath";
constexpr const wchar_t* kPackageFolder = L"System.AppUserModel.PackageInstallPath";

// Ignoring case as the C runtime's wide comparison does.
bool EqualIgnoringCase(const std::wstring& a, const std::wstring& b)
{
    if (a.size() != b.size()) return false;
    for (std::size_t i = 0; i < a.size(); ++i) {
        if (std::towlower(static_cast<wint_t>(a[i])) != std::towlower(static_cast<wint_t>(b[i]))) return false;
    }
    return true;
}

} // namespace

std::wstring GetApplicationLocation(Platform::IShell& shell, const std::wstring& displayName)
{
    shell.InitializeCom();
    std::wstring result;
    bool found = false;
    {
        // Without the folder COM stays initialised; the process ends soon after.
        const auto applications = shell.EnumerateApplications();
        if (!applications) return L"-1";
        while (const auto item = applications->Next()) {
            const std::optional<std::wstring> name = item->DisplayName();
            if (!name || !EqualIgnoringCase(*name, displayName)) continue;
            // The first application of that name ends the search, found or not.
            if (const auto properties = item->OpenProperties()) {
                const std::uint32_t count = properties->Count();
                for (std::uint32_t index = 0; index < count; ++index) {
                    const std::optional<std::wstring> key = properties->CanonicalName(index);
                    if (!key || (*key != kShortcutTarget && *key != kPackageFolder)) continue;
                    // Every match overwrites the last: the later property wins.
                    if (const std::optional<std::wstring> value = properties->ValueText(index)) {
                        result = value->substr(0, value->find(L'\0'));
                        found = true;
                    }
                }
            }
            break;
        }
    }
    shell.UninitializeCom();
    return found ? result : L"-1";
}

} // namespace Tessel::Bridge::Server::Services::Kestrel
