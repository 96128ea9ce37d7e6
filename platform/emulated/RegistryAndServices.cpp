#include "platform/RegistryAndServices.h"

#include "platform/common/Utf8.h"
#include "platform/emulated/EmulatedRegistryAndServices.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <optional>

namespace Tessel::Bridge::Platform {
namespace {

using Emulated::EmulatedPc;
using Emulated::Member;
using Emulated::State;

struct Named {
    const char* name;
    std::uint32_t value;
};
constexpr Named kValueTypes[] = {{"REG_NONE", 0}, {"REG_SZ", 1}, {"REG_EXPAND_SZ", 2}, {"REG_BINARY", 3},
                                 {"REG_DWORD", 4}, {"REG_MULTI_SZ", 7}, {"REG_QWORD", 11}};
constexpr Named kServiceTypes[] = {{"kernelDriver", 0x1},     {"fileSystemDriver", 0x2}, {"ownProcess", 0x10},
                                   {"shareProcess", 0x20},    {"userOwnProcess", 0x50},  {"userShareProcess", 0x60}};
constexpr Named kStates[] = {{"stopped", 1},         {"startPending", 2}, {"stopPending", 3}, {"running", 4},
                             {"continuePending", 5}, {"pausePending", 6}, {"paused", 7}};
constexpr std::uint32_t kStopped = 1, kStartPending = 2, kStopPending = 3, kRunning = 4;
// What one ENUM_SERVICE_STATUSW record takes in a 64-bit enumeration buffer.
constexpr std::uint32_t kEnumRecordBytes = 48;

template <std::size_t N>
std::optional<std::uint32_t> ValueOf(const Named (&table)[N], const State& name)
{
    for (const Named& entry : table) {
        if (name.is_string() && name.get<std::string>() == entry.name) return entry.value;
    }
    return std::nullopt;
}

template <std::size_t N>
const char* NameOf(const Named (&table)[N], std::uint32_t value)
{
    for (const Named& entry : table) {
        if (entry.value == value) return entry.name;
    }
    return table[0].name;
}

// Windows compares key paths and service names ignoring case.
bool SameName(const std::string& a, const std::wstring& b)
{
    return Emulated::EqualIgnoringCase(Utf8::Decode(a), b);
}

// Built-in numbers are signed, parsed ones unsigned: either will do.
bool IsCount(const State& value, std::uint64_t max)
{
    return value.is_number_integer() && (value.is_number_unsigned() || value.get<std::int64_t>() >= 0) &&
           value.get<std::uint64_t>() <= max;
}

// The bytes a registry value holds; nothing when the entry is malformed.
std::optional<std::vector<unsigned char>> ValueBytes(const State& value)
{
    const std::optional<std::uint32_t> type = ValueOf(kValueTypes, Member(value, "type"));
    const State& data = Member(value, "data");
    if (!type) return std::nullopt;
    std::vector<unsigned char> bytes;
    if (*type == 4 || *type == 11) {
        const std::uint64_t max = *type == 4 ? 0xFFFFFFFFull : UINT64_MAX;
        if (!IsCount(data, max)) return std::nullopt;
        std::uint64_t number = data.get<std::uint64_t>();
        for (int i = 0; i < (*type == 4 ? 4 : 8); ++i, number >>= 8) bytes.push_back(static_cast<unsigned char>(number));
        return bytes;
    }
    if (!data.is_string()) return std::nullopt;
    if (*type == 1 || *type == 2) {
        // UTF-16 little-endian with its terminator, as Windows stores text.
        const std::wstring text = Utf8::Decode(data.get<std::string>());
        for (const wchar_t ch : text) {
            const auto unit = static_cast<std::uint32_t>(ch);
            if (unit > 0xFFFF) {
                const std::uint32_t v = unit - 0x10000;
                for (const std::uint32_t half : {0xD800 + (v >> 10), 0xDC00 + (v & 0x3FF)}) {
                    bytes.push_back(static_cast<unsigned char>(half));
                    bytes.push_back(static_cast<unsigned char>(half >> 8));
                }
            } else {
                bytes.push_back(static_cast<unsigned char>(unit));
                bytes.push_back(static_cast<unsigned char>(unit >> 8));
            }
        }
        bytes.insert(bytes.end(), {0, 0});
        return bytes;
    }
    return Emulated::BytesFromHex(data.get<std::string>(), SIZE_MAX);
}

bool IsSeconds(const State& value)
{
    return value.is_null() || (value.is_number() && value.get<double>() >= 0 && std::isfinite(value.get<double>()));
}

// The registry and services of the emulated PC for one run: read once under
// the PC's lock, which is held until the run ends, and written once.
class Session {
public:
    explicit Session(EmulatedPc pc) : pc_(std::move(pc)) {}

