#pragma once

#include <cstdint>
#include <memory>

namespace Tessel::Bridge::Platform {

// A process or token handle as Windows hands it out (HANDLE).
using NativeHandle = void*;

// Whether a handle names something: opening functions answer null or
// INVALID_HANDLE_VALUE for nothing.
inline bool IsUsableHandle(NativeHandle handle) noexcept
{
    return handle != nullptr && handle != reinterpret_cast<NativeHandle>(static_cast<std::intptr_t>(-1));
}

// The calling client of an RPC call, its process and its environment.
class ICallerPlatform {
public:
    virtual ~ICallerPlatform() = default;

    // The client process id of the RPC call this thread serves
    // (RpcServerInqCallAttributesW with RPC_QUERY_CLIENT_PID); the RPC status.
    virtual std::int32_t QueryCallClientProcessId(std::uint32_t& processId) = 0;
    // OpenProcess without inheritance; null or INVALID_HANDLE_VALUE on failure.
    virtual NativeHandle OpenProcessById(std::uint32_t access, std::uint32_t processId) = 0;
    // DuplicateHandle of source (a handle of this process) into this process
    // without inheritance; null on failure.
    virtual NativeHandle DuplicateIntoThisProcess(NativeHandle source, std::uint32_t access) = 0;
    virtual void CloseNativeHandle(NativeHandle handle) = 0;
    // RpcImpersonateClient / RpcRevertToSelf on the current call; RPC statuses.
    virtual std::int32_t ImpersonateCaller() = 0;
    virtual std::int32_t RevertImpersonation() = 0;
    // GetPackageFamilyName: length in characters with the final zero; a Win32 error.
    virtual std::int32_t PackageFamilyName(NativeHandle process, std::uint32_t& length, wchar_t* name) = 0;
    // OpenProcessToken; null when no token was obtained.
    virtual NativeHandle OpenToken(NativeHandle process, std::uint32_t access) = 0;
    // ExpandEnvironmentStringsForUserW; false on failure.
    virtual bool ExpandForUser(NativeHandle token, const wchar_t* source, wchar_t* destination, std::uint32_t size) = 0;
    // ExpandEnvironmentStringsW and GetFullPathNameW (no file part).
    virtual std::uint32_t ExpandInProcess(const wchar_t* source, wchar_t* destination, std::uint32_t size) = 0;
    virtual std::uint32_t FullPath(const wchar_t* path, std::uint32_t size, wchar_t* buffer) = 0;
    // GetLastError of this thread.
    virtual std::uint32_t LastError() = 0;
};

std::shared_ptr<ICallerPlatform> CreateCallerPlatform();

} // namespace Tessel::Bridge::Platform
