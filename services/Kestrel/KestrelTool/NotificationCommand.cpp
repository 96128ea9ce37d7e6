#include "NotificationCommand.h"

#include "NumberParsing.h"

#include <cstring>
#include <vector>

namespace Tessel::Bridge::Server::Services::Kestrel {
namespace {

using Platform::IService;

constexpr const wchar_t* kPushNotificationsKey = L"Software\\Microsoft\\Windows\\CurrentVersion\\PushNotifications";
constexpr const wchar_t* kToastEnabled = L"ToastEnabled";
constexpr const wchar_t* kPushNotificationService = L"WpnUserService";

constexpr std::uint32_t kKeyRead = 0x20019;
constexpr std::uint32_t kKeyAllAccess = 0xF003F;
constexpr std::uint32_t kRegDword = 4;

constexpr std::uint32_t kManagerAccess = 0x0001 | 0x0004;      // connect, enumerate
constexpr std::uint32_t kServiceAccess = 0x0004 | 0x0010 | 0x0020; // query status, start, stop
constexpr std::uint32_t kWin32Services = 0x30;                 // own and shared processes
constexpr std::uint32_t kAllStates = 3;
constexpr std::uint32_t kStopped = 1;
constexpr std::uint32_t kRunning = 4;

constexpr int kPolls = 30;
constexpr std::uint32_t kPollPause = 1000;

// The switch as a REG_DWORD read into exactly four bytes.
bool ReadToastEnabled(Platform::IRegistryKey& key, std::uint32_t& enabled)
{
    unsigned char data[4] = {};
    std::uint32_t type = 0;
    std::uint32_t size = sizeof data;
    if (!key.QueryValue(kToastEnabled, type, data, size) || type != kRegDword) return false;
    std::memcpy(&enabled, data, sizeof enabled);
    return true;
}

std::wstring GetToastOnOff(Platform::IRegistry& registry)
{
    const auto key = registry.OpenCurrentUserKey(kPushNotificationsKey, kKeyRead);
    std::uint32_t enabled = 0;
    if (!key || !ReadToastEnabled(*key, enabled)) return L"-1";
    return enabled == 1 ? L"1" : L"0";
}

bool SetToastOnOff(Platform::IRegistry& registry, Platform::IServiceManager& services, Platform::IPause& pause,
                   std::uint32_t enabled)
{
    {
        // Only an existing key: the switch is never created.
        const auto key = registry.OpenCurrentUserKey(kPushNotificationsKey, kKeyAllAccess);
        if (!key || !key->SetDwordValue(kToastEnabled, enabled)) return false;
        std::uint32_t stored = 0;
        if (!ReadToastEnabled(*key, stored) || stored != enabled) return false;
    }
    // The change stays even when the restart fails.
    return RestartServiceByName(services, pause, kPushNotificationService);
}

} // namespace

bool WaitForServiceState(IService& service, Platform::IPause& pause, std::uint32_t wanted)
{
    for (int poll = 0; poll < kPolls; ++poll) {
        std::uint32_t state = 0;
        if (!service.QueryState(state)) return false;
        if (state == wanted) return true;
        pause.Pause(kPollPause);
    }
    return false;
}

bool RestartServiceByName(Platform::IServiceManager& services, Platform::IPause& pause, const std::wstring& fragment)
{
    const auto manager = services.Open(kManagerAccess);
    if (!manager) return false;

    // Two calls with one resume handle: the size, then the list. No retry
    // when the list grew in between.
    std::uint32_t needed = 0;
    std::uint32_t resume = 0;
    std::vector<Platform::ServiceEntry> list;
    manager->EnumerateServices(kWin32Services, kAllStates, 0, needed, resume, list);
    if (needed == 0) return false;
    list.clear();
    if (!manager->EnumerateServices(kWin32Services, kAllStates, needed, needed, resume, list) || list.empty()) {
        return false;
    }

    // The name, not the display name: per-user instances carry a suffix.
    const Platform::ServiceEntry* match = nullptr;
    for (const Platform::ServiceEntry& entry : list) {
        if (entry.name.find(fragment) != std::wstring::npos) {
            match = &entry;
            break;
        }
    }
    if (match == nullptr) return false;

    const auto service = manager->OpenNamedService(match->name, kServiceAccess);
    std::uint32_t state = 0;
    if (!service || !service->QueryState(state)) return false;
    // Only a running service is stopped; a pending one is left to finish.
    if (state == kRunning && (!service->Stop() || !WaitForServiceState(*service, pause, kStopped))) return false;
    // A start refused because the service runs already is as good as a start.
    if (!service->Start() && !(service->QueryState(state) && state == kRunning)) return false;
    return WaitForServiceState(*service, pause, kRunning);
}

void HandleNotificationCommand(Platform::IRegistry& registry, Platform::IServiceManager& services,
                               Platform::IPause& pause, std::wstring function, std::wstring value,
                               std::wstring& result)
{
    if (function == L"GetToastOnOff") {
        result = GetToastOnOff(registry);
    } else if (function == L"SetToastOnOff") {
        const std::uint32_t enabled = StringToInt(value) != 0 ? 1 : 0;
        result = SetToastOnOff(registry, services, pause, enabled) ? L"1" : L"0";
    }
}

} // namespace Tessel::Bridge::Server::Services::Kestrel
