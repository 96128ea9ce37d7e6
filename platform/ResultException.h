#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

namespace Tessel::Bridge::Platform {

// The platform's 32-bit status code: negative is a failure.
using HResult = std::int32_t;

constexpr HResult ToHResult(std::uint32_t code) noexcept
{
    return static_cast<HResult>(code);
}

inline constexpr HResult kUnexpected = ToHResult(0x8000FFFF);   // E_UNEXPECTED
inline constexpr HResult kInvalidArgument = ToHResult(0x80070057); // E_INVALIDARG
inline constexpr HResult kOutOfMemory = ToHResult(0x8007000E);  // E_OUTOFMEMORY
inline constexpr HResult kNotFound = ToHResult(0x80070002);     // HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND)
inline constexpr HResult kAccessDenied = ToHResult(0x80070005); // E_ACCESSDENIED
inline constexpr HResult kCanceled = ToHResult(0x800704C7);     // HRESULT_FROM_WIN32(ERROR_CANCELLED)
inline constexpr HResult kIntegerDivideByZero = ToHResult(0xC0000094); // STATUS_INTEGER_DIVIDE_BY_ZERO

// A failure carried as its status code, with the source and line that raised
// it, in the form failure reports use: "CameraDefaultControl(123): 0x8000FFFF".
class ResultException : public std::runtime_error {
public:
    ResultException(HResult code, const char* source, int line);

    HResult Code() const noexcept { return code_; }

private:
    HResult code_;
};

// Throws a ResultException for a failed code; passes success through.
inline void ThrowIfFailed(HResult code, const char* source, int line)
{
    if (code < 0) throw ResultException(code, source, line);
}

} // namespace Tessel::Bridge::Platform
