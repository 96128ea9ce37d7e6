#pragma once
// The one harness of the fuzz targets: findings, input parts, and runs on an
// emulated PC whose state file the input gives.

#include "platform/emulated/EmulatedPc.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>

#include <stdlib.h>
#include <unistd.h>

namespace KestrelFuzz {

using Tessel::Bridge::Platform::Emulated::EmulatedPc;
using Tessel::Bridge::Platform::Emulated::EmulatedPcError;

// A broken property is a finding: say which, and let libFuzzer keep the input.
inline void Require(bool holds, const char* property)
{
    if (!holds) {
        std::fprintf(stderr, "property violated: %s\n", property);
        std::abort();
    }
}

// The zero-separated parts of an input, in order; empty ones past its end.
class InputParts {
public:
    InputParts(const std::uint8_t* data, std::size_t size) : text_(reinterpret_cast<const char*>(data), size) {}

    std::string Next()
    {
        const std::size_t zero = std::min(text_.find('\0', at_), text_.size());
        std::string part = text_.substr(at_, zero - at_);
        at_ = std::min(zero + 1, text_.size());
        return part;
    }
    std::string Rest() { return text_.substr(std::exchange(at_, text_.size())); } // zero bytes included
    bool AtEnd() const { return at_ == text_.size(); }

private:
    std::string text_;
    std::size_t at_ = 0;
};

inline std::string FileBytes(const std::filesystem::path& path)
{
    std::ostringstream bytes;
    bytes << std::ifstream(path, std::ios::binary).rdbuf();
    return bytes.str();
}

// The state file of this fuzzing process, named to the program through
// KESTREL_EMULATED_PC; on tmpfs where there is one, so that fsync costs nothing.
inline const std::filesystem::path& StateFile()
{
    static const std::filesystem::path file = [] {
        const std::filesystem::path shm = "/dev/shm";
        const auto base = std::filesystem::is_directory(shm) ? shm : std::filesystem::temp_directory_path();
        const auto directory = base / ("kestrel-fuzz-" + std::to_string(::getpid()));
        std::filesystem::create_directories(directory);
        ::setenv("KESTREL_EMULATED_PC", (directory / "pc.json").c_str(), 1);
        return directory / "pc.json";
    }();
    return file;
}

// Runs `command` on the PC whose state file holds `state` (no bytes: no file,
// the default PC). It must end with a result or a documented error: a value
// that is no number, or the malformed-file error, which leaves the file
// byte-identical (then false). A file the run wrote must read back as a PC.
template <typename Command>
bool RunOnPc(const std::string& state, Command command)
{
    std::filesystem::remove(StateFile());
    if (!state.empty()) std::ofstream(StateFile(), std::ios::binary) << state;
    try {
        command();
    } catch (const EmulatedPcError& e) {
        Require(std::strstr(e.what(), "is malformed") != nullptr, "only the malformed-file error");
        Require(FileBytes(StateFile()) == state, "a malformed file is left byte-identical");
        return false;
    } catch (const std::logic_error& e) {
        Require(std::strcmp(e.what(), "invalid stoi argument") == 0 || std::strcmp(e.what(), "stoi argument out of range") == 0,
                "only the documented errors end a run");
    }
    if (std::filesystem::exists(StateFile()) && FileBytes(StateFile()) != state) EmulatedPc(StateFile()).Read();
    return true;
}

} // namespace KestrelFuzz
