#include "platform/RegistryAndServices.h"

#include "platform/windows/UniqueHandle.h"

#include <windows.h>

namespace Tessel::Bridge::Platform {
namespace {

using Windows::UniqueRegistryKey;
using Windows::UniqueServiceHandle;

class Win32RegistryKey final : public IRegistryKey {
public:
    explicit Win32RegistryKey(UniqueRegistryKey key) : key_(std::move(key)) {}

    bool QueryValue(const std::wstring& name, std::uint32_t& type, unsigned char* data, std::uint32_t& size) override
    {
        DWORD valueType = 0;
        DWORD valueSize = size;
        const LSTATUS status = RegQueryValueExW(key_.Get(), name.c_str(), nullptr, &valueType, data, &valueSize);
        type = valueType;
        size = valueSize;
        return status == ERROR_SUCCESS;
    }

    bool SetDwordValue(const std::wstring& name, std::uint32_t value) override
    {
        const DWORD data = value;
        return RegSetValueExW(key_.Get(), name.c_str(), 0, REG_DWORD, reinterpret_cast<const BYTE*>(&data),
                              sizeof data) == ERROR_SUCCESS;
    }

private:
    UniqueRegistryKey key_;
};

class Win32Service final : public IService {
public:
    explicit Win32Service(UniqueServiceHandle service) : service_(std::move(service)) {}

    bool QueryState(std::uint32_t& state) override
    {
        SERVICE_STATUS status{};
        if (!QueryServiceStatus(service_.Get(), &status)) return false;
        state = status.dwCurrentState;
        return true;
    }

    bool Stop() override
    {
        SERVICE_STATUS status{};
        return ControlService(service_.Get(), SERVICE_CONTROL_STOP, &status) != FALSE;
    }

    bool Start() override { return StartServiceW(service_.Get(), 0, nullptr) != FALSE; }

private:
    UniqueServiceHandle service_;
};

class Win32ServiceControlManager final : public IServiceControlManager {
public:
    explicit Win32ServiceControlManager(UniqueServiceHandle manager) : manager_(std::move(manager)) {}

    bool EnumerateServices(std::uint32_t serviceType, std::uint32_t serviceState, std::uint32_t bufferBytes,
                           std::uint32_t& bytesNeeded, std::uint32_t& resumeHandle,
                           std::vector<ServiceEntry>& services) override
    {
        // ENUM_SERVICE_STATUSW records first, their texts after them.
        std::vector<ENUM_SERVICE_STATUSW> buffer((bufferBytes + sizeof(ENUM_SERVICE_STATUSW) - 1) /
                                                 sizeof(ENUM_SERVICE_STATUSW));
        DWORD needed = 0;
        DWORD returned = 0;
        DWORD resume = resumeHandle;
        const BOOL listed = EnumServicesStatusW(manager_.Get(), serviceType, serviceState,
                                                buffer.empty() ? nullptr : buffer.data(), bufferBytes, &needed,
                                                &returned, &resume);
        bytesNeeded = needed;
        resumeHandle = resume;
        for (DWORD i = 0; i < returned && i < buffer.size(); ++i) {
            const ENUM_SERVICE_STATUSW& entry = buffer[i];
            services.push_back({entry.lpServiceName != nullptr ? entry.lpServiceName : L"",
                                entry.lpDisplayName != nullptr ? entry.lpDisplayName : L"",
                                entry.ServiceStatus.dwServiceType, entry.ServiceStatus.dwCurrentState});
        }
        return listed != FALSE;
    }

    std::unique_ptr<IService> OpenNamedService(const std::wstring& name, std::uint32_t access) override
    {
        UniqueServiceHandle service(OpenServiceW(manager_.Get(), name.c_str(), access));
        if (!service) return nullptr;
        return std::make_unique<Win32Service>(std::move(service));
    }

private:
    UniqueServiceHandle manager_;
};

class Win32RegistryAndServices final : public IRegistryAndServices {
public:
    std::unique_ptr<IRegistryKey> OpenCurrentUserKey(const std::wstring& path, std::uint32_t access) override
    {
        UniqueRegistryKey key;
        if (RegOpenKeyExW(HKEY_CURRENT_USER, path.c_str(), 0, access, key.Put()) != ERROR_SUCCESS) return nullptr;
        return std::make_unique<Win32RegistryKey>(std::move(key));
    }

    std::unique_ptr<IServiceControlManager> Open(std::uint32_t access) override
    {
        UniqueServiceHandle manager(OpenSCManagerW(nullptr, nullptr, access));
        if (!manager) return nullptr;
        return std::make_unique<Win32ServiceControlManager>(std::move(manager));
    }

    void Pause(std::uint32_t milliseconds) override { Sleep(milliseconds); }

    void SaveChanges() override {}
};

} // namespace

std::unique_ptr<IRegistryAndServices> CreateRegistryAndServices()
{
    return std::make_unique<Win32RegistryAndServices>();
}

} // namespace Tessel::Bridge::Platform
