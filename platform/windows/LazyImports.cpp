// A run touches one area, so the system DLLs an area needs are loaded when it
// first calls into them rather than when the program starts.
//
// A call to a DLL function goes through a pointer named __imp_<name>, either
// directly (the headers declare the function dllimport) or through a small
// function <name> that jumps through it; the DLL's import library would
// supply both and have the loader fill the pointer at start. This file
// supplies both instead, so the import library's member is never linked: the
// pointer starts at a function that loads the DLL from the system folder,
// looks the function up, stores it in the pointer and calls it; later calls go
// straight to the function. Only the programs link this file; what the
// exported library offers is unchanged.
#include <windows.h>

#include <aclapi.h>
#include <mfapi.h>
#include <objbase.h>
#include <oleauto.h>
#include <pathcch.h>
#include <propsys.h>
#include <propvarutil.h>
#include <roapi.h>
#include <rpc.h>
#include <sddl.h>
#include <shellapi.h>
#include <shlobj.h>
#include <shlwapi.h>
#include <softpub.h>
#include <userenv.h>
#include <wincrypt.h>
#include <winstring.h>
#include <wintrust.h>
#include <mscat.h>

#include <cstring>
#include <type_traits>

namespace {

// A system DLL that cannot be loaded, or lacks the function, ends the run as
// a failed start would have: there is nothing to fall back on.
[[noreturn]] void CannotImport(const wchar_t* dll, const char* name)
{
    char message[256] = "cannot load ";
    std::strncat(message, name, 100);
    std::strcat(message, " from ");
    for (std::size_t at = std::strlen(message); *dll != L'\0' && at + 3 < sizeof message; ++at, ++dll) {
        message[at] = static_cast<char>(*dll < 0x80 ? *dll : L'?');
        message[at + 1] = '\0';
    }
    std::strcat(message, "\r\n");
    DWORD written = 0;
    WriteFile(GetStdHandle(STD_ERROR_HANDLE), message, static_cast<DWORD>(std::strlen(message)), &written, nullptr);
    TerminateProcess(GetCurrentProcess(), ERROR_PROC_NOT_FOUND);
    __builtin_unreachable();
}

FARPROC Resolve(const wchar_t* dll, const char* name)
{
    // Only the system folder: never a DLL planted beside the program.
    HMODULE module = LoadLibraryExW(dll, nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32);
    FARPROC function = module != nullptr ? GetProcAddress(module, name) : nullptr;
    if (function == nullptr) CannotImport(dll, name);
    return function;
}

template <const wchar_t* Dll, const char* Name, auto* Slot, typename F>
struct Lazy;

template <const wchar_t* Dll, const char* Name, auto* Slot, typename R, typename... A>
struct Lazy<Dll, Name, Slot, R(A...)> {
    using Pointer = R (*)(A...);
    static Pointer Function()
    {
        static const Pointer function = reinterpret_cast<Pointer>(reinterpret_cast<void*>(Resolve(Dll, Name)));
        return function;
    }
    // The first call through the import pointer.
    static R First(A... arguments)
    {
        const Pointer function = Function();
        __atomic_store_n(Slot, reinterpret_cast<std::remove_reference_t<decltype(*Slot)>>(function), __ATOMIC_RELEASE);
        return function(arguments...);
    }
};

constexpr wchar_t kUser32[] = L"user32.dll";
constexpr wchar_t kAdvapi32[] = L"advapi32.dll";
constexpr wchar_t kCrypt32[] = L"crypt32.dll";
constexpr wchar_t kMfplat[] = L"mfplat.dll";
constexpr wchar_t kOle32[] = L"ole32.dll";
constexpr wchar_t kOleaut32[] = L"oleaut32.dll";
constexpr wchar_t kPath[] = L"api-ms-win-core-path-l1-1-0.dll";
constexpr wchar_t kPropsys[] = L"propsys.dll";
constexpr wchar_t kRpcrt4[] = L"rpcrt4.dll";
constexpr wchar_t kWinRt[] = L"api-ms-win-core-winrt-l1-1-0.dll";
constexpr wchar_t kWinRtString[] = L"api-ms-win-core-winrt-string-l1-1-0.dll";
constexpr wchar_t kShell32[] = L"shell32.dll";
constexpr wchar_t kShlwapi[] = L"shlwapi.dll";
constexpr wchar_t kUserenv[] = L"userenv.dll";
constexpr wchar_t kVersion[] = L"version.dll";
constexpr wchar_t kWintrust[] = L"wintrust.dll";

} // namespace

