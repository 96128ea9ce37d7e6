#pragma once
// What CommandLineToArgvW gives for each command line. unit/CommandLineTest.cpp
// checks every row against SplitCommandLine: our splitter on Linux, the real
// function on Windows (here under Wine). Rows marked shlexec.c are Windows'
// answers as Wine's shell32 conformance test records them.
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
        {L"", {}}, // shlexec.c
        {wstring(L"\0a b", 4), {}}, // ours
        {wstring(L"exe a\0b", 7), {L"exe", L"a"}}, // ours
        // Blanks and tabs separate, and only outside quotes; trailing ones give nothing.
        {L"exe", {L"exe"}}, // shlexec.c
        {L"exe arg1 arg2 \"arg three\" 'four five` six\\ $even)", {L"exe", L"arg1", L"arg2", L"arg three", L"'four", L"five`", L"six\\", L"$even)"}}, // shlexec.c
        {L"exe arg=1 arg-2 three\tfour\rfour\nfour ", {L"exe", L"arg=1", L"arg-2", L"three", L"four\rfour\nfour"}}, // shlexec.c
        {L"exe \"one^\" \"arg\"&two three|four %TMPDIR% %2", {L"exe", L"one^", L"arg&two", L"three|four", L"%TMPDIR%", L"%2"}}, // shlexec.c
        // Quoted parts join the text around them; one left open runs to the end.
        {L"exe arg\"one\" \"second\"arg thirdarg ", {L"exe", L"argone", L"secondarg", L"thirdarg"}}, // shlexec.c
        {L"exe arg1 \"unclosed", {L"exe", L"arg1", L"unclosed"}}, // shlexec.c
        {L"exe arg1 \"", {L"exe", L"arg1", L""}}, // shlexec.c
        // Backslashes not before a quote are text; before one, 2n are n and the
        // quote opens or closes, 2n+1 are n and a literal quote.
        {L"exe o\\ne t\\\\wo t\\\\\\ree f\\\\\\\\our ", {L"exe", L"o\\ne", L"t\\\\wo", L"t\\\\\\ree", L"f\\\\\\\\our"}}, // shlexec.c
        {L"exe \"o\\ne\" \"t\\\\wo\" \"t\\\\\\ree\" \"f\\\\\\\\our\" ", {L"exe", L"o\\ne", L"t\\\\wo", L"t\\\\\\ree", L"f\\\\\\\\our"}}, // shlexec.c
        {L"exe \\\"one \\\\\"two\" \\\\\\\"three \\\\\\\\\"four\" end", {L"exe", L"\"one", L"\\two", L"\\\"three", L"\\\\four", L"end"}}, // shlexec.c
        {L"exe \"one\\\" still\" \"two\\\\\" \"three\\\\\\\" still\" \"four\\\\\\\\\" end", {L"exe", L"one\" still", L"two\\", L"three\\\" still", L"four\\\\", L"end"}}, // shlexec.c
        // Outside quotes 3n quotes are n, 3n+1 n and an open quote, 3n+2 n.
        {L"exe two\"\"quotes next", {L"exe", L"twoquotes", L"next"}}, // shlexec.c
        {L"exe three\"\"\"quotes next", {L"exe", L"three\"quotes", L"next"}}, // shlexec.c
        {L"exe four\"\"\"\" quotes\" next 4%3=1", {L"exe", L"four\" quotes", L"next", L"4%3=1"}}, // shlexec.c
        {L"exe six\"\"\"\"\"\"quotes next", {L"exe", L"six\"\"quotes", L"next"}}, // shlexec.c
        // Inside quotes the opening one counts too: 1+3n are n, 1+3n+1 n and a
        // close, 1+3n+2 n+1 and a close.
        {L"exe \"two\"\"quotes next", {L"exe", L"two\"quotes", L"next"}}, // shlexec.c
        {L"exe \"three\"\"\" quotes\" next 4%3=1", {L"exe", L"three\" quotes", L"next", L"4%3=1"}}, // shlexec.c
        {L"exe \"four\"\"\"\"quotes next", {L"exe", L"four\"quotes", L"next"}}, // shlexec.c
        {L"exe \"five\"\"\"\"\"quotes next", {L"exe", L"five\"\"quotes", L"next"}}, // shlexec.c
        {L"exe \"the crazy \\\\\"\"\"\\\\\" quotes", {L"exe", L"the crazy \\\"\\", L"quotes"}}, // shlexec.c
        // The program name: no escapes; in quotes it ends at the next quote, even
        // with no blank after it; unquoted, quotes are text and it ends at any
        // character up to U+0020, which goes with it; a leading blank makes it empty.
        {L"exe\"file\"path\targ1", {L"exe\"file\"path", L"arg1"}}, // shlexec.c
        {L"exe\"path\\ arg1", {L"exe\"path\\", L"arg1"}}, // shlexec.c
        {L"\\\"exe \"arg one\"", {L"\\\"exe", L"arg one"}}, // shlexec.c
        {L"\"spaced exe\"\t\"next arg\"", {L"spaced exe", L"next arg"}}, // shlexec.c
        {L"\"exe\"arg\" one\" argtwo", {L"exe", L"arg one", L"argtwo"}}, // shlexec.c
        {L"\"spaced exe\\\"arg1 arg2", {L"spaced exe\\", L"arg1", L"arg2"}}, // shlexec.c
        {L"\"two\"\" arg1 ", {L"two", L" arg1 "}}, // shlexec.c
        {L"\"three\"\"\" arg2", {L"three", L"", L"arg2"}}, // shlexec.c
        {L"\"four\"\"\"\"arg1", {L"four", L"\"arg1"}}, // shlexec.c
        {L" \"arg\"one argtwo", {L"", L"argone", L"argtwo"}}, // shlexec.c
        {L"   ", {L""}}, // ours
        {L"\"unclosed name", {L"unclosed name"}}, // ours
        {L"\"a b.exe\"\rc", {L"a b.exe", L"\rc"}}, // ours
        {L"exe\ra\nb", {L"exe", L"a\nb"}, "Wine ends an unquoted program name only at a blank or tab"}, // winbox-args wiki
        // What the host-process validators see: regsvr32's switches, rundll32's DLL and entry.
        {L"exe /s /u C:\\x\\a.dll", {L"exe", L"/s", L"/u", L"C:\\x\\a.dll"}}, // ours
        {L"exe \"C:\\P F\\a.dll\",Entry arg", {L"exe", L"C:\\P F\\a.dll,Entry", L"arg"}}, // ours
        {L"exe \"C:\\Program Files\\K\u00e4mera\\a.dll\"", {L"exe", L"C:\\Program Files\\K\u00e4mera\\a.dll"}}, // ours

    };
}

} // namespace KestrelTest::CommandLine
