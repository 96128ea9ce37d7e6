// What a process run cannot show: the access each handle is opened with, the
// order of calls, the service list protocol, and every handle closed.
#include "NotificationCommand.h"

#include <gtest/gtest.h>

#include <cstring>
#include <deque>
#include <optional>
#include <stdexcept>

using namespace Tessel::Bridge::Platform;
using namespace Tessel::Bridge::Server::Services::Kestrel;

namespace {

constexpr std::uint32_t kStopped = 1, kStartPending = 2, kRunning = 4;

// One fake PC: the toast value, the service list and a log of every call.
// Handles count themselves so that a test sees each one closed.
struct FakeSystem : IRegistry, IServiceManager, IPause {
    struct Value {
        std::uint32_t type = 4;
        std::vector<unsigned char> bytes{1, 0, 0, 0};
    };
    bool keyExists = true;
    std::optional<Value> toast = Value{};
    bool writeFails = false;
    bool writeIsLost = false;
    std::vector<ServiceEntry> list;
    bool listGrows = false;
    std::deque<std::uint32_t> states{kRunning, kStopped, kRunning}; // what successive queries see
    bool startFails = false;
    std::string log;
    int open = 0;

    struct Handle {
        FakeSystem& system;
        explicit Handle(FakeSystem& s) : system(s) { ++system.open; }
        ~Handle() { --system.open; }
    };

    struct Key : IRegistryKey, Handle {
        using Handle::Handle;
        bool QueryValue(const std::wstring& name, std::uint32_t& type, unsigned char* data, std::uint32_t& size) override
        {
            if (name != L"ToastEnabled" || !system.toast) return false;
            type = system.toast->type;
            const auto capacity = size;
            size = static_cast<std::uint32_t>(system.toast->bytes.size());
            if (size > capacity) return false;
            std::memcpy(data, system.toast->bytes.data(), size);
            return true;
        }
        bool SetDwordValue(const std::wstring& name, std::uint32_t value) override
        {
            system.log += "write" + std::to_string(value) + " ";
            if (name != L"ToastEnabled" || system.writeFails) return false;
            if (!system.writeIsLost) system.toast = Value{4, {static_cast<unsigned char>(value), 0, 0, 0}};
            return true;
        }
    };

    struct Service : IService, Handle {
        using Handle::Handle;
        bool QueryState(std::uint32_t& state) override
        {
            system.log += "query ";
            if (system.states.empty()) return false;
            state = system.states.front();
            if (system.states.size() > 1) system.states.pop_front();
            return true;
        }
        bool Stop() override { return system.log += "stop ", true; }
        bool Start() override { return system.log += "start ", !system.startFails; }
    };

    struct Manager : IServiceControlManager, Handle {
        using Handle::Handle;
        bool EnumerateServices(std::uint32_t type, std::uint32_t state, std::uint32_t bufferBytes,
                               std::uint32_t& bytesNeeded, std::uint32_t& resumeHandle,
                               std::vector<ServiceEntry>& services) override
        {
            system.log += "enumerate(" + std::to_string(type) + "," + std::to_string(state) + "," +
                          std::to_string(bufferBytes) + "," + std::to_string(resumeHandle) + ") ";
            const auto needed = static_cast<std::uint32_t>(100 * system.list.size());
            if (bufferBytes < needed || (bufferBytes > 0 && system.listGrows)) {
                bytesNeeded = needed;
                return false;
            }
            services = system.list;
            return true;
        }
        std::unique_ptr<IService> OpenNamedService(const std::wstring& name, std::uint32_t access) override
        {
            system.log += "open " + std::string(name.begin(), name.end()) + "/" + std::to_string(access) + " ";
            return std::make_unique<Service>(system);
        }
    };

    std::unique_ptr<IRegistryKey> OpenCurrentUserKey(const std::wstring& path, std::uint32_t access) override
    {
        log += "key/" + std::to_string(access) + " ";
        if (!keyExists || path != L"Software\\Microsoft\\Windows\\CurrentVersion\\PushNotifications") return nullptr;
        return std::make_unique<Key>(*this);
    }
    std::unique_ptr<IServiceControlManager> Open(std::uint32_t access) override
    {
        log += "manager/" + std::to_string(access) + " ";
        return std::make_unique<Manager>(*this);
    }
    void Pause(std::uint32_t milliseconds) override { log += "pause" + std::to_string(milliseconds) + " "; }
};

class Notification : public ::testing::Test {
protected:
    ~Notification() override { EXPECT_EQ(system.open, 0) << "a handle was left open"; }

