#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace Tessel::Bridge::Platform::PathRules {

// What a Windows process's path functions depend on.
struct PathEnvironment {
    // The value of an environment variable, names compared ignoring case;
    // nothing when it is not set. Also answers the per-drive "=C:" variables.
    std::function<std::optional<std::wstring>(std::wstring_view name)> variable;
    // The process's current directory, e.g. L"C:\\Users\\me".
    std::wstring currentDirectory;
};

// Named apart from the Win32 functions, whose names windows.h turns into macros.

// As ExpandEnvironmentStringsW: same arguments, return value and last error.
std::uint32_t ExpandVariables(const wchar_t* source, wchar_t* destination, std::uint32_t size,
                                       const PathEnvironment& environment, std::uint32_t& lastError);

// As GetFullPathNameW without the file-part pointer: same arguments, return
// value and last error.
std::uint32_t FullPathName(const wchar_t* path, std::uint32_t size, wchar_t* buffer,
                              const PathEnvironment& environment, std::uint32_t& lastError);

} // namespace Tessel::Bridge::Platform::PathRules
