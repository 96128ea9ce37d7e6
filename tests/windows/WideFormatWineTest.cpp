// The shared cases through msvcrt.dll's own _vsnwprintf too: both must print
// the same text, embedded zeros included.
#include "unit/WideFormatCases.h"

#include "logging/WideFormat.h"

#include <gtest/gtest.h>

#include <windows.h>

#include <vector>

using Tessel::Bridge::Logging::FormatWideArgs;
using namespace KestrelTest;

// Looked up by name, so that no mingw-w64 replacement can stand in for it.
static std::wstring RuntimeFormat(const wchar_t* format, ...)
{
    using Formatter = int(__cdecl*)(wchar_t*, std::size_t, const wchar_t*, va_list);
    const auto formatter = reinterpret_cast<Formatter>(reinterpret_cast<void*>(GetProcAddress(LoadLibraryW(L"msvcrt.dll"), "_vsnwprintf")));
    std::vector<wchar_t> buffer(2048);
    va_list arguments;
    va_start(arguments, format);
    const int count = formatter == nullptr ? -1 : formatter(buffer.data(), buffer.size(), format, arguments);
    va_end(arguments);
    return count < 0 ? L"<no result>" : std::wstring(buffer.data(), static_cast<std::size_t>(count));
}

#define KESTREL_EXPECT_AS_RUNTIME(format, expected, ...) \
    EXPECT_EQ(FormatWideArgs(format __VA_OPT__(, ) __VA_ARGS__), RuntimeFormat(format __VA_OPT__(, ) __VA_ARGS__)) << "format: " << format;

TEST(WideFormatWine, AgreesWithMsvcrt)
{
    KESTREL_WIDE_FORMAT_CASES(KESTREL_EXPECT_AS_RUNTIME)
}
