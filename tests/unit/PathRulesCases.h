#pragma once
// What ExpandEnvironmentStringsW and GetFullPathNameW answer: checked against
// our rules on every build (unit/WindowsPathRulesTest.cpp) and against Wine's
// own functions (windows/PathRulesWineTest.cpp).
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
inline constexpr std::uint32_t kShort = 122;   // ERROR_INSUFFICIENT_BUFFER
inline constexpr wchar_t kFill = L'#';
inline const std::wstring kCwd = L"C:\\KestrelPathRules\\cur";
inline std::wstring N(std::size_t count, wchar_t ch) { return std::wstring(count, ch); }

// The variables of every row; no other per-drive ("=C:") variable is set.
inline const std::vector<std::pair<std::wstring, std::wstring>> kVariables = {
    {L"KT_A", L"bar"}, {L"KT_E", L""}, {L"KT_R", L"%KT_A%"}, {L"KT_Z", N(16000, L'z')}, {L"KT_Y", N(20000, L'y')},
    {L"=C:", L"C:\\other"}, {L"=D:", L"D:\\x\\y"}};

struct Case {
    bool expand; // ExpandEnvironmentStringsW, else GetFullPathNameW
    std::wstring input;
    std::optional<std::wstring> text; // the buffer up to its zero; nothing: untouched
    std::uint32_t returned;
    std::uint32_t size = 300; // 0 passes a null buffer
    std::uint32_t lastError = kKept;
    std::wstring currentDirectory = kCwd;
    const char* notUnderWine = nullptr; // where Wine differs from Windows
};

// Success: the expansion counts its zero, the full path does not.
inline Case E(std::wstring in, std::wstring out)
{
    const auto returned = static_cast<std::uint32_t>(out.size() + 1);
    return {true, std::move(in), std::move(out), returned};
}
inline Case F(std::wstring in, std::wstring out, std::wstring directory = kCwd, const char* notUnderWine = nullptr)
{
    const auto returned = static_cast<std::uint32_t>(out.size());
    return {false, std::move(in), std::move(out), returned, 300, kKept, std::move(directory), notUnderWine};
}

