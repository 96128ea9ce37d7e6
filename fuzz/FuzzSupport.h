#pragma once

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>

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

// The zero-separated parts of an input, in order; empty ones past its end.
class InputParts {
public:
    InputParts(const std::uint8_t* data, std::size_t size)
        : at_(reinterpret_cast<const char*>(data)), end_(at_ + size) {}

    std::string Next()
    {
        const char* zero = static_cast<const char*>(std::memchr(at_, '\0', static_cast<std::size_t>(end_ - at_)));
        const char* stop = zero != nullptr ? zero : end_;
        std::string part(at_, stop);
        at_ = zero != nullptr ? zero + 1 : end_;
        return part;
    }

    // Everything not yet taken, zero bytes included.
    std::string Rest()
    {
        return std::string(std::exchange(at_, end_), end_);
    }

private:
    const char* at_;
    const char* end_;
};

// The state file with exactly these bytes; no bytes is no file, the default PC.
inline void UseState(const std::filesystem::path& stateFile, const std::string& bytes)
{
    if (bytes.empty()) {
        std::filesystem::remove(stateFile);
        return;
    }
    std::ofstream out(stateFile, std::ios::binary | std::ios::trunc);
    out << bytes;
}

// Runs a command on the PC in stateFile, which held state: it must end with a
// result or with one of the documented errors (anything else reaches libFuzzer
// as a finding). False after the malformed-file error, which must leave the
// file byte-identical; otherwise a file the run wrote must read back as a PC.
template <typename Pc, typename PcError, typename Command>
bool RunCommand(const std::filesystem::path& stateFile, const std::string& state, Command command)
{
    try {
        command();
    } catch (const PcError& e) {
        Require(std::string(e.what()).find("is malformed") != std::string::npos, "only the malformed-file error");
        Require(FileBytes(stateFile) == state, "a malformed file is left byte-identical");
        return false;
    } catch (const std::invalid_argument& e) {
        Require(std::strcmp(e.what(), "invalid stoi argument") == 0, "the invalid-argument message");
    } catch (const std::out_of_range& e) {
        Require(std::strcmp(e.what(), "stoi argument out of range") == 0, "the out-of-range message");
    }
    if (std::filesystem::exists(stateFile) && FileBytes(stateFile) != state) RequireReadable<Pc>(stateFile);
    return true;
}

} // namespace KestrelFuzz
