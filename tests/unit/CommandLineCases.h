#pragma once
// What CommandLineToArgvW gives for each command line. unit/CommandLineTest.cpp
// checks every row against SplitCommandLine: our splitter on Linux, the real
// function on Windows (here under Wine).
#include <string>
#include <vector>

namespace KestrelTest::CommandLine {

struct Case {
    std::wstring input;
    std::vector<std::wstring> arguments; // none: the running program's own path alone
    const char* notUnderWine = nullptr;  // where Wine differs from Windows
};

inline std::vector<Case> Cases()
{
    using std::wstring;
    return {
        // An empty line is the program's own path; the line ends at its first zero.
        {L"", {}},
        {wstring(L"\0a b", 4), {}},
        {wstring(L"test.exe a\0b", 12), {L"test.exe", L"a"}},
        // Blanks and tabs separate, and only outside quotes; trailing ones give nothing.
        {L"test.exe", {L"test.exe"}},
        {L"test.exe\t\t a \t b\t ", {L"test.exe", L"a", L"b"}},
        {L"test.exe a\rb\nc\vd\u3000e", {L"test.exe", L"a\rb\nc\vd\u3000e"}},
        // A leading blank makes the program name empty.
        {L"   ", {L""}},
        {L" \"arg\"one argtwo", {L"", L"argone", L"argtwo"}},
        // The program name: no escapes; in quotes it ends at the next quote,
        // even with no blank after it; unquoted, quotes are text.
        {L"\"C:\\P F\\dir\\\"arg1 arg2", {L"C:\\P F\\dir\\", L"arg1", L"arg2"}},
        {L"exe\"file\"path\targ1", {L"exe\"file\"path", L"arg1"}},
        {L"\\\"exe \"arg one\"", {L"\\\"exe", L"arg one"}},
        {L"\"unclosed name", {L"unclosed name"}},
        {L"\"two\"\" arg1 ", {L"two", L" arg1 "}},
        {L"\"four\"\"\"\"arg1", {L"four", L"\"arg1"}},
        // After a quoted name only blanks are skipped; an unquoted one ends at
        // any character up to U+0020, which goes with it.
        {L"\"a b.exe\"\rc", {L"a b.exe", L"\rc"}},
        {L"test.exe\ra\nb", {L"test.exe", L"a\nb"}, "Wine ends an unquoted program name only at a blank or tab"},
        // Backslashes not before a quote are text, in quotes or not, at the end too.
        {L"test.exe a\\b a\\\\b \"a\\\\b\" a\\\\\\\\", {L"test.exe", L"a\\b", L"a\\\\b", L"a\\\\b", L"a\\\\\\\\"}},
        // Before a quote: 2n backslashes are n and the quote opens or closes;
        // 2n+1 are n and a literal quote.
        {L"test.exe \\\"one \\\\\"two\" \\\\\\\"three \\\\\\\\\"four\" end",
         {L"test.exe", L"\"one", L"\\two", L"\\\"three", L"\\\\four", L"end"}},
        {L"test.exe \"one\\\" still\" \"two\\\\\" \"three\\\\\\\" still\" end",
         {L"test.exe", L"one\" still", L"two\\", L"three\\\" still", L"end"}},
        // A folder's trailing backslash escapes the closing quote; doubled, it does not.
        {L"test.exe C:\\dir\\ \"C:\\P F\\\" x", {L"test.exe", L"C:\\dir\\", L"C:\\P F\" x"}},
        {L"test.exe \"C:\\P F\\\\\" x", {L"test.exe", L"C:\\P F\\", L"x"}},
        // Quoted parts join the text around them; one left open runs to the end.
        {L"test.exe arg\"one\" \"second\"arg a\"b c\"d", {L"test.exe", L"argone", L"secondarg", L"ab cd"}},
        {L"test.exe \"unclosed  arg", {L"test.exe", L"unclosed  arg"}},
        // Empty arguments: "" anywhere, and a lone quote at the end.
        {L"test.exe \"\" a \"\"", {L"test.exe", L"", L"a", L""}},
        {L"test.exe a \"", {L"test.exe", L"a", L""}},
        // Inside quotes a doubled quote is a literal quote and closes the
        // quoted part; outside, "" is nothing and """ a literal quote.
        {L"test.exe two\"\"quotes next", {L"test.exe", L"twoquotes", L"next"}},
        {L"test.exe three\"\"\"quotes next", {L"test.exe", L"three\"quotes", L"next"}},
        {L"test.exe four\"\"\"\" quotes\" next", {L"test.exe", L"four\" quotes", L"next"}},
        {L"test.exe six\"\"\"\"\"\"quotes next", {L"test.exe", L"six\"\"quotes", L"next"}},
        {L"test.exe \"two\"\"quotes next", {L"test.exe", L"two\"quotes", L"next"}},
        {L"test.exe \"a \"\"b\"\" c\"", {L"test.exe", L"a \"b", L"c"}},
        {L"test.exe \"five\"\"\"\"\"quotes next", {L"test.exe", L"five\"\"quotes", L"next"}},
        {L"test.exe \"the crazy \\\\\"\"\"\\\\\" quotes", {L"test.exe", L"the crazy \\\"\\", L"quotes"}},
        // What the host-process validators see: regsvr32's switches, rundll32's DLL and entry.
        {L"test.exe /s /u C:\\x\\a.dll", {L"test.exe", L"/s", L"/u", L"C:\\x\\a.dll"}},
        {L"test.exe \"C:\\P F\\a.dll\",Entry arg", {L"test.exe", L"C:\\P F\\a.dll,Entry", L"arg"}},
        {L"test.exe \"C:\\Program Files\\K\u00e4mera\\a.dll\"", {L"test.exe", L"C:\\Program Files\\K\u00e4mera\\a.dll"}},
    };
}

} // namespace KestrelTest::CommandLine
