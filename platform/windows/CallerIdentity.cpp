#include "platform/windows/Win32CallerPlatform.h"

#include "platform/windows/CallerDeclarations.h"

#include <userenv.h>

namespace Tessel::Bridge::Platform::Windows {

std::int32_t Win32CallerPlatform::QueryCallClientProcessId(std::uint32_t& processId)
{
    RpcCallAttributesV3 attributes{};
    attributes.Version = kRpcCallAttributesVersion3;
    attributes.Flags = kRpcQueryClientPid;
    const RPC_STATUS status = RpcServerInqCallAttributesW(nullptr, &attributes);
    if (status == RPC_S_OK) processId = static_cast<std::uint32_t>(reinterpret_cast<ULONG_PTR>(attributes.ClientPID));
    return static_cast<std::int32_t>(status);
}

NativeHandle Win32CallerPlatform::OpenProcessById(std::uint32_t access, std::uint32_t processId)
{
    return OpenProcess(access, FALSE, processId);
}

NativeHandle Win32CallerPlatform::DuplicateIntoThisProcess(NativeHandle source, std::uint32_t access)
{
    HANDLE duplicate = nullptr;
    if (!DuplicateHandle(GetCurrentProcess(), source, GetCurrentProcess(), &duplicate, access, FALSE, 0)) return nullptr;
    return duplicate;
}

void Win32CallerPlatform::CloseNativeHandle(NativeHandle handle)
{
    CloseHandle(handle);
}

std::int32_t Win32CallerPlatform::ImpersonateCaller()
{
    return static_cast<std::int32_t>(RpcImpersonateClient(nullptr));
}

std::int32_t Win32CallerPlatform::RevertImpersonation()
{
    return static_cast<std::int32_t>(RpcRevertToSelf());
}

std::int32_t Win32CallerPlatform::PackageFamilyName(NativeHandle process, std::uint32_t& length, wchar_t* name)
{
    UINT32 characters = length;
    const LONG status = GetPackageFamilyName(process, &characters, name);
    length = characters;
    return static_cast<std::int32_t>(status);
}

NativeHandle Win32CallerPlatform::OpenToken(NativeHandle process, std::uint32_t access)
{
    HANDLE token = nullptr;
    if (!OpenProcessToken(process, access, &token)) return nullptr;
    return token;
}

bool Win32CallerPlatform::ExpandForUser(NativeHandle token, const wchar_t* source, wchar_t* destination, std::uint32_t size)
{
    return ExpandEnvironmentStringsForUserW(token, source, destination, size) != FALSE;
}

std::uint32_t Win32CallerPlatform::ExpandInProcess(const wchar_t* source, wchar_t* destination, std::uint32_t size)
{
    return ExpandEnvironmentStringsW(source, destination, size);
}

std::uint32_t Win32CallerPlatform::FullPath(const wchar_t* path, std::uint32_t size, wchar_t* buffer)
{
    return GetFullPathNameW(path, size, buffer, nullptr);
}

std::uint32_t Win32CallerPlatform::LastError()
{
    return GetLastError();
}

} // namespace Tessel::Bridge::Platform::Windows

namespace Tessel::Bridge::Platform {

std::shared_ptr<ICallerPlatform> CreateCallerPlatform()
{
    return std::make_shared<Windows::Win32CallerPlatform>();
}

} // namespace Tessel::Bridge::Platform
