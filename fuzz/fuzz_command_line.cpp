// The command-line splitter on arbitrary text. Input: a flags byte, then
// Latin-1 text: the command line (split up to its first zero), and the
// zero-separated parts after that zero, an argument list to write and split back.
#include "FuzzSupport.h"

#include "platform/CommandLine.h"

#include <vector>

using KestrelFuzz::Require;
using Arguments = std::vector<std::wstring>;

namespace {

// An argument written so that it splits back to itself: n backslashes before
// a quote become 2n+1, and before a closing quote 2n. Quoted when it is empty
// or has a blank, or always.
std::wstring Written(const std::wstring& argument, bool alwaysQuoted)
{
    const bool quoted = alwaysQuoted || argument.empty() || argument.find_first_of(L" \t") != std::wstring::npos;
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

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size < 1) return 0;
    const std::wstring input(data + 1, data + size);
    const Arguments split = Tessel::Bridge::Platform::SplitCommandLine(input);
    Require(!split.empty() && (input[0] != L'\0' || (split.size() == 1 && !split[0].empty())),
            "a program name; an empty line is the program's own path");

    Arguments list;
    for (std::size_t at = input.find(L'\0'); at != std::wstring::npos; at = input.find(L'\0', at + 1)) {
        list.push_back(input.substr(at + 1, input.find(L'\0', at + 1) - at - 1));
    }
    std::wstring line = L"test.exe";
    for (const std::wstring& argument : list) line += L' ' + Written(argument, (data[0] & 1) != 0);
    list.insert(list.begin(), L"test.exe");
    Require(Tessel::Bridge::Platform::SplitCommandLine(line) == list, "written arguments split back to themselves");
    return 0;
}
