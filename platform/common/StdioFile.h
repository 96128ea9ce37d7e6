#pragma once

#include <cstdio>
#include <memory>
#include <string>

namespace Tessel::Bridge::Platform {

struct StdioFileClose {
    void operator()(std::FILE* file) const { std::fclose(file); }
};

// A C runtime file, closed when it goes.
using UniqueStdioFile = std::unique_ptr<std::FILE, StdioFileClose>;

// The bytes from the file's position to its end.
inline std::string ReadRemaining(std::FILE* file)
{
    std::string bytes;
    char buffer[16384];
    for (std::size_t read = 0; (read = std::fread(buffer, 1, sizeof buffer, file)) > 0;) bytes.append(buffer, read);
    return bytes;
}

} // namespace Tessel::Bridge::Platform
