#include "platform/CallerIdentity.h"

#include "platform/common/Utf8.h"
#include "platform/common/WindowsPathRules.h"
#include "platform/emulated/EmulatedFiles.h"
#include "platform/emulated/EmulatedPc.h"
#include "platform/emulated/EmulatedRpcCall.h"

#include <cstring>
#include <optional>
#include <string>

namespace Tessel::Bridge::Platform::Emulated {
namespace {

constexpr std::int32_t kNoCallActive = 1725;     // RPC_S_NO_CALL_ACTIVE
constexpr std::int32_t kAccessDenied = 5;
constexpr std::int32_t kInvalidParameter = 87;
constexpr std::int32_t kInsufficientBuffer = 122;
constexpr std::int32_t kNoPackage = 15700;       // APPMODEL_ERROR_NO_PACKAGE

thread_local const ServedCall* currentCall = nullptr;
thread_local std::uint32_t lastError = 0;

// Handles carry the process id and their kind, so any copy of one means the
// same process, as a duplicated handle does.
enum class HandleKind : std::uintptr_t { Process = 1, Token = 2 };
NativeHandle MakeHandle(std::uint32_t processId, HandleKind kind)
{
    return reinterpret_cast<NativeHandle>((static_cast<std::uintptr_t>(processId) << 4) | (static_cast<std::uintptr_t>(kind) << 1));
}
std::optional<std::uint32_t> ProcessOf(NativeHandle handle, HandleKind kind)
{
    const auto bits = reinterpret_cast<std::uintptr_t>(handle);
    if ((bits & 0xF) != (static_cast<std::uintptr_t>(kind) << 1)) return std::nullopt;
    return static_cast<std::uint32_t>(bits >> 4);
}

struct Process {
    bool canOpen = true;
    std::optional<std::wstring> packageFamilyName;
    bool canImpersonate = true;
    State environment; // the user's variables, for expansion in its environment
};

} // namespace

ServedCall::ServedCall(std::uint32_t clientProcessId) : outer_(currentCall), clientProcessId_(clientProcessId)
{
    currentCall = this;
}

ServedCall::~ServedCall()
{
    currentCall = outer_;
}

NativeHandle HeldProcessHandle(std::uint32_t processId)
{
    return MakeHandle(processId, HandleKind::Process);
}

class CallerPlatform final : public ICallerPlatform {
public:
    explicit CallerPlatform(EmulatedPc pc) : pc_(std::move(pc)) {}

    std::int32_t QueryCallClientProcessId(std::uint32_t& processId) override
    {
        if (currentCall == nullptr) return kNoCallActive;
        processId = currentCall->clientProcessId_;
        return 0;
    }

    NativeHandle OpenProcessById(std::uint32_t, std::uint32_t processId) override
    {
        const std::optional<Process> process = Find(processId);
        if (!process) return Fail(kInvalidParameter);
        if (!process->canOpen) return Fail(kAccessDenied);
        return MakeHandle(processId, HandleKind::Process);
    }

    NativeHandle DuplicateIntoThisProcess(NativeHandle source, std::uint32_t) override
    {
        const std::optional<std::uint32_t> processId = ProcessOf(source, HandleKind::Process);
        if (!processId || !Find(*processId)) return Fail(6); // ERROR_INVALID_HANDLE
        return source;
    }

    void CloseNativeHandle(NativeHandle) override {}

    std::int32_t ImpersonateCaller() override
    {
        if (currentCall == nullptr) return kNoCallActive;
        const std::optional<Process> process = Find(currentCall->clientProcessId_);
        return process && process->canImpersonate ? 0 : kAccessDenied;
    }

    std::int32_t RevertImpersonation() override { return currentCall == nullptr ? kNoCallActive : 0; }

    std::int32_t PackageFamilyName(NativeHandle handle, std::uint32_t& length, wchar_t* name) override
    {
        const std::optional<std::uint32_t> processId = ProcessOf(handle, HandleKind::Process);
        const std::optional<Process> process = processId ? Find(*processId) : std::nullopt;
        if (!process) return 6;
        if (!process->packageFamilyName) return kNoPackage;
        const auto needed = static_cast<std::uint32_t>(process->packageFamilyName->size() + 1);
        if (name == nullptr || length < needed) {
            length = needed;
            return kInsufficientBuffer;
        }
        std::memcpy(name, process->packageFamilyName->c_str(), needed * sizeof(wchar_t));
        length = needed;
        return 0;
    }

    NativeHandle OpenToken(NativeHandle process, std::uint32_t) override
    {
        const std::optional<std::uint32_t> processId = ProcessOf(process, HandleKind::Process);
        if (!processId) return Fail(6);
        return MakeHandle(*processId, HandleKind::Token);
    }

