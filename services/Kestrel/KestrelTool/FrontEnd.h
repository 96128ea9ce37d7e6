#pragma once

#include <iosfwd>
#include <optional>
#include <string>

namespace Tessel::Bridge::Server::Services::Kestrel {

// KestrelTool Category Function [Value]; words after the value are ignored.
struct CommandWords {
    std::wstring category;
    std::wstring function;
    std::wstring value; // empty when absent
};

// Converts the command line from UTF-8. Nothing when it has fewer than a
// category and a function after the program name.
std::optional<CommandWords> ReadCommandWords(int argc, const char* const argv[]);

// Hands the words to the category's handler, which replaces result with its
// answer. An unknown category leaves result as it is.
void DispatchCommand(const CommandWords& words, std::wstring& result);

// One run: -1 at once for too few words, else the handler's result and a line
// end on out, flushed, and 0. Exceptions from the handlers are not caught.
int RunKestrelTool(int argc, const char* const argv[], std::wostream& out);

// An exception that escapes ends the process with its message on stderr and
// kAbnormalEndStatus, never with a result line.
inline constexpr int kAbnormalEndStatus = 3;
void InstallTerminationReport();

} // namespace Tessel::Bridge::Server::Services::Kestrel
