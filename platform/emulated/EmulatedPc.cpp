#include "platform/emulated/EmulatedPc.h"

#include "platform/emulated/EmulatedCameras.h"
#include "platform/emulated/EmulatedDisplays.h"
#include "platform/emulated/EmulatedFiles.h"
#include "platform/emulated/EmulatedRegistryAndServices.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <cwctype>
#include <algorithm>
#include <optional>
#include <utility>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace Tessel::Bridge::Platform::Emulated {
namespace {

class UniqueFd {
public:
    explicit UniqueFd(int fd = -1) noexcept : fd_(fd) {}
    ~UniqueFd() { Reset(); }
    UniqueFd(UniqueFd&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    UniqueFd& operator=(UniqueFd&& other) noexcept
    {
        if (this != &other) {
            Reset();
            fd_ = std::exchange(other.fd_, -1);
        }
        return *this;
    }
    UniqueFd(const UniqueFd&) = delete;
    UniqueFd& operator=(const UniqueFd&) = delete;

    int Get() const noexcept { return fd_; }
    explicit operator bool() const noexcept { return fd_ >= 0; }
    // Closes now and reports whether the close succeeded (it can report a
    // delayed write error).
    bool Close() noexcept { return ::close(std::exchange(fd_, -1)) == 0; }
    int Release() noexcept { return std::exchange(fd_, -1); }
    void Reset() noexcept
    {
        if (fd_ >= 0) ::close(std::exchange(fd_, -1));
    }

private:
    int fd_;
};

std::string SystemMessage(int error) { return std::strerror(error); }

[[noreturn]] void ThrowIo(const std::string& action, const std::filesystem::path& path, int error)
{
    throw EmulatedPcError("emulated PC: cannot " + action + " '" + path.string() + "': " + SystemMessage(error));
}

std::filesystem::path LockFileOf(const std::filesystem::path& stateFile)
{
    std::filesystem::path lock = stateFile;
    lock += ".lock";
    return lock;
}

void WriteAll(int fd, const std::string& bytes, const std::filesystem::path& path)
{
    const char* data = bytes.data();
    std::size_t left = bytes.size();
    while (left > 0) {
        const ssize_t n = ::write(fd, data, left);
        if (n < 0) {
            if (errno == EINTR) continue;
            ThrowIo("write", path, errno);
        }
        data += n;
        left -= static_cast<std::size_t>(n);
    }
}

// The file's bytes, or nothing when it does not exist.
std::optional<std::string> ReadWholeFile(const std::filesystem::path& path)
{
    UniqueFd fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!fd) {
        if (errno == ENOENT) return std::nullopt;
        ThrowIo("open", path, errno);
    }
    std::string bytes;
    char chunk[8192];
    for (;;) {
        const ssize_t n = ::read(fd.Get(), chunk, sizeof chunk);
        if (n < 0) {
            if (errno == EINTR) continue;
            ThrowIo("read", path, errno);
        }
        if (n == 0) break;
        bytes.append(chunk, static_cast<std::size_t>(n));
    }
    return bytes;
}

} // namespace

EmulatedPc::EmulatedPc(std::filesystem::path stateFile) : stateFile_(std::move(stateFile)) {}

std::filesystem::path EmulatedPc::StateFileFromEnvironment()
{
    if (const char* named = std::getenv("KESTREL_EMULATED_PC"); named != nullptr && *named != '\0') {
        return named;
    }
    // Relative XDG directories are to be ignored.
    if (const char* state = std::getenv("XDG_STATE_HOME"); state != nullptr && state[0] == '/') {
        return std::filesystem::path(state) / "kestrel" / "emulated-pc.json";
    }
    if (const char* home = std::getenv("HOME"); home != nullptr && *home != '\0') {
        return std::filesystem::path(home) / ".local" / "state" / "kestrel" / "emulated-pc.json";
    }
    throw EmulatedPcError("emulated PC: neither KESTREL_EMULATED_PC nor HOME is set; "
                          "set KESTREL_EMULATED_PC to the path of a state file");
}

EmulatedPc EmulatedPc::FromEnvironment()
{
    return EmulatedPc(StateFileFromEnvironment());
}

State EmulatedPc::BuiltInState()
{
    return State{
        {"version", kFormatVersion},
        {"mouse", {{"speed", 10}, {"buttonsSwapped", false}}},
        {"cameras", BuiltInCameras()},
        {"displays", BuiltInDisplays()},
        {"portraitDisplays", BuiltInPortraitDisplays()},
        {"registry", BuiltInRegistry()},
        {"services", BuiltInServices()},
        {"applications", BuiltInApplications()},
        {"wordProcessor", BuiltInWordProcessor()},
        {"editor", BuiltInEditor()},
        {"environment", BuiltInEnvironment()},
        {"processes", BuiltInProcesses()},
        {"drives", BuiltInDrives()},
        {"trust", BuiltInTrust()},
        {"folderSecurity", BuiltInFolderSecurity()},
        {"accounts", BuiltInAccounts()},
    };
}

void EmulatedPc::ThrowMalformed(const std::string& what) const
{
    throw EmulatedPcError("emulated PC state file '" + stateFile_.string() + "' is malformed: " + what +
                          "; fix it, or remove it to start again from the default PC");
}

