#include "ApplicationCommand.h"

#include "platform/TextConversion.h"

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

namespace {

constexpr int kShowNormal = 1;  // SW_SHOWNORMAL
constexpr int kRestore = 9;     // SW_RESTORE

std::wstring OpenInEditor(Platform::IDesktop& desktop, const std::wstring& path)
{
    return desktop.Execute(L"open", L"notepad.exe", path, kShowNormal) > 32 ? L"1" : L"0";
}

using Object = std::unique_ptr<Platform::IAutomationObject>;

// A property read on an object that may be missing: nothing to read from.
Object GetObjectProperty(const Object& object, const wchar_t* name)
{
    return object ? object->GetObjectProperty(object->MemberId(name)) : nullptr;
}

} // namespace

std::wstring WriteToDoc(Platform::IAutomation& automation, Platform::IDesktop& desktop, const std::wstring& path)
{
    const std::optional<std::string> bytes = desktop.ReadTextFile(path);
    if (!bytes) return OpenInEditor(desktop, path);
    // Up to the first zero byte, which is the first zero character.
    std::optional<std::wstring> text = Platform::WideFromUtf8(bytes->c_str());

    automation.InitializeCom();
    Object application = automation.CreateApplication(L"Word.Application");
    // COM stays initialised here; the process ends soon after.
    if (!application) return OpenInEditor(desktop, path);

    // No status is looked at: a step that fails leaves the next ones to run,
    // and a missing object only skips the steps made on it.
    Object documents = GetObjectProperty(application, L"Documents");
    if (documents) documents->CallMethod(documents->MemberId(L"Add"), std::nullopt);
    Object selection = GetObjectProperty(application, L"Selection");
    if (selection) {
        const std::int32_t typeText = selection->MemberId(L"TypeText");
        const std::int32_t typeParagraph = selection->MemberId(L"TypeParagraph");
        selection->CallMethod(typeText, text);
        selection->CallMethod(typeParagraph, std::nullopt);
    }
    text.reset();
    Object activeDocument = GetObjectProperty(application, L"ActiveDocument");
    application->PutBooleanProperty(application->MemberId(L"Visible"), true);
    Object window = GetObjectProperty(activeDocument, L"ActiveWindow");
    // The handle is 32 bits wide on every Windows; widened with its sign.
    const std::intptr_t handle = window ? window->GetIntegerProperty(window->MemberId(L"Hwnd")) : 0;

    desktop.SetForeground(handle);
    desktop.Show(handle, kRestore);

    window.reset();
    activeDocument.reset();
    selection.reset();
    documents.reset();
    application.reset();
    automation.UninitializeCom();
    return L"1";
}

} // namespace Tessel::Bridge::Server::Services::Kestrel
