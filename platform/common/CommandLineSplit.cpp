// CommandLineToArgvW's splitting for the Linux build; the Windows build calls
// the real function (windows/CommandLine.cpp).
//
// Sources: Microsoft's CommandLineToArgvW page and "Parsing C++ command-line
// arguments". Where they are silent, Windows' own function is the reference,
// as shown by conformance tables run on Windows: a doubled quote inside a
// quoted part, what ends an unquoted program name, and what follows a quoted
// one. unit/CommandLineCases.h holds those cases.
#include "platform/CommandLine.h"

#include "platform/common/Utf8.h"

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <string_view>
#include <system_error>

namespace Tessel::Bridge::Platform {
namespace {

constexpr wchar_t kQuote = L'"';
constexpr wchar_t kBackslash = L'\\';

// Only these separate arguments; CR, LF and other control characters are text.
bool IsBlank(wchar_t ch)
{
    return ch == L' ' || ch == L'\t';
}

// An unquoted program name, though, ends at any control character or space.
// Compared unsigned: wchar_t is signed on Linux.
bool EndsProgramName(wchar_t ch)
{
    return static_cast<std::uint32_t>(ch) <= 0x20;
}

// An empty command line gives the running program's own path, as
// GetModuleFileNameW would.
std::vector<std::wstring> OwnProgramPath()
{
    std::error_code error;
    const std::filesystem::path path = std::filesystem::read_symlink("/proc/self/exe", error);
    if (error) return {};
    return {Utf8::Decode(path.native())};
}

// The program name has no escapes and no doubled quotes. In quotes it runs to
// the next quote, and the next argument may start right after that quote.
// Otherwise it runs to the first character up to U+0020 (a leading blank
// makes it empty), and that one character is taken with it: "a.exe\rb" gives
// "b" as the first argument.
std::wstring ProgramName(std::wstring_view line, std::size_t& at)
{
    if (line.front() == kQuote) {
        const std::size_t close = std::min(line.find(kQuote, 1), line.size());
        at = std::min(close + 1, line.size());
        return std::wstring(line.substr(1, close - 1));
    }
    const auto end = static_cast<std::size_t>(std::find_if(line.begin(), line.end(), EndsProgramName) - line.begin());
    at = std::min(end + 1, line.size());
    return std::wstring(line.substr(0, end));
}

// One argument, from a character that is not a blank to an unquoted blank or
// the end of the line. A quote left open at the end closes there.
std::wstring Argument(std::wstring_view line, std::size_t& at)
{
    std::wstring argument;
    bool quoted = false;
    while (at < line.size() && (quoted || !IsBlank(line[at]))) {
        const wchar_t ch = line[at];
        if (ch == kBackslash) {
            // Before a quote, 2n backslashes are n and leave the quote to
            // open or close; 2n+1 are n and a literal quote. Elsewhere they
            // are only backslashes.
            const std::size_t end = std::min(line.find_first_not_of(kBackslash, at), line.size());
            const std::size_t run = end - at;
            at = end;
            const bool beforeQuote = at < line.size() && line[at] == kQuote;
            argument.append(beforeQuote ? run / 2 : run, kBackslash);
            if (beforeQuote && run % 2 == 1) {
                argument += kQuote;
                ++at;
            }
        } else if (ch == kQuote) {
            ++at;
            // Inside quotes, a doubled quote is one literal quote and ends the
            // quoted part (Windows' own function; the C runtime since Visual
            // C++ 2008 stays in quotes). So three quotes in a row outside
            // quotes are one literal quote.
            if (quoted && at < line.size() && line[at] == kQuote) {
                argument += kQuote;
                ++at;
            }
            quoted = !quoted;
        } else {
            argument += ch;
            ++at;
        }
    }
    return argument;
}

} // namespace

std::vector<std::wstring> SplitCommandLine(const std::wstring& commandLine)
{
    // The real function reads a zero-terminated string: text after a zero is not seen.
    const std::wstring_view line(commandLine.c_str());
    if (line.empty()) return OwnProgramPath();

    std::size_t at = 0;
    std::vector<std::wstring> arguments{ProgramName(line, at)};
    for (;;) {
        while (at < line.size() && IsBlank(line[at])) ++at;
        if (at == line.size()) break;
        arguments.push_back(Argument(line, at));
    }
    return arguments;
}

} // namespace Tessel::Bridge::Platform
