// The command-line splitter on arbitrary text. Input: a flags byte, then
// Latin-1 text: the command line (split up to its first zero), and the
// zero-separated parts after that zero, an argument list to write and split back.
#include "FuzzSupport.h"

#include "platform/CommandLine.h"

#include <algorithm>
#include <vector>

using KestrelFuzz::Require;
using Arguments = std::vector<std::wstring>;

namespace {

bool IsBlank(wchar_t ch)
{
    return ch == L' ' || ch == L'\t';
}

// An argument written so that it splits back to itself: n backslashes before
// a quote become 2n+1, and before a closing quote 2n. Quoted when it is empty
// or has a blank, or always.
std::wstring Written(const std::wstring& argument, bool alwaysQuoted)
{
    const bool quoted = alwaysQuoted || argument.empty() || std::any_of(argument.begin(), argument.end(), IsBlank);
    std::wstring out = quoted ? L"\"" : L"";
    std::size_t backslashes = 0;
    for (const wchar_t ch : argument) {
        if (ch == L'\\') {
            ++backslashes;
            continue;
        }
        out.append(ch == L'"' ? 2 * backslashes + 1 : backslashes, L'\\');
        out += ch;
        backslashes = 0;
    }
    out.append(quoted ? 2 * backslashes : backslashes, L'\\');
    return quoted ? out + L'"' : out;
}

void RequireRoundTrip(const Arguments& arguments, bool alwaysQuoted)
{
    std::wstring line = L"test.exe";
    for (const std::wstring& argument : arguments) line += L' ' + Written(argument, alwaysQuoted);
    Arguments expected{L"test.exe"};
    expected.insert(expected.end(), arguments.begin(), arguments.end());
    Require(Tessel::Bridge::Platform::SplitCommandLine(line) == expected, "written arguments split back to themselves");
}

// The words between blanks and tabs.
Arguments Words(const std::wstring& text)
{
    Arguments words;
    for (std::size_t at = 0; at < text.size();) {
        const auto blank = std::find_if(text.begin() + static_cast<std::ptrdiff_t>(at), text.end(), IsBlank);
        const auto end = static_cast<std::size_t>(blank - text.begin());
        if (end > at) words.push_back(text.substr(at, end - at));
        at = end + 1;
    }
    return words;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size < 1) return 0;
    const bool alwaysQuoted = (data[0] & 1) != 0;
    const std::wstring input(data + 1, data + size);
    const Arguments split = Tessel::Bridge::Platform::SplitCommandLine(input);
    const std::wstring line = input.substr(0, input.find(L'\0'));
    if (line.empty()) {
        Require(split.size() == 1 && !split[0].empty(), "an empty line is the program's own path");
        return 0;
    }
    Require(!split.empty(), "a line has a program name");

    // Without quotes nothing escapes: the name ends at the first character up
    // to U+0020, and the arguments are the words after it.
    if (line.find(L'"') == std::wstring::npos) {
        const auto nameEnd = std::find_if(line.begin(), line.end(), [](wchar_t ch) { return ch <= L' '; });
        Arguments expected{std::wstring(line.begin(), nameEnd)};
        const Arguments words = Words(nameEnd == line.end() ? std::wstring() : std::wstring(nameEnd + 1, line.end()));
        expected.insert(expected.end(), words.begin(), words.end());
        Require(split == expected, "a line without quotes splits at blanks and tabs");
    }
    if (line.size() < input.size()) {
        Arguments list;
        for (std::size_t at = line.size() + 1;;) {
            const std::size_t zero = input.find(L'\0', at);
            list.push_back(input.substr(at, zero - at));
            if (zero == std::wstring::npos) break;
            at = zero + 1;
        }
        RequireRoundTrip(list, alwaysQuoted);
    }
    return 0;
}
