#pragma once
// The one harness of the fuzz targets: findings, input parts, and commands run
// on an emulated PC whose state file the input gives.

#include "platform/emulated/EmulatedPc.h"

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

// Latin-1 bytes as wide text.
inline std::wstring Wide(const std::string& bytes)
{
    return std::wstring(bytes.begin(), bytes.end());
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
    std::string Rest() { return std::string(std::exchange(at_, end_), end_); }

    bool AtEnd() const { return at_ == end_; }

private:
    const char* at_;
    const char* end_;
};

inline std::string FileBytes(const std::filesystem::path& path)
{
    std::ifstream in(path, std::ios::binary);
    std::ostringstream bytes;
    bytes << in.rdbuf();
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
        std::filesystem::remove(directory / "pc.json");
        ::setenv("KESTREL_EMULATED_PC", (directory / "pc.json").c_str(), 1);
        return directory / "pc.json";
    }();
    return file;
}

// The state file with exactly these bytes; no bytes is no file, the default PC.
inline void UseState(const std::string& bytes)
{
    if (bytes.empty()) {
        std::filesystem::remove(StateFile());
        return;
    }
    std::ofstream(StateFile(), std::ios::binary | std::ios::trunc) << bytes;
}

// Whatever a run did, the state file must still read as a PC.
inline void RequireReadable()
{
    try {
        EmulatedPc(StateFile()).Read();
    } catch (const std::exception& e) {
        std::fprintf(stderr, "%s\n", e.what());
        Require(false, "the state file stays whole and readable");
    }
}

// The documented abnormal ends of a command: a value that is no number.
inline bool IsDocumentedEnd(const std::exception& e)
{
    if (dynamic_cast<const std::invalid_argument*>(&e) != nullptr) return std::strcmp(e.what(), "invalid stoi argument") == 0;
    if (dynamic_cast<const std::out_of_range*>(&e) != nullptr) return std::strcmp(e.what(), "stoi argument out of range") == 0;
    return false;
}

// Runs a command on the PC whose state file holds `state`: it must end with a
// result or one of the documented errors (anything else reaches libFuzzer as
// a finding). False after the malformed-file error, which must leave the file
// byte-identical; otherwise a file the run wrote must read back as a PC.
template <typename Command>
bool RunOnPc(const std::string& state, Command command)
{
    UseState(state);
    try {
        command();
    } catch (const EmulatedPcError& e) {
        Require(std::string(e.what()).find("is malformed") != std::string::npos, "only the malformed-file error");
        Require(FileBytes(StateFile()) == state, "a malformed file is left byte-identical");
        return false;
    } catch (const std::logic_error& e) {
        Require(IsDocumentedEnd(e), "only the documented errors end a run");
    }
    if (std::filesystem::exists(StateFile()) && FileBytes(StateFile()) != state) RequireReadable();
    return true;
}

} // namespace KestrelFuzz
