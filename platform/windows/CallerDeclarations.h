#pragma once

// Declarations the mingw-w64 headers lack: the version-3 RPC call attributes
// and the package identity of a process.
#include <windows.h>

#include <rpc.h>
#include <rpcasync.h>

#include <cstddef>

namespace Tessel::Bridge::Platform::Windows {

constexpr unsigned kRpcCallAttributesVersion3 = 3;
constexpr unsigned long kRpcQueryClientPid = 0x10; // RPC_QUERY_CLIENT_PID

// RPC_CALL_ATTRIBUTES_V3_W: the version-2 record and the client identifier.
struct RpcCallAttributesV3 {
    unsigned int Version;
    unsigned long Flags;
    unsigned long ServerPrincipalNameBufferLength;
    unsigned short* ServerPrincipalName;
    unsigned long ClientPrincipalNameBufferLength;
    unsigned short* ClientPrincipalName;
    unsigned long AuthenticationLevel;
    unsigned long AuthenticationService;
    BOOL NullSession;
    BOOL KernelModeCaller;
    unsigned long ProtocolSequence;
    RpcCallClientLocality IsClientLocal;
    HANDLE ClientPID;
    unsigned long CallStatus;
    RpcCallType CallType;
    void* CallLocalAddress;
    unsigned short OpNum;
    UUID InterfaceUuid;
    unsigned long ClientIdentifierBufferLength;
    unsigned char* ClientIdentifier;
};

// The same layout as the version-2 record up to its end.
static_assert(offsetof(RpcCallAttributesV3, ClientPID) == offsetof(RPC_CALL_ATTRIBUTES_V2_W, ClientPID));
static_assert(offsetof(RpcCallAttributesV3, InterfaceUuid) == offsetof(RPC_CALL_ATTRIBUTES_V2_W, InterfaceUuid));
static_assert(sizeof(void*) != 8 || (offsetof(RpcCallAttributesV3, ClientPID) == 64 &&
                                     offsetof(RpcCallAttributesV3, InterfaceUuid) == 92 &&
                                     offsetof(RpcCallAttributesV3, ClientIdentifier) == 112 &&
                                     sizeof(RpcCallAttributesV3) == 120));

} // namespace Tessel::Bridge::Platform::Windows

// appmodel.h, Windows 8 and later (kernel32).
extern "C" LONG WINAPI GetPackageFamilyName(HANDLE hProcess, UINT32* packageFamilyNameLength, PWSTR packageFamilyName);