    bool ExpandForUser(NativeHandle token, const wchar_t* source, wchar_t* destination, std::uint32_t size) override
    {
        const std::optional<std::uint32_t> processId = ProcessOf(token, HandleKind::Token);
        const std::optional<Process> process = processId ? Find(*processId) : std::nullopt;
        if (!process) {
            lastError = 6;
            return false;
        }
        // As the user's environment block gives them: the system's variables,
        // the user's own taking precedence.
        const std::uint32_t needed = PathRules::ExpandVariables(
            source, destination, size, ProgramEnvironment(pc_, pc_.Read(), &process->environment), lastError);
        if (needed == 0) return false;
        if (needed > size) {
            lastError = kInsufficientBuffer;
            return false;
        }
        return true;
    }

    std::uint32_t ExpandInProcess(const wchar_t* source, wchar_t* destination, std::uint32_t size) override
    {
        return PathRules::ExpandVariables(source, destination, size, OwnEnvironment(), lastError);
    }

    std::uint32_t FullPath(const wchar_t* path, std::uint32_t size, wchar_t* buffer) override
    {
        return PathRules::FullPathName(path, size, buffer, OwnEnvironment(), lastError);
    }

    std::uint32_t LastError() override { return lastError; }

private:
    static std::nullptr_t Fail(std::uint32_t error)
    {
        lastError = error;
        return nullptr;
    }

    // This program's variables and current directory, from one reading of the PC.
    PathRules::PathEnvironment OwnEnvironment() const { return ProgramEnvironment(pc_, pc_.Read()); }

    std::optional<Process> Find(std::uint32_t processId) const
    {
        const State state = pc_.Read();
        const State& processes = Member(state, "processes");
        if (!processes.is_array()) pc_.ThrowMalformed("/processes is not an array");
        for (std::size_t i = 0; i < processes.size(); ++i) {
            const std::string at = "/processes/" + std::to_string(i);
            if (static_cast<std::uint32_t>(pc_.IntegerAt(state, (at + "/id").c_str())) != processId) continue;
            Process process;
            process.canOpen = pc_.BooleanAt(state, (at + "/canOpen").c_str());
            process.canImpersonate = pc_.BooleanAt(state, (at + "/canImpersonate").c_str());
            const State& family = Member(processes[i], "packageFamilyName");
            if (family.is_string()) {
                process.packageFamilyName = Utf8::Decode(family.get<std::string>());
            } else if (!family.is_null()) {
                pc_.ThrowMalformed(at + "/packageFamilyName is not a text or null");
            }
            process.environment = Member(processes[i], "environment");
            if (!process.environment.is_object()) pc_.ThrowMalformed(at + "/environment is not an object");
            return process;
        }
        return std::nullopt;
    }

    EmulatedPc pc_;
};

State BuiltInEnvironment()
{
    const State variables = {{"SystemDrive", "C:"},
                             {"SystemRoot", "C:\\Windows"},
                             {"windir", "C:\\Windows"},
                             {"ProgramFiles", "C:\\Program Files"},
                             {"ProgramFiles(x86)", "C:\\Program Files (x86)"},
                             {"ProgramData", "C:\\ProgramData"},
                             {"USERPROFILE", "C:\\Users\\kestrel"},
                             {"LOCALAPPDATA", "C:\\Users\\kestrel\\AppData\\Local"},
                             {"TEMP", "C:\\Users\\kestrel\\AppData\\Local\\Temp"}};
    return {{"currentDirectory", "C:\\Users\\kestrel"}, {"variables", variables}};
}

State BuiltInProcesses()
{
    const State user = {{"USERPROFILE", "C:\\Users\\kestrel"}, {"SystemRoot", "C:\\Windows"},
                        {"LOCALAPPDATA", "C:\\Users\\kestrel\\AppData\\Local"}};
    return State::array({
        {{"id", 4}, {"name", "System"}, {"packageFamilyName", nullptr}, {"canOpen", false}, {"canImpersonate", false},
         {"environment", State::object()}},
        {{"id", 5120}, {"name", "Umbrano.exe"}, {"packageFamilyName", "7C3E9B10.Umbrano_r7w2k9d4m1q8z"}, {"canOpen", true},
         {"canImpersonate", true}, {"environment", user}},
        {{"id", 6144}, {"name", "kbdagentuwp.exe"}, {"packageFamilyName", nullptr}, {"canOpen", true},
         {"canImpersonate", true}, {"environment", user}},
    });
}

} // namespace Tessel::Bridge::Platform::Emulated

namespace Tessel::Bridge::Platform {

std::shared_ptr<ICallerPlatform> CreateCallerPlatform()
{
    return std::make_shared<Emulated::CallerPlatform>(Emulated::EmulatedPc::FromEnvironment());
}

} // namespace Tessel::Bridge::Platform