    State& Current()
    {
        if (!state_) {
            lock_.emplace(pc_.TakeLock());
            state_ = pc_.Read();
            Validate(*state_);
            before_ = *state_;
        }
        return *state_;
    }

    void Save()
    {
        if (state_ && *state_ != before_) pc_.Write(*state_);
    }

    State* FindKey(const std::wstring& path)
    {
        State& user = Current()["registry"]["currentUser"];
        for (auto& [name, key] : user.items()) {
            if (SameName(name, path)) return &key;
        }
        return nullptr;
    }

    State& Services() { return Current()["services"]["list"]; }
    double Clock() { return Current()["services"]["clockSeconds"].get<double>(); }
    void Advance(double seconds) { Current()["services"]["clockSeconds"] = Clock() + seconds; }

    // A transition in progress completes once the clock reaches its time.
    State& Settled(std::size_t index)
    {
        State& service = Services()[index];
        const State& until = Member(service, "pendingUntil");
        if (until.is_number() && Clock() >= until.get<double>()) {
            const bool starting = ValueOf(kStates, service["state"]) == kStartPending;
            service["state"] = NameOf(kStates, starting ? kRunning : kStopped);
            service.erase("pendingUntil");
        }
        return service;
    }

    // Begins a transition that takes the service's seconds for it (none: never ends).
    void Begin(State& service, const char* seconds, std::uint32_t pending, std::uint32_t done)
    {
        const State& duration = Member(service, seconds);
        if (duration.is_number() && duration.get<double>() == 0) {
            service["state"] = NameOf(kStates, done);
            return;
        }
        service["state"] = NameOf(kStates, pending);
        if (duration.is_number()) service["pendingUntil"] = Clock() + duration.get<double>();
    }

private:
    void Validate(State& state)
    {
        const State& user = Member(Member(state, "registry"), "currentUser");
        if (!user.is_object()) pc_.ThrowMalformed("/registry/currentUser is not an object");
        for (const auto& [path, key] : user.items()) {
            if (!key.is_object()) pc_.ThrowMalformed("/registry/currentUser/" + path + " is not an object");
            for (const auto& [name, value] : key.items()) {
                if (!ValueBytes(value)) {
                    pc_.ThrowMalformed("/registry/currentUser/" + path + "/" + name +
                                       " is not {\"type\": a REG_ type name, \"data\": its data}");
                }
            }
        }
        if (!Member(state, "services").is_object()) pc_.ThrowMalformed("/services is not an object");
        State& services = state["services"];
        if (!Member(services, "clockSeconds").is_number() || !IsSeconds(services["clockSeconds"])) {
            pc_.ThrowMalformed("/services/clockSeconds is not a number of seconds");
        }
        if (!Member(services, "list").is_array()) pc_.ThrowMalformed("/services/list is not an array");
        State& list = services["list"];
        if (!list.is_array()) pc_.ThrowMalformed("/services/list is not an array");
        for (std::size_t i = 0; i < list.size(); ++i) {
            const std::string at = "/services/list/" + std::to_string(i);
            if (!list[i].is_object() || !Member(list[i], "name").is_string()) pc_.ThrowMalformed(at + " has no name");
            // Fields left out take the values of a plain stopped service.
            State service = {{"name", list[i]["name"]}, {"displayName", list[i]["name"]}, {"type", "ownProcess"}, {"state", "stopped"},
                             {"startRefused", false}, {"stopRefused", false}, {"startSeconds", 0.5},
                             {"stopSeconds", 0.5}, {"starts", 0}};
            service.merge_patch(list[i]);
            const bool valid = Member(service, "displayName").is_string() && ValueOf(kServiceTypes, service["type"]) &&
                               ValueOf(kStates, service["state"]) && service["startRefused"].is_boolean() &&
                               service["stopRefused"].is_boolean() && IsSeconds(Member(service, "startSeconds")) &&
                               IsSeconds(Member(service, "stopSeconds")) && IsCount(service["starts"], UINT32_MAX) &&
                               (Member(service, "pendingUntil").is_null() || IsSeconds(service["pendingUntil"]));
            if (!valid) pc_.ThrowMalformed(at + " has a field of the wrong type (see the documented service fields)");
            list[i] = std::move(service);
        }
    }

