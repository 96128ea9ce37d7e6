#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace KestrelTest {

struct ProcessResult {
    int exitStatus = -1;
    std::string out; // standard output, bytes as written
    std::string err; // standard error
};

struct EnvironmentChange {
    std::string name;
    std::optional<std::string> value; // nothing: remove the variable
};

// Runs program with UTF-8 arguments, waits for it and collects its output.
ProcessResult RunProcess(const std::filesystem::path& program, const std::vector<std::string>& arguments,
                         const std::vector<EnvironmentChange>& environment = {});

// Sets (or with nothing, removes) a variable of this process's own environment.
void SetOwnEnvironment(const EnvironmentChange& change);

// A program of the build: in KESTREL_PROGRAM_DIR when that is set, else
// beside the running test program.
std::filesystem::path BuiltProgram(std::string_view name);

// What a parent sees when main returns -1 (255 on POSIX, -1 on Windows).
extern const int kExitStatusOfMinusOne;

// The line end of the platform's text output.
extern const std::string_view kLineEnd;

} // namespace KestrelTest
