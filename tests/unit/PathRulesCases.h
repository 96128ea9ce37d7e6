#pragma once
// What ExpandEnvironmentStringsW and GetFullPathNameW answer: checked against
// our rules on every build (unit/WindowsPathRulesTest.cpp) and against Wine's
// own functions (windows/PathRulesWineTest.cpp). Each row names its source:
// Windows' answers as Wine's conformance tests record them (kernel32
// environ.c and path.c, ntdll env.c and path.c), Microsoft's pages, or ours.
#include "platform/common/WindowsPathRules.h"

#include <algorithm>
#include <cstdint>
#include <cwctype>
#include <optional>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace KestrelTest::PathRules {

namespace Rules = Tessel::Bridge::Platform::PathRules;

inline constexpr std::uint32_t kKept = 0x5EED; // the last error every call starts with
// What a buffer holds before the call, as in the conformance tests; rows
// that write nothing expect it back.
inline const std::wstring kUntouched = L"abcdefghijklmnopqrstuv";
inline const std::wstring kCwd = L"C:\\windows";
inline std::wstring N(std::size_t count, wchar_t ch) { return std::wstring(count, ch); }

// The variables of every row; no other per-drive ("=C:") variable is set.
inline const std::vector<std::pair<std::wstring, std::wstring>> kVariables = {
    {L"TVAR", L"WINE"}, {L"foo", L"toto"}, {L"=oOH", L"III"}, {L"EnvVar", L"Long long value"},
    {L"IndirectVar", L"Foo%EnvVar%Bar"}, {L"KT_E", L""}, {L"KT_Y", N(20000, L'y')},
    {L"=C:", L"C:\\other"}, {L"=D:", L"D:\\x\\y"}};

struct Case {
    bool expand; // ExpandEnvironmentStringsW, else GetFullPathNameW
    std::wstring input;
    std::optional<std::wstring> text; // the buffer up to its first zero; nothing: untouched
    std::uint32_t returned;
    std::uint32_t size = 300; // 0 passes a null buffer
    const char* notUnderWine = nullptr; // where Wine differs from Windows
    std::wstring currentDirectory = kCwd;
};

// Success: the expansion counts its zero, the full path does not.
inline Case E(std::wstring in, std::wstring out)
{
    const auto returned = static_cast<std::uint32_t>(out.size() + 1);
    return {true, std::move(in), std::move(out), returned};
}
inline Case F(std::wstring in, std::wstring out, const char* notUnderWine = nullptr, std::wstring directory = kCwd)
{
    const auto returned = static_cast<std::uint32_t>(out.size());
    return {false, std::move(in), std::move(out), returned, 300, notUnderWine, std::move(directory)};
}

