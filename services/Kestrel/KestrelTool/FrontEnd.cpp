#include "FrontEnd.h"

#include "AccessoryCommand.h"
#include "ApplicationCommand.h"
#include "CameraCommand.h"
#include "DisplayHdrCommand.h"
#include "DisplayPortraitCommand.h"
#include "NotificationCommand.h"
#include "platform/CameraDefaults.h"
#include "platform/CameraRuntime.h"
#include "platform/DisplayConfiguration.h"
#include "platform/MouseSettings.h"
#include "platform/PortraitDisplays.h"
#include "platform/RegistryAndServices.h"
#include "platform/ShellAndAutomation.h"
#include "platform/TextConversion.h"

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <ostream>
#include <string>
#include <string_view>

namespace Tessel::Bridge::Server::Services::Kestrel {
namespace {

using CategoryHandler = void (*)(const CommandWords& words, std::wstring& result);

void RunAccessory(const CommandWords& words, std::wstring& result)
{
    const auto mouse = Platform::CreateMouseSettings();
    HandleAccessoryCommand(*mouse, words.function, words.value, result);
}

// Handled here by function name; another name leaves the result empty.
void RunApplication(const CommandWords& words, std::wstring& result)
{
    if (words.function == L"GetApplicationLocation") {
        const auto shell = Platform::CreateShell();
        result = GetApplicationLocation(*shell, words.value);
    } else if (words.function == L"WriteToDoc") {
        const auto automation = Platform::CreateAutomation();
        const auto desktop = Platform::CreateDesktopShell();
        result = WriteToDoc(*automation, *desktop, words.value);
    }
}

void RunCamera(const CommandWords& words, std::wstring& result)
{
    // Created on first use, kept for the process, closed and destroyed at exit.
    static CameraSession session(Platform::CreateCameraRuntime(), Platform::CreateCameraDefaultsPlatform());
    HandleCameraCommand(session, words.function, words.value, result);
}

void RunNotification(const CommandWords& words, std::wstring& result)
{
    const auto system = Platform::CreateRegistryAndServices();
    HandleNotificationCommand(*system, *system, *system, words.function, words.value, result);
    system->SaveChanges();
}

void RunDisplayHdr(const CommandWords& words, std::wstring& result)
{
    const auto display = Platform::CreateDisplayConfiguration();
    HandleDisplayHdrCommand(*display, words.function, words.value, result);
}

void RunDisplayPortrait(const CommandWords& words, std::wstring& result)
{
    // Created on first use and never destroyed: the plug-in stays loaded.
    static PortraitDisplayPlugin& plugin = *new PortraitDisplayPlugin(Platform::CreatePortraitPlatform());
    HandleDisplayPortraitCommand(plugin, words.function, words.value, result);
}

struct Category {
    std::wstring_view word;
    CategoryHandler handler; // null: not built yet, the result stays empty
};

// Compared exactly and in this order; the first match decides.
constexpr Category kCategories[] = {
    {L"Camera", &RunCamera},
    {L"Application", &RunApplication},
    {L"Accessory", &RunAccessory},
    {L"Notification", &RunNotification},
    {L"DisplayHDR", &RunDisplayHdr},
    {L"DisplayPortrait", &RunDisplayPortrait},
};

[[noreturn]] void ReportUncaughtException() noexcept
{
    std::string message = "ended without a result";
    if (const std::exception_ptr error = std::current_exception()) {
        try {
            std::rethrow_exception(error);
        } catch (const std::exception& e) {
            message = e.what();
        } catch (...) {
            message = "an unknown exception ended the run";
        }
    }
    std::fprintf(stderr, "KestrelTool: %s\n", message.c_str());
    std::fflush(stderr);
    // A plain exit: no core file, and no error-report dialog on Windows that
    // would hold up the caller. 3 is also what an abort reports there.
    std::_Exit(kAbnormalEndStatus);
}

} // namespace

std::optional<CommandWords> ReadCommandWords(int argc, const char* const argv[])
{
    if (argc < 3) return std::nullopt;
    CommandWords words{Platform::WideFromUtf8(argv[1]), Platform::WideFromUtf8(argv[2]), {}};
    if (argc > 3) words.value = Platform::WideFromUtf8(argv[3]);
    return words;
}

void DispatchCommand(const CommandWords& words, std::wstring& result)
{
    for (const Category& category : kCategories) {
        if (words.category == category.word) {
            if (category.handler != nullptr) category.handler(words, result);
            return;
        }
    }
}

int RunKestrelTool(int argc, const char* const argv[], std::wostream& out)
{
    const std::optional<CommandWords> words = ReadCommandWords(argc, argv);
    if (!words) return -1;
    std::wstring result;
    DispatchCommand(*words, result);
    out << result << std::endl;
    return 0;
}

void InstallTerminationReport()
{
    std::set_terminate(&ReportUncaughtException);
}

} // namespace Tessel::Bridge::Server::Services::Kestrel