inline std::vector<Case> Cases()
{
    const std::wstring cur = kCwd + L"\\";
    const char* noShare = "no share in the prefix to make current";
    return {
        // Names ignore case; values go in as they are; unknown names, "%%" and a lone '%' stay.
        E(L"x%KT_A%y%kt_a%<%KT_E%>%KT_R%", L"xbarybar<>%KT_A%"),
        E(L"%KT_UNSET%KT_A%%%KT_A%%", L"%KT_UNSET%KT_A%%bar%"),
        // Too small: what fits and a zero, the size needed, ERROR_INSUFFICIENT_BUFFER.
        {true, L"a%KT_A%b", L"abarb", 6, 6},
        {true, L"a%KT_A%b", L"abar", 6, 5, kShort},
        {true, L"a%KT_A%b", std::nullopt, 6, 0, kShort},
        // 32K: the source counts up to 32,766 characters, the buffer up to 32,767.
        {true, N(32762, L'a') + L"%KT_A%", N(32762, L'a') + L"%KT_", 32767, 40000},
        {true, L"%KT_Z%%KT_Z%" + N(767, L'c'), N(32000, L'z') + N(766, L'c'), 32768, 40000, kShort},
        {true, L"%KT_Y%%KT_Y%", N(9, L'y'), 40001, 10, kShort},

        // Separators, "." and ".." (never above the root; a last one leaves no separator).
        F(L"c:/a//b\\\\c\\.\\d\\..\\e\\", L"c:\\a\\b\\c\\e\\"),
        F(L"C:\\a\\..\\", L"C:\\"),
        // Relative and rooted paths: the current directory, or its drive or share.
        F(L"a\\b", cur + L"a\\b"),
        F(L".", kCwd),
        F(L"..\\..\\..\\..\\x", L"C:\\x"),
        F(L"\\a\\.\\b", L"C:\\a\\b"),
        F(L"..", L"C:\\", L"C:\\"),
        F(L"/a", L"C:\\a", kCwd, "a path starting with one '/' is a Unix path to Wine: Z:\\a"),
        F(L"\\a\\..\\..\\b", L"\\\\srv\\sh\\b", L"\\\\srv\\sh\\dir", noShare),
        F(L"..\\..\\x", L"\\\\srv\\sh\\x", L"\\\\srv\\sh\\dir", noShare),
        // Drive-relative: the current directory on its drive, else "=D:", else the root.
        F(L"C:", cur),
        F(L"c:a", cur + L"a"),
        F(L"d:..\\b", L"D:\\x\\b"),
        F(L"E:a\\b", L"E:\\a\\b"),
        F(L"C:a", L"C:\\other\\a", L"Z:\\tmp"),
        // UNC: server and share are the root.
        F(L"//server/share/a/../../b", L"\\\\server\\share\\b"),
        F(L"\\\\server\\share\\a\\..", L"\\\\server\\share\\"),
        F(L"\\\\server\\share\\\\\\a", L"\\\\server\\share\\a", kCwd, "Wine keeps a run of separators after the share"),
        // Device paths: \\.\ or \\?\ is the root, and both are normalized here.
        F(L"\\\\.\\C:\\a\\..\\..\\..\\b", L"\\\\.\\b"),
        F(L"//?/C:/a/../b.", L"\\\\?\\C:\\b"),
        F(L"\\\\?", L"\\\\.\\"),
        // Dots and spaces: all trailing ones off the last name, one dot off the others.
        F(L"C:\\a..\\b.\\c\\...\\d. . ", L"C:\\a.\\b\\c\\..\\d"),
        F(L"C:\\a\\b. \\", L"C:\\a\\b. \\"),
        F(L"C:\\a\\.. ", L"C:\\a\\"),
        F(L" a ", cur + L" a"),
        // Legacy devices, named by the last name of a path that is not UNC.
        F(L"C:\\dir\\con.txt", L"\\\\.\\con"),
        F(L"D:nul :x", L"\\\\.\\nul"),
        F(L"nul\\COM10", cur + L"nul\\COM10"),
        F(L"\\\\server\\share\\COM1", L"\\\\server\\share\\COM1"),
        // Empty and blank names: 0, the last error left alone. Too small: the
        // buffer left alone, the size needed with the zero. No 32K limit.
        {false, L"", std::nullopt, 0},
        {false, L"   ", std::nullopt, 0},
        {false, L"C:\\a\\..\\b", L"C:\\b", 4, 5},
        {false, L"C:\\a\\..\\b", std::nullopt, 5, 4},
        {false, L"nul", std::nullopt, 8, 0},
        {false, L"C:\\" + N(40000, L'a'), L"C:\\" + N(40000, L'a'), 40003, 50000},
    };
}

// Return value, buffer text and last error.
using Outcome = std::tuple<std::uint32_t, std::wstring, std::uint32_t>;

inline Outcome Expected(const Case& row)
{
    return {row.returned, row.text ? *row.text : N(row.size, kFill), row.lastError};
}

// Calls a function as a program would, with a buffer of fill characters: the
// text is the buffer up to its zero (all of it when there is none).
template <typename Call>
Outcome Observe(const Case& row, Call call)
{
    const auto room = static_cast<std::ptrdiff_t>(std::min<std::uint32_t>(row.size, 70000));
    std::vector<wchar_t> buffer(static_cast<std::size_t>(room) + 16, kFill);
    std::uint32_t lastError = kKept;
    const std::uint32_t returned = call(row.input.c_str(), row.size == 0 ? nullptr : buffer.data(), row.size, lastError);
    std::wstring text(buffer.begin(), std::find(buffer.begin(), buffer.begin() + room, L'\0'));
    if (std::any_of(buffer.begin() + room, buffer.end(), [](wchar_t ch) { return ch != kFill; })) text += L"<past the size>";
    return {returned, text, lastError};
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