State EmulatedPc::Read() const
{
    // Writers replace the file by rename, so a reader needs no lock: it sees a
    // whole file, old or new.
    State state = BuiltInState();
    const std::optional<std::string> bytes = ReadWholeFile(stateFile_);
    if (!bytes) return state;

    // Copying, comparing and writing a document recurse once per level, so a
    // deeply nested file would overflow the stack; no real PC needs the depth.
    bool tooDeep = false;
    const auto limitDepth = [&tooDeep](int depth, State::parse_event_t, State&) {
        if (depth > kMaxNesting) tooDeep = true;
        return !tooDeep;
    };
    State stored;
    try {
        stored = State::parse(*bytes, limitDepth);
    } catch (const State::exception& e) {
        // parse_error, and also out_of_range for a number no JSON type holds.
        ThrowMalformed(e.what());
    }
    if (tooDeep) ThrowMalformed("it nests deeper than " + std::to_string(kMaxNesting) + " levels");
    if (!stored.is_object()) ThrowMalformed("the top level is not a JSON object");
    state.merge_patch(stored);
    if (IntegerAt(state, "/version") != kFormatVersion) {
        ThrowMalformed("it has format version " + std::to_string(IntegerAt(state, "/version")) +
                       ", this program reads version " + std::to_string(kFormatVersion));
    }
    return state;
}

EmulatedPc::Lock::Lock(Lock&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}

EmulatedPc::Lock::~Lock()
{
    UniqueFd closing(fd_);
}

EmulatedPc::Lock EmulatedPc::TakeLock() const
{
    const std::filesystem::path directory = stateFile_.parent_path();
    if (!directory.empty()) {
        std::error_code error;
        std::filesystem::create_directories(directory, error);
        if (error) ThrowIo("create the directory", directory, error.value());
    }
    const std::filesystem::path lockFile = LockFileOf(stateFile_);
    UniqueFd lock(::open(lockFile.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
    if (!lock) ThrowIo("open", lockFile, errno);
    while (::flock(lock.Get(), LOCK_EX) != 0) {
        if (errno != EINTR) ThrowIo("lock", lockFile, errno);
    }
    return Lock(lock.Release());
}

void EmulatedPc::Update(const std::function<void(State& state)>& change) const
{
    const Lock lock = TakeLock();
    const State before = Read();
    State after = before;
    change(after);
    if (after != before) Write(after);
}

void EmulatedPc::Write(const State& state) const
{
    const std::string bytes = state.dump(2) + "\n";

    std::string temporary = stateFile_.string() + ".XXXXXX";
    UniqueFd file(::mkostemp(temporary.data(), O_CLOEXEC));
    if (!file) ThrowIo("create a temporary file beside", stateFile_, errno);

    struct RemoveUnlessKept {
        const std::string& path;
        bool keep = false;
        ~RemoveUnlessKept()
        {
            if (!keep) ::unlink(path.c_str());
        }
    } cleanup{temporary};

    WriteAll(file.Get(), bytes, temporary);
    if (::fsync(file.Get()) != 0) ThrowIo("flush", temporary, errno);
    if (!file.Close()) ThrowIo("close", temporary, errno);
    if (::rename(temporary.c_str(), stateFile_.c_str()) != 0) ThrowIo("replace", stateFile_, errno);
    cleanup.keep = true;

    // Make the rename itself durable.
    const std::filesystem::path directory = stateFile_.parent_path().empty() ? "." : stateFile_.parent_path();
    if (UniqueFd dir(::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)); dir) {
        ::fsync(dir.Get());
    }
}

int EmulatedPc::IntegerAt(const State& state, const char* pointer) const
{
    const State::json_pointer at(pointer);
    if (!state.contains(at)) ThrowMalformed(std::string("it has no value at ") + pointer);
    const State& value = state.at(at);
    bool fits = false;
    if (value.is_number_unsigned()) {
        fits = value.get<std::uint64_t>() <= static_cast<std::uint64_t>(INT_MAX);
    } else if (value.is_number_integer()) {
        const auto v = value.get<std::int64_t>();
        fits = v >= INT_MIN && v <= INT_MAX;
    }
    if (!fits) ThrowMalformed(std::string(pointer) + " is not a 32-bit integer");
    return value.get<int>();
}

const State& Member(const State& object, const char* name)
{
    static const State kAbsent;
    if (!object.is_object()) return kAbsent;
    const auto found = object.find(name);
    return found != object.end() ? *found : kAbsent;
}

std::optional<std::vector<unsigned char>> BytesFromHex(const std::string& text, std::size_t maxBytes)
{
    if (text.size() % 2 != 0 || text.size() / 2 > maxBytes) return std::nullopt;
    const auto digit = [](char ch) {
        if (ch >= '0' && ch <= '9') return ch - '0';
        if (ch >= 'a' && ch <= 'f') return ch - 'a' + 10;
        if (ch >= 'A' && ch <= 'F') return ch - 'A' + 10;
        return -1;
    };
    std::vector<unsigned char> bytes;
    for (std::size_t i = 0; i < text.size(); i += 2) {
        const int high = digit(text[i]);
        const int low = digit(text[i + 1]);
        if (high < 0 || low < 0) return std::nullopt;
        bytes.push_back(static_cast<unsigned char>(high * 16 + low));
    }
    return bytes;
}

bool EqualIgnoringCase(std::wstring_view a, std::wstring_view b)
{
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](wchar_t x, wchar_t y) {
        return std::towlower(static_cast<wint_t>(x)) == std::towlower(static_cast<wint_t>(y));
    });
}

bool EmulatedPc::BooleanAt(const State& state, const char* pointer) const
{
    const State::json_pointer at(pointer);
    if (!state.contains(at)) ThrowMalformed(std::string("it has no value at ") + pointer);
    const State& value = state.at(at);
    if (!value.is_boolean()) ThrowMalformed(std::string(pointer) + " is not true or false");
    return value.get<bool>();
}

} // namespace Tessel::Bridge::Platform::Emulated