    std::string Run(const std::wstring& function, const std::wstring& value = L"")
    {
        std::wstring result = L"untouched";
        system.log.clear();
        HandleNotificationCommand(system, system, system, function, value, result);
        return std::string(result.begin(), result.end());
    }

    FakeSystem system;
    const std::vector<ServiceEntry> kPushService{{L"WpnUserService_4e2f1", L"Push", 0x10, kRunning}};
    static constexpr const char* kRestart = "manager/5 enumerate(48,3,0,0) enumerate(48,3,100,0) open WpnUserService_4e2f1/52 ";
};

// Other value types and a missing key are the process runs'; here the read
// access and a DWORD other than one.
TEST_F(Notification, TheSwitchReadsOneOnlyAsAFourByteDwordOfOne)
{
    const std::pair<std::optional<FakeSystem::Value>, const char*> cases[] = {
        {FakeSystem::Value{4, {1, 0, 0, 0}}, "1"}, {FakeSystem::Value{4, {2, 0, 0, 0}}, "0"}, {std::nullopt, "-1"}};
    for (const auto& [value, result] : cases) {
        system.toast = value;
        EXPECT_EQ(Run(L"GetToastOnOff"), result);
        EXPECT_EQ(system.log, "key/131097 ");
    }
}

TEST_F(Notification, ASetWritesReadsBackAndRestartsTheRunningService)
{
    system.list = kPushService;
    system.states = {kRunning, 3, kStopped, kRunning}; // stop pending for a poll
    EXPECT_EQ(Run(L"SetToastOnOff", L"-3"), "1");
    EXPECT_EQ(system.log, std::string("key/983103 write1 ") + kRestart +
                              "query stop query pause1000 query start query ");
}

TEST_F(Notification, TheServiceIsTheFirstWhoseNameHoldsTheFragment)
{
    system.list = {{L"Other", L"WpnUserService display name", 0x10, kRunning},
                   {L"wpnuserservice_lower", L"", 0x10, kRunning},
                   {L"xWpnUserServiceY", L"", 0x10, kRunning},
                   {L"WpnUserService_4e2f1", L"", 0x10, kRunning}};
    EXPECT_EQ(Run(L"SetToastOnOff", L"1"), "1");
    EXPECT_NE(system.log.find("open xWpnUserServiceY/52 "), std::string::npos) << system.log;

    system.list = {{L"Other", L"WpnUserService", 0x10, kRunning}, {L"WpnUser", L"", 0x10, kRunning}};
    EXPECT_EQ(Run(L"SetToastOnOff", L"1"), "0");
    EXPECT_EQ(system.log.find("open"), std::string::npos);
}

// A stopped service gets no stop (the process runs show that); a failed start
// of a running service still counts once it runs.
TEST_F(Notification, AFailedStartOfARunningServiceCounts)
{
    system.list = kPushService;
    system.states = {kStartPending, kRunning};
    system.startFails = true;
    EXPECT_EQ(Run(L"SetToastOnOff", L"0"), "1");
    EXPECT_EQ(system.log, std::string("key/983103 write0 ") + kRestart + "query start query query ");
}

TEST_F(Notification, ASetThatDoesNotStickOrFindsNoServiceFailsWithZero)
{
    system.writeIsLost = true;
    system.toast = FakeSystem::Value{4, {7, 0, 0, 0}};
    EXPECT_EQ(Run(L"SetToastOnOff", L"1"), "0");
    EXPECT_EQ(system.log, "key/983103 write1 "); // no restart
    system.writeIsLost = false;
    system.writeFails = true;
    EXPECT_EQ(Run(L"SetToastOnOff", L"1"), "0");
    system.writeFails = false;

    EXPECT_EQ(Run(L"SetToastOnOff", L"1"), "0"); // an empty list: nothing needed
    EXPECT_EQ(system.log, "key/983103 write1 manager/5 enumerate(48,3,0,0) ");
    system.list = kPushService;
    system.listGrows = true; // between the two calls: no retry
    EXPECT_EQ(Run(L"SetToastOnOff", L"1"), "0");
    EXPECT_EQ(system.log, "key/983103 write1 manager/5 enumerate(48,3,0,0) enumerate(48,3,100,0) ");

    system.keyExists = false;
    EXPECT_EQ(Run(L"SetToastOnOff", L"1"), "0");
    EXPECT_EQ(system.log, "key/983103 ");
}

} // namespace