inline std::vector<Case> Cases()
{
    const char* cut = "Wine 8 cuts the text, adds a zero and sets error 122";
    return {
        // Values go in as they are; unknown names, "%%" and a lone '%' stay.
        E(L"hello%foo%world", L"hellototoworld"),           // ntdll env.c
        E(L"hello%=oOH%world", L"helloIIIworld"),           // ntdll env.c
        E(L"hello%foo", L"hello%foo"),                      // ntdll env.c
        E(L"Indirect-%IndirectVar%-Indirect", L"Indirect-Foo%EnvVar%Bar-Indirect"), // environ.c
        E(L"%tvar%<%KT_E%>%%|%KT_UNSET%TVAR%%%TVAR%%", L"WINE<>%%|%KT_UNSET%TVAR%%WINE%"), // ours
        {true, L"%KT_Y%%KT_Y%", N(40000, L'y'), 40001, 50000, "Wine keeps Windows XP's 32K limit"}, // MS page
        // Too small: text while it and a zero fit, a value with its zero or a
        // zero alone, then nothing; the size needed; the last error kept.
        {true, L"Long long value", std::nullopt, 16, 0, "Wine 8 sets error 122"}, // environ.c
        {true, L"Long long value", L"Lbcdefghijklmnopqrstuv", 16, 2, cut},  // environ.c
        {true, L"Long long value", L"Long long value", 16, 16},           // environ.c
        {true, L"%TVAR% long long", L"", 15, 4, cut},                     // environ.c
        {true, L"%TVAR% long long", L"WINE", 15, 5, cut},                 // environ.c
        {true, L"%TVAR% long long", L"WINE fghijklmnopqrstuv", 15, 6, cut}, // environ.c
        {true, L"%TVAR%%TVAR% long", L"WINE", 14, 8, cut},                // environ.c
        {true, L"%TVAR2% long long", L"%TVAR2%hijklmnopqrstuv", 18, 8, cut}, // environ.c

        // Separators, "." and ".." (never above the root); trailing dots and spaces.
        F(L"c:/test/  ....   ..   ", L"c:\\test\\"),                  // ntdll path.c
        F(L"c:/test/.. ", L"c:\\test\\"),                             // ntdll path.c
        F(L"c:/test../file", L"c:\\test.\\file"),                     // ntdll path.c
        F(L"c:///test\\.\\.\\file//", L"c:\\test\\file\\"),    // ntdll path.c
        F(L"c:\\test\\*.", L"c:\\test\\*"),                          // ntdll path.c
        // Relative, rooted and drive-relative paths: the current directory, its
        // drive, that drive's "=D:" directory, else the drive's root.
        F(L"c:.", L"C:\\windows"),                                      // ntdll path.c
        F(L"c:foo/bar", L"C:\\windows\\foo\\bar"),                   // ntdll path.c
        F(L"\\foo", L"C:\\foo"),                                       // ntdll path.c
        F(L"/foo", L"C:\\foo", "one '/' starts a Unix path to Wine"),   // ntdll path.c
        F(L"...", L"C:\\windows\\"),                                   // ntdll path.c
        F(L"..", L"C:\\"),                                              // ntdll path.c
        F(L"?<>*\"|:", L"C:\\windows\\?<>*\"|:"),                     // ntdll path.c
        F(L"?:", L"?:\\"),                                               // ntdll path.c (NT name)
        F(L"\\??\\foo", L"C:\\??\\foo"),                             // ntdll path.c
        F(L"d:..\\b", L"D:\\x\\b"),                                    // ours
        F(L"C:a", L"C:\\other\\a", nullptr, L"Z:\\tmp"),                // ours
        // UNC and device paths: server and share, or \\.\ and \\?\, are the root.
        F(L"//foo/", L"\\\\foo\\"),                                     // ntdll path.c
        F(L"//server/share/a/../../b", L"\\\\server\\share\\b"),       // ours
        F(L"//./foo/..", L"\\\\.\\"),                                   // ntdll path.c
        F(L"//./foo. . ", L"\\\\.\\foo"),                               // ntdll path.c (NT name)
        F(L"//?/foo/.", L"\\\\?\\foo"),                                 // ntdll path.c
        // Legacy devices, named by the last name of a path that is not UNC.
        F(L"\\windows\\nul", L"\\\\.\\nul"),                         // ntdll path.c
        F(L"C:\\con\\con", L"\\\\.\\con"), // ntdll path.c, Windows 10 (Windows 11: C:\\con\\con)
        F(L"c:NUL  ....  ", L"\\\\.\\NUL"),                             // ntdll RtlIsDosDeviceName_U
        F(L"CONIN$", L"\\\\.\\CONIN$"),                                 // ntdll path.c
        F(L"c:\\nul\\foo", L"c:\\nul\\foo"),                            // ntdll RtlIsDosDeviceName_U
        F(L"c:\\lpt0.txt", L"c:\\lpt0.txt"),                               // ntdll RtlIsDosDeviceName_U
        F(L"\\\\foo\\nul", L"\\\\foo\\nul"),                         // ntdll RtlIsDosDeviceName_U
        // Empty and blank names: 0, the last error kept. Too small: the buffer
        // left alone, the size needed with the zero. No 32K limit.
        {false, L"", std::nullopt, 0},                                     // kernel32 path.c
        {false, L" ", std::nullopt, 0},                                    // ntdll path.c (NT name)
        {false, L"C:\\a\\..\\b", L"C:\\b", 4, 5},                       // MS page
        {false, L"C:\\a\\..\\b", std::nullopt, 5, 4},                     // MS page
        {false, L"nul", std::nullopt, 8, 0},                               // MS page
        {false, L"C:\\" + N(40000, L'a'), L"C:\\" + N(40000, L'a'), 40003, 50000}, // ours
    };
}

// Return value, buffer text and last error.
using Outcome = std::tuple<std::uint32_t, std::wstring, std::uint32_t>;

inline Outcome Expected(const Case& row)
{
    return {row.returned, row.text.value_or(kUntouched), kKept};
}

// Calls a function as a program would, on a buffer holding kUntouched and
// fill after it: the text is the buffer up to its first zero.
template <typename Call>
Outcome Observe(const Case& row, Call call)
{
    const std::size_t room = std::min<std::uint32_t>(row.size, 70000);
    const std::wstring before = kUntouched + L'\0' + N(std::max(room, kUntouched.size()) + 16, L'#');
    std::wstring buffer = before;
    std::uint32_t lastError = kKept;
    const std::uint32_t returned = call(row.input.c_str(), row.size == 0 ? nullptr : buffer.data(), row.size, lastError);
    const std::wstring past = buffer.compare(room, std::wstring::npos, before, room) == 0 ? L"" : L"<past the size>";
    return {returned, buffer.c_str() + past, lastError};
}

// A variable of the table, names compared ignoring case.
inline std::optional<std::wstring> TableVariable(std::wstring_view name)
{
    const auto same = [](wchar_t a, wchar_t b) {
        return std::towupper(static_cast<std::wint_t>(a)) == std::towupper(static_cast<std::wint_t>(b));
    };
    for (const auto& [set, value] : kVariables) {
        if (std::equal(set.begin(), set.end(), name.begin(), name.end(), same)) return value;
    }
    return std::nullopt;
}

// Our functions, on the table's variables and the row's current directory.
inline Outcome Ours(const Case& row)
{
    const Rules::PathEnvironment environment{TableVariable, row.currentDirectory};
    return Observe(row, [&](const wchar_t* in, wchar_t* buffer, std::uint32_t size, std::uint32_t& lastError) {
        return row.expand ? Rules::ExpandVariables(in, buffer, size, environment, lastError)
                          : Rules::FullPathName(in, size, buffer, environment, lastError);
    });
}

} // namespace KestrelTest::PathRules
