#pragma once

// Declarations the mingw-w64 headers lack: WinVerifyTrust's signature
// settings (Windows 8), which select one signature of a file by index and
// count the nested ones, and the trust data that carries them.
#include <windows.h>

// In this order: each needs the ones before it.
#include <wincrypt.h>
#include <wintrust.h>
#include <softpub.h>
#include <mscat.h>

#include <cstddef>

namespace Tessel::Bridge::Platform::Windows {

constexpr DWORD kWssVerifySpecific = 0x00000001;       // WSS_VERIFY_SPECIFIC
constexpr DWORD kWssGetSecondarySigCount = 0x00000002; // WSS_GET_SECONDARY_SIG_COUNT

// WINTRUST_SIGNATURE_SETTINGS.
struct WintrustSignatureSettings {
    DWORD cbStruct;
    DWORD dwIndex;
    DWORD dwFlags;
    DWORD cSecondarySigs;
    DWORD dwVerifiedSigIndex;
    CERT_STRONG_SIGN_PARA* pCryptoPolicy;
};

// WINTRUST_DATA with its last member, pSignatureSettings, which the headers
// leave out; WinVerifyTrust reads it when cbStruct covers it.
struct WintrustData {
    DWORD cbStruct;
    LPVOID pPolicyCallbackData;
    LPVOID pSIPClientData;
    DWORD dwUIChoice;
    DWORD fdwRevocationChecks;
    DWORD dwUnionChoice;
    union {
        WINTRUST_FILE_INFO* pFile;
        WINTRUST_CATALOG_INFO* pCatalog;
    };
    DWORD dwStateAction;
    HANDLE hWVTStateData;
    WCHAR* pwszURLReference;
    DWORD dwProvFlags;
    DWORD dwUIContext;
    WintrustSignatureSettings* pSignatureSettings;
};

// The headers' record up to its end, then the settings pointer.
static_assert(offsetof(WintrustData, dwUnionChoice) == offsetof(WINTRUST_DATA, dwUnionChoice));
static_assert(offsetof(WintrustData, pFile) == offsetof(WINTRUST_DATA, pFile));
static_assert(offsetof(WintrustData, dwStateAction) == offsetof(WINTRUST_DATA, dwStateAction));
static_assert(offsetof(WintrustData, hWVTStateData) == offsetof(WINTRUST_DATA, hWVTStateData));
static_assert(offsetof(WintrustData, dwUIContext) == offsetof(WINTRUST_DATA, dwUIContext));
static_assert(offsetof(WintrustData, pSignatureSettings) == sizeof(WINTRUST_DATA));

// x64 and ARM64 (both LLP64).
static_assert(sizeof(void*) != 8 || (sizeof(WintrustData) == 88 && offsetof(WintrustData, pFile) == 40 &&
                                     offsetof(WintrustData, dwStateAction) == 48 &&
                                     offsetof(WintrustData, hWVTStateData) == 56 &&
                                     offsetof(WintrustData, pSignatureSettings) == 80));
static_assert(sizeof(void*) != 8 || (sizeof(WintrustSignatureSettings) == 32 &&
                                     offsetof(WintrustSignatureSettings, cSecondarySigs) == 12 &&
                                     offsetof(WintrustSignatureSettings, pCryptoPolicy) == 24));
// The headers' own records the trust checks fill, with the Windows 8 catalog
// administrator context at the end of the catalog one.
static_assert(sizeof(void*) != 8 || (sizeof(WINTRUST_FILE_INFO) == 32 && sizeof(WINTRUST_CATALOG_INFO) == 72 &&
                                     offsetof(WINTRUST_CATALOG_INFO, hCatAdmin) == 64));
static_assert(sizeof(CATALOG_INFO) == 524);

// Windows 8 exports of wintrust.dll that the headers declare but no import
// library lists (neither mingw-w64's, Zig's nor Microsoft's): looked up at run time.
using CryptCatAdminAcquireContext2Function = decltype(&::CryptCATAdminAcquireContext2);
using CryptCatAdminCalcHashFromFileHandle2Function = decltype(&::CryptCATAdminCalcHashFromFileHandle2);

} // namespace Tessel::Bridge::Platform::Windows
