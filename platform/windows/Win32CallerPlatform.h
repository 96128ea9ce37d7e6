#pragma once

#include "platform/CallerIdentity.h"

namespace Tessel::Bridge::Platform::Windows {

// The caller's identity over rpcrt4, kernel32 and userenv. The call-attributes
// query is its own function so that a test can stand in for it where the
// platform cannot run it.
class Win32CallerPlatform : public ICallerPlatform {
public:
    std::int32_t QueryCallClientProcessId(std::uint32_t& processId) override;
    NativeHandle OpenProcessById(std::uint32_t access, std::uint32_t processId) override;
    NativeHandle DuplicateIntoThisProcess(NativeHandle source, std::uint32_t access) override;
    void CloseNativeHandle(NativeHandle handle) override;
    std::int32_t ImpersonateCaller() override;
    std::int32_t RevertImpersonation() override;
    std::int32_t PackageFamilyName(NativeHandle process, std::uint32_t& length, wchar_t* name) override;
    NativeHandle OpenToken(NativeHandle process, std::uint32_t access) override;
    bool ExpandForUser(NativeHandle token, const wchar_t* source, wchar_t* destination, std::uint32_t size) override;
    std::uint32_t ExpandInProcess(const wchar_t* source, wchar_t* destination, std::uint32_t size) override;
    std::uint32_t FullPath(const wchar_t* path, std::uint32_t size, wchar_t* buffer) override;
    std::uint32_t LastError() override;
};

} // namespace Tessel::Bridge::Platform::Windows
