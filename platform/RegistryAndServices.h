#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace Tessel::Bridge::Platform {

// An open registry key; closed when the object goes.
class IRegistryKey {
public:
    virtual ~IRegistryKey() = default;

    // Reads a value into data (size bytes at most), with its type. On return
    // size is the value's size. False when the value is missing or larger than
    // the buffer (type and size then still tell what is stored).
    virtual bool QueryValue(const std::wstring& name, std::uint32_t& type, unsigned char* data, std::uint32_t& size) = 0;

    // Stores a 4-byte REG_DWORD value.
    virtual bool SetDwordValue(const std::wstring& name, std::uint32_t value) = 0;
};

// The signed-in user's registry.
class IRegistry {
public:
    virtual ~IRegistry() = default;

    // Opens an existing key of the current user's hive with the given access
    // rights; null when it is missing or may not be opened. Never creates it.
    virtual std::unique_ptr<IRegistryKey> OpenCurrentUserKey(const std::wstring& path, std::uint32_t access) = 0;
};

// An open service; its handle is closed when the object goes.
class IService {
public:
    virtual ~IService() = default;
    virtual bool QueryState(std::uint32_t& state) = 0; // SERVICE_STOPPED (1) .. SERVICE_PAUSED (7)
    virtual bool Stop() = 0;                           // the stop control
    virtual bool Start() = 0;                          // without arguments
};

struct ServiceEntry {
    std::wstring name;
    std::wstring displayName;
    std::uint32_t serviceType = 0;
    std::uint32_t state = 0;
};

// An open connection to the service control manager.
class IServiceControlManager {
public:
    virtual ~IServiceControlManager() = default;

    // One enumeration call of services of these types in these states, into a
    // buffer of bufferBytes (0: none). bytesNeeded is set to what the rest of
    // the list needs; resumeHandle carries the position between calls. False
    // when the list does not fit, services then holds what did.
    virtual bool EnumerateServices(std::uint32_t serviceType, std::uint32_t serviceState, std::uint32_t bufferBytes,
                                   std::uint32_t& bytesNeeded, std::uint32_t& resumeHandle,
                                   std::vector<ServiceEntry>& services) = 0;

    // Null when there is no such service or it may not be opened so.
    virtual std::unique_ptr<IService> OpenNamedService(const std::wstring& name, std::uint32_t access) = 0;
};

class IServiceManager {
public:
    virtual ~IServiceManager() = default;
    // The local machine's service control manager; null when it may not be opened.
    virtual std::unique_ptr<IServiceControlManager> Open(std::uint32_t access) = 0;
};

// Waiting between polls, its own seam so that tests never sleep for real.
class IPause {
public:
    virtual ~IPause() = default;
    virtual void Pause(std::uint32_t milliseconds) = 0;
};

// The registry, the services and the clock of the PC this program runs on.
class IRegistryAndServices : public IRegistry, public IServiceManager, public IPause {
public:
    // Makes the run's changes durable where the platform does not on its own:
    // the emulated PC writes its state file once, here; Windows already has.
    virtual void SaveChanges() = 0;
};

std::unique_ptr<IRegistryAndServices> CreateRegistryAndServices();

} // namespace Tessel::Bridge::Platform
