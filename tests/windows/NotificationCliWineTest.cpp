// KestrelTool's Notification category under Wine: the prefix's own registry,
// and a test service registered under a per-user style name that KestrelTool
// really stops and starts.
#include "platform/windows/UniqueHandle.h"
#include "support/ProcessRunner.h"
#include "support/TempDirectory.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iterator>

using namespace KestrelTest;

namespace {

using UniqueService = Tessel::Bridge::Platform::Windows::UniqueServiceHandle;

constexpr const wchar_t* kKey = L"Software\\Microsoft\\Windows\\CurrentVersion\\PushNotifications";

class NotificationUnderWine : public ::testing::Test {
protected:
    NotificationUnderWine()
    {
        std::filesystem::path program = std::filesystem::path(std::getenv("KESTREL_TEST_BEDS")) / "PushNotificationService.exe";
        const std::wstring command = L"\"" + program.make_preferred().wstring() + L"\" \"" + starts.wstring() + L"\"";
        service = UniqueService(CreateServiceW(manager.Get(), L"WpnUserService_5b7c3", L"Windows Push Notifications User Service_5b7c3",
                                               SERVICE_ALL_ACCESS, SERVICE_WIN32_OWN_PROCESS, SERVICE_DEMAND_START,
                                               SERVICE_ERROR_NORMAL, command.c_str(), nullptr, nullptr, nullptr, nullptr, nullptr));
        EXPECT_TRUE(service) << GetLastError();
        SetToast(REG_DWORD, "\1\0\0\0", 4);
    }
    ~NotificationUnderWine() override
    {
        SERVICE_STATUS status{};
        if (ControlService(service.Get(), SERVICE_CONTROL_STOP, &status)) WaitFor(SERVICE_STOPPED);
        DeleteService(service.Get());
        RegDeleteKeyW(HKEY_CURRENT_USER, kKey);
    }

    void SetToast(DWORD type, const char* data, DWORD size)
    {
        ASSERT_EQ(RegSetKeyValueW(HKEY_CURRENT_USER, kKey, L"ToastEnabled", type, data, size), ERROR_SUCCESS);
    }

    DWORD State()
    {
        SERVICE_STATUS status{};
        QueryServiceStatus(service.Get(), &status);
        return status.dwCurrentState;
    }
    void WaitFor(DWORD state)
    {
        for (int i = 0; i < 100 && State() != state; ++i) Sleep(50);
    }
    int Starts()
    {
        std::ifstream in(starts);
        return static_cast<int>(std::count(std::istreambuf_iterator<char>(in), {}, '\n'));
    }

    std::string Run(const char* function, const char* value = nullptr)
    {
        std::vector<std::string> words{"Notification", function};
        if (value != nullptr) words.emplace_back(value);
        const ProcessResult result = RunProcess(BuiltProgram("KestrelTool"), words);
        EXPECT_EQ(result.exitStatus, 0) << result.err;
        return result.out.substr(0, result.out.find('\r'));
    }

    TempDirectory directory;
    std::filesystem::path starts = directory / "starts.txt";
    UniqueService manager{OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS)};
    UniqueService service;
};

TEST_F(NotificationUnderWine, ARunningServiceIsStoppedAndStartedAgain)
{
    ASSERT_TRUE(StartServiceW(service.Get(), 0, nullptr));
    WaitFor(SERVICE_RUNNING);
    ASSERT_EQ(Starts(), 1);
    EXPECT_EQ(Run("SetToastOnOff", "0"), "1");
    EXPECT_EQ(State(), static_cast<DWORD>(SERVICE_RUNNING));
    EXPECT_EQ(Starts(), 2);
    EXPECT_EQ(Run("GetToastOnOff"), "0");
    DWORD stored = 7, size = sizeof stored;
    EXPECT_EQ(RegGetValueW(HKEY_CURRENT_USER, kKey, L"ToastEnabled", RRF_RT_REG_DWORD, nullptr, &stored, &size), ERROR_SUCCESS);
    EXPECT_EQ(stored, 0u);
}

TEST_F(NotificationUnderWine, AStringValueAndAMissingKey)
{
    SetToast(REG_SZ, "1\0\0", 4);
    EXPECT_EQ(Run("GetToastOnOff"), "-1");

    ASSERT_EQ(RegDeleteKeyW(HKEY_CURRENT_USER, kKey), ERROR_SUCCESS);
    EXPECT_EQ(Run("GetToastOnOff"), "-1");
    EXPECT_EQ(Run("SetToastOnOff", "1"), "0");
    HKEY key = nullptr;
    EXPECT_EQ(RegOpenKeyExW(HKEY_CURRENT_USER, kKey, 0, KEY_READ, &key), ERROR_FILE_NOT_FOUND); // not created
    EXPECT_EQ(Starts(), 0);
}

} // namespace
