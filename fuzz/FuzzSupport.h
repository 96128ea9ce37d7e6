#pragma once

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include <stdlib.h>
#include <unistd.h>

namespace KestrelFuzz {

// A broken property is a finding: say which, and let libFuzzer keep the input.
inline void Require(bool holds, const char* property)
{
    if (!holds) {
        std::fprintf(stderr, "property violated: %s\n", property);
        std::abort();
    }
}

// A state file of this fuzzing process's own, on tmpfs where there is one so
// that the store's fsync costs nothing.
inline std::filesystem::path ScratchStateFile()
{
    const std::filesystem::path shm = "/dev/shm";
    const std::filesystem::path base = std::filesystem::is_directory(shm) ? shm : std::filesystem::temp_directory_path();
    const std::filesystem::path directory = base / ("kestrel-fuzz-" + std::to_string(::getpid()));
    std::filesystem::create_directories(directory);
    return directory / "pc.json";
}

// The scratch state file, named to the program through KESTREL_EMULATED_PC.
inline const std::filesystem::path& EmulatedPcStateFile()
{
    static const std::filesystem::path file = [] {
        const std::filesystem::path path = ScratchStateFile();
        std::filesystem::remove(path);
        ::setenv("KESTREL_EMULATED_PC", path.c_str(), 1);
        return path;
    }();
    return file;
}

inline std::string FileBytes(const std::filesystem::path& path)
{
    std::ifstream in(path, std::ios::binary);
    std::ostringstream bytes;
    bytes << in.rdbuf();
    return bytes.str();
}

// Whatever a run did, the state file must still read as a PC.
template <typename Pc>
void RequireReadable(const std::filesystem::path& stateFile)
{
    try {
        Pc(stateFile).Read();
    } catch (const std::exception& e) {
        std::fprintf(stderr, "%s\n", e.what());
        Require(false, "the state file stays whole and readable");
    }
}

} // namespace KestrelFuzz