    EmulatedPc pc_;
    std::optional<EmulatedPc::Lock> lock_;
    std::optional<State> state_;
    State before_;
};

class EmulatedRegistryKey final : public IRegistryKey {
public:
    EmulatedRegistryKey(Session& session, std::wstring path) : session_(session), path_(std::move(path)) {}

    bool QueryValue(const std::wstring& name, std::uint32_t& type, unsigned char* data, std::uint32_t& size) override
    {
        State* key = session_.FindKey(path_);
        if (key == nullptr) return false;
        const State& value = Member(*key, Utf8::Encode(name).c_str());
        if (value.is_null()) return false;
        const std::vector<unsigned char> bytes = *ValueBytes(value);
        type = *ValueOf(kValueTypes, value["type"]);
        const std::uint32_t capacity = size;
        size = static_cast<std::uint32_t>(bytes.size());
        if (bytes.size() > capacity) return false; // the buffer is left as it was
        std::copy(bytes.begin(), bytes.end(), data);
        return true;
    }

    bool SetDwordValue(const std::wstring& name, std::uint32_t value) override
    {
        State* key = session_.FindKey(path_);
        if (key == nullptr) return false;
        (*key)[Utf8::Encode(name)] = {{"type", "REG_DWORD"}, {"data", value}};
        return true;
    }

private:
    Session& session_;
    std::wstring path_;
};

class EmulatedService final : public IService {
public:
    EmulatedService(Session& session, std::size_t index) : session_(session), index_(index) {}

    bool QueryState(std::uint32_t& state) override
    {
        state = *ValueOf(kStates, session_.Settled(index_)["state"]);
        return true;
    }

    bool Stop() override
    {
        State& service = session_.Settled(index_);
        if (service["stopRefused"].get<bool>() || ValueOf(kStates, service["state"]) != kRunning) return false;
        session_.Begin(service, "stopSeconds", kStopPending, kStopped);
        return true;
    }

    bool Start() override
    {
        State& service = session_.Settled(index_);
        if (service["startRefused"].get<bool>() || ValueOf(kStates, service["state"]) != kStopped) return false;
        service["starts"] = service["starts"].get<std::uint64_t>() + 1;
        session_.Begin(service, "startSeconds", kStartPending, kRunning);
        return true;
    }

private:
    Session& session_;
    std::size_t index_;
};

class EmulatedServiceControlManager final : public IServiceControlManager {
public:
    explicit EmulatedServiceControlManager(Session& session) : session_(session) {}

