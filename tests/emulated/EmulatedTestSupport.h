#pragma once

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/ScopedEnvironment.h"

namespace KestrelTest {

inline std::string ReadFileBytes(const std::filesystem::path& path)
{
    std::ifstream in(path, std::ios::binary);
    std::ostringstream bytes;
    bytes << in.rdbuf();
    return bytes.str();
}

inline void WriteFileBytes(const std::filesystem::path& path, const std::string& bytes)
{
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << bytes;
    ASSERT_TRUE(out.good()) << "cannot write " << path;
}

// The names of the files in a directory, sorted.
inline std::vector<std::string> FileNamesIn(const std::filesystem::path& directory)
{
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(directory)) {
        names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

// State files that no run may use or overwrite.
inline std::vector<std::string> MalformedStateFiles()
{
    return {
        "{\"mouse\": ",                                    // cut short
        "",                                                // empty
        "[1, 2]",                                          // not an object
        R"({"mouse": {"speed": "fast"}})",                 // wrong type
        R"({"mouse": {"speed": 3000000000}})",             // beyond 32 bits
        R"({"mouse": {"speed": 5, "buttonsSwapped": 1}})", // not a boolean
        R"({"mouse": 5})",                                 // area is not an object
        R"({"version": 2})",                               // a later format
        R"({"other": 1e999})",                             // a number no JSON type holds
        "{\"other\": " + std::string(100000, '[') + std::string(100000, ']') + "}", // too deep for the stack
    };
}

} // namespace KestrelTest
