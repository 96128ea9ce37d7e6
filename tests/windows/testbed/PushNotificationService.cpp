// An own-process service for the Wine prefix: it runs until it is stopped,
// and each start appends a line to the file named by its first argument.
#include <windows.h>
#include <shellapi.h>

#include <filesystem>
#include <fstream>

namespace {

SERVICE_STATUS_HANDLE statusHandle = nullptr;
HANDLE stopEvent = nullptr;

void Report(DWORD state)
{
    SERVICE_STATUS status{};
    status.dwServiceType = SERVICE_WIN32_OWN_PROCESS;
    status.dwCurrentState = state;
    status.dwControlsAccepted = state == SERVICE_RUNNING ? SERVICE_ACCEPT_STOP : 0;
    SetServiceStatus(statusHandle, &status);
}

DWORD WINAPI Control(DWORD control, DWORD, LPVOID, LPVOID)
{
    if (control == SERVICE_CONTROL_STOP) {
        Report(SERVICE_STOP_PENDING);
        SetEvent(stopEvent);
    }
    return NO_ERROR;
}

void WINAPI ServiceMain(DWORD, LPWSTR*)
{
    statusHandle = RegisterServiceCtrlHandlerExW(L"", &Control, nullptr);
    stopEvent = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    Report(SERVICE_RUNNING);
    WaitForSingleObject(stopEvent, INFINITE);
    Report(SERVICE_STOPPED);
}

} // namespace

// main rather than wmain: not every toolchain here has a wide entry point.
int main()
{
    int argc = 0;
    wchar_t** argv = CommandLineToArgvW(GetCommandLineW(), &argc);
    if (argv != nullptr && argc > 1) std::ofstream(std::filesystem::path(argv[1]), std::ios::app) << "started\n";
    LocalFree(argv);
    wchar_t name[] = L"";
    SERVICE_TABLE_ENTRYW table[] = {{name, &ServiceMain}, {nullptr, nullptr}};
    return StartServiceCtrlDispatcherW(table) ? 0 : 1;
}