    bool EnumerateServices(std::uint32_t serviceType, std::uint32_t serviceState, std::uint32_t bufferBytes,
                           std::uint32_t& bytesNeeded, std::uint32_t& resumeHandle,
                           std::vector<ServiceEntry>& services) override
    {
        std::vector<ServiceEntry> listed;
        for (std::size_t i = 0; i < session_.Services().size(); ++i) {
            const State& service = session_.Settled(i);
            const ServiceEntry entry{Utf8::Decode(service["name"].get<std::string>()),
                                     Utf8::Decode(service["displayName"].get<std::string>()),
                                     *ValueOf(kServiceTypes, service["type"]), *ValueOf(kStates, service["state"])};
            const std::uint32_t stateBit = entry.state == kStopped ? 2 : 1;
            if ((entry.serviceType & serviceType) != 0 && (stateBit & serviceState) != 0) listed.push_back(entry);
        }
        // Records that fit are returned; the rest is left for the next call.
        std::uint32_t used = 0;
        bytesNeeded = 0;
        for (std::size_t i = resumeHandle; i < listed.size(); ++i) {
            const auto bytes = static_cast<std::uint32_t>(kEnumRecordBytes + (listed[i].name.size() + 1) * 2 +
                                                          (listed[i].displayName.size() + 1) * 2);
            if (bytesNeeded == 0 && used + bytes <= bufferBytes) {
                used += bytes;
                services.push_back(listed[i]);
                resumeHandle = static_cast<std::uint32_t>(i + 1);
            } else {
                bytesNeeded += bytes;
            }
        }
        if (bytesNeeded == 0) resumeHandle = 0;
        return bytesNeeded == 0;
    }

    std::unique_ptr<IService> OpenNamedService(const std::wstring& name, std::uint32_t) override
    {
        const State& list = session_.Services();
        for (std::size_t i = 0; i < list.size(); ++i) {
            // Service names are compared ignoring case.
            if (SameName(list[i]["name"].get<std::string>(), name)) return std::make_unique<EmulatedService>(session_, i);
        }
        return nullptr;
    }

private:
    Session& session_;
};

class EmulatedRegistryAndServices final : public IRegistryAndServices {
public:
    explicit EmulatedRegistryAndServices(EmulatedPc pc) : session_(std::move(pc)) {}

    std::unique_ptr<IRegistryKey> OpenCurrentUserKey(const std::wstring& path, std::uint32_t) override
    {
        if (session_.FindKey(path) == nullptr) return nullptr;
        return std::make_unique<EmulatedRegistryKey>(session_, path);
    }

    std::unique_ptr<IServiceControlManager> Open(std::uint32_t) override
    {
        session_.Current();
        return std::make_unique<EmulatedServiceControlManager>(session_);
    }

    void Pause(std::uint32_t milliseconds) override { session_.Advance(milliseconds / 1000.0); }

    void SaveChanges() override { session_.Save(); }

private:
    Session session_;
};

} // namespace

std::unique_ptr<IRegistryAndServices> CreateRegistryAndServices()
{
    return std::make_unique<EmulatedRegistryAndServices>(EmulatedPc::FromEnvironment());
}

namespace Emulated {

State BuiltInRegistry()
{
    return {{"currentUser",
             {{"Software\\Microsoft\\Windows\\CurrentVersion\\PushNotifications",
               {{"ToastEnabled", {{"type", "REG_DWORD"}, {"data", 1}}}}}}}};
}

State BuiltInServices()
{
    return {{"clockSeconds", 0},
            {"list", State::array({{{"name", "WpnUserService_4e2f1"},
                                    {"displayName", "Windows Push Notifications User Service_4e2f1"},
                                    {"type", "ownProcess"},
                                    {"state", "running"},
                                    {"startRefused", false},
                                    {"stopRefused", false},
                                    {"startSeconds", 0.5},
                                    {"stopSeconds", 0.5},
                                    {"starts", 0}}})}};
}

} // namespace Emulated
} // namespace Tessel::Bridge::Platform