// The jump through the pointer, for callers that call the function by name.
#if defined(__x86_64__)
#define KESTREL_IMPORT_JUMP(name) \
    asm(".text\n.globl " #name "\n.p2align 4\n" #name ":\n\tjmp *__imp_" #name "(%rip)\n");
#elif defined(__aarch64__)
#define KESTREL_IMPORT_JUMP(name)                                                                                      \
    asm(".text\n.globl " #name "\n.p2align 2\n" #name ":\n\tadrp x16, __imp_" #name "\n\tldr x16, [x16, :lo12:__imp_" #name \
        "]\n\tbr x16\n");
#else
#error "no import jump for this processor"
#endif

#define KESTREL_LAZY_IMPORT(dll, name)                                                                                  \
    extern "C" decltype(&::name) __imp_##name;                                                                         \
    namespace {                                                                                                        \
    constexpr char kName_##name[] = #name;                                                                             \
    }                                                                                                                  \
    extern "C" {                                                                                                       \
    decltype(&::name) __imp_##name = &Lazy<dll, kName_##name, &__imp_##name, decltype(::name)>::First;                 \
    }                                                                                                                  \
    KESTREL_IMPORT_JUMP(name)

KESTREL_LAZY_IMPORT(kUser32, DisplayConfigGetDeviceInfo)
KESTREL_LAZY_IMPORT(kUser32, DisplayConfigSetDeviceInfo)
KESTREL_LAZY_IMPORT(kUser32, GetDisplayConfigBufferSizes)
KESTREL_LAZY_IMPORT(kUser32, GetSystemMetrics)
KESTREL_LAZY_IMPORT(kUser32, QueryDisplayConfig)
KESTREL_LAZY_IMPORT(kUser32, SetForegroundWindow)
KESTREL_LAZY_IMPORT(kUser32, ShowWindow)
KESTREL_LAZY_IMPORT(kUser32, SwapMouseButton)
KESTREL_LAZY_IMPORT(kUser32, SystemParametersInfoW)

KESTREL_LAZY_IMPORT(kAdvapi32, CloseServiceHandle)
KESTREL_LAZY_IMPORT(kAdvapi32, ControlService)
KESTREL_LAZY_IMPORT(kAdvapi32, ConvertSidToStringSidW)
KESTREL_LAZY_IMPORT(kAdvapi32, ConvertStringSidToSidW)
KESTREL_LAZY_IMPORT(kAdvapi32, EnumServicesStatusW)
KESTREL_LAZY_IMPORT(kAdvapi32, GetAce)
KESTREL_LAZY_IMPORT(kAdvapi32, GetNamedSecurityInfoW)
KESTREL_LAZY_IMPORT(kAdvapi32, LookupAccountSidW)
KESTREL_LAZY_IMPORT(kAdvapi32, OpenProcessToken)
KESTREL_LAZY_IMPORT(kAdvapi32, OpenSCManagerW)
KESTREL_LAZY_IMPORT(kAdvapi32, OpenServiceW)
KESTREL_LAZY_IMPORT(kAdvapi32, QueryServiceStatus)
KESTREL_LAZY_IMPORT(kAdvapi32, RegCloseKey)
KESTREL_LAZY_IMPORT(kAdvapi32, RegOpenKeyExW)
KESTREL_LAZY_IMPORT(kAdvapi32, RegQueryValueExW)
KESTREL_LAZY_IMPORT(kAdvapi32, RegSetValueExW)
KESTREL_LAZY_IMPORT(kAdvapi32, StartServiceW)

KESTREL_LAZY_IMPORT(kCrypt32, CertNameToStrW)
KESTREL_LAZY_IMPORT(kCrypt32, CryptHashCertificate2)
KESTREL_LAZY_IMPORT(kMfplat, MFCreateAttributes)

KESTREL_LAZY_IMPORT(kOle32, CLSIDFromProgID)
KESTREL_LAZY_IMPORT(kOle32, CoCreateInstance)
KESTREL_LAZY_IMPORT(kOle32, CoInitialize)
KESTREL_LAZY_IMPORT(kOle32, CoTaskMemAlloc)
KESTREL_LAZY_IMPORT(kOle32, CoTaskMemFree)
KESTREL_LAZY_IMPORT(kOle32, CoUninitialize)
KESTREL_LAZY_IMPORT(kOle32, PropVariantClear)
KESTREL_LAZY_IMPORT(kOleaut32, SysAllocString)
KESTREL_LAZY_IMPORT(kOleaut32, SysFreeString)
KESTREL_LAZY_IMPORT(kOleaut32, VariantChangeType)
KESTREL_LAZY_IMPORT(kOleaut32, VariantClear)
KESTREL_LAZY_IMPORT(kOleaut32, VariantInit)

KESTREL_LAZY_IMPORT(kPath, PathCchRemoveFileSpec)
KESTREL_LAZY_IMPORT(kPropsys, PSGetNameFromPropertyKey)
KESTREL_LAZY_IMPORT(kPropsys, PropVariantToString)
KESTREL_LAZY_IMPORT(kRpcrt4, RpcImpersonateClient)
KESTREL_LAZY_IMPORT(kRpcrt4, RpcRevertToSelf)
KESTREL_LAZY_IMPORT(kRpcrt4, RpcServerInqCallAttributesW)
KESTREL_LAZY_IMPORT(kShell32, CommandLineToArgvW)
KESTREL_LAZY_IMPORT(kShell32, SHGetKnownFolderItem)
KESTREL_LAZY_IMPORT(kShell32, ShellExecuteW)
KESTREL_LAZY_IMPORT(kShlwapi, PathFileExistsW)
KESTREL_LAZY_IMPORT(kUserenv, ExpandEnvironmentStringsForUserW)
KESTREL_LAZY_IMPORT(kVersion, GetFileVersionInfoSizeW)
KESTREL_LAZY_IMPORT(kVersion, GetFileVersionInfoW)
KESTREL_LAZY_IMPORT(kVersion, VerQueryValueW)

KESTREL_LAZY_IMPORT(kWintrust, CryptCATAdminEnumCatalogFromHash)
KESTREL_LAZY_IMPORT(kWintrust, CryptCATAdminReleaseCatalogContext)
KESTREL_LAZY_IMPORT(kWintrust, CryptCATAdminReleaseContext)
KESTREL_LAZY_IMPORT(kWintrust, CryptCATCatalogInfoFromContext)
KESTREL_LAZY_IMPORT(kWintrust, WTHelperGetProvCertFromChain)
KESTREL_LAZY_IMPORT(kWintrust, WTHelperGetProvSignerFromChain)
KESTREL_LAZY_IMPORT(kWintrust, WTHelperProvDataFromStateData)
KESTREL_LAZY_IMPORT(kWintrust, WinVerifyTrust)

KESTREL_LAZY_IMPORT(kWinRt, RoActivateInstance)
KESTREL_LAZY_IMPORT(kWinRt, RoGetActivationFactory)
KESTREL_LAZY_IMPORT(kWinRtString, WindowsCreateString)
KESTREL_LAZY_IMPORT(kWinRtString, WindowsDeleteString)
KESTREL_LAZY_IMPORT(kWinRtString, WindowsGetStringRawBuffer)
