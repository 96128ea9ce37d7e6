#pragma once

#include <nlohmann/json.hpp>

#include <filesystem>
#include <cstddef>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace Tessel::Bridge::Platform::Emulated {

// The emulated PC cannot be used: its state file is malformed or cannot be
// read or written. Not caught by the program: it ends the run with the message.
// The state file's document; keys keep the order they were written in.
using State = nlohmann::ordered_json;

class EmulatedPcError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// The PC that the program controls when it runs off Windows, kept in one JSON
// state file. A missing file is the built-in default PC; the file is written
// only when something changes, atomically (temporary file and rename) and under
// an exclusive lock on a sibling ".lock" file, so concurrent runs lose nothing.
class EmulatedPc {
public:
    static constexpr int kFormatVersion = 1;
    // Objects and arrays nest at most this deep in a state file.
    static constexpr int kMaxNesting = 64;

    explicit EmulatedPc(std::filesystem::path stateFile);

    // KESTREL_EMULATED_PC if set, else emulated-pc.json under
    // $XDG_STATE_HOME/kestrel (default ~/.local/state/kestrel).
    static std::filesystem::path StateFileFromEnvironment();
    static EmulatedPc FromEnvironment();

    // A plausible Windows-on-Arm laptop, as it comes out of the box.
    static State BuiltInState();

    const std::filesystem::path& StateFile() const noexcept { return stateFile_; }

    // The PC as it is now: the state file laid over the built-in state.
    State Read() const;

    // Runs change on the current state while holding the PC's lock, and saves
    // the result if it differs. An exception from change saves nothing.
    void Update(const std::function<void(State& state)>& change) const;

    // The PC's exclusive lock, held for as long as the object lives.
    class Lock {
    public:
        Lock(Lock&& other) noexcept;
        Lock& operator=(Lock&&) = delete;
        ~Lock();

    private:
        friend class EmulatedPc;
        explicit Lock(int fd) noexcept : fd_(fd) {}
        int fd_;
    };
    // Waits for the lock; for runs that change the PC in several steps.
    Lock TakeLock() const;
    // Replaces the state file atomically; take the lock first.
    void Write(const State& state) const;

    // Typed field access; a missing or mistyped field is a malformed file.
    int IntegerAt(const State& state, const char* pointer) const;
    bool BooleanAt(const State& state, const char* pointer) const;

    [[noreturn]] void ThrowMalformed(const std::string& what) const;

private:
    std::filesystem::path stateFile_;
};

// The "applications" area of the built-in PC: Calculator (packaged), Notepad
// and Word (desktop) in the applications folder.
State BuiltInApplications();

// The "wordProcessor" area of the built-in PC: installed and startable, hidden,
// no documents; and the "editor" area: startable, no paths opened yet.
State BuiltInWordProcessor();
State BuiltInEditor();

// The "environment" area of the built-in PC (this process's variables and
// current directory) and its "processes" (id, package family name or null,
// whether it can be opened and impersonated, its user's variables).
State BuiltInEnvironment();
State BuiltInProcesses();

// The "folderSecurity" area of the built-in PC, empty: every folder has the
// descriptor of a folder made at a drive's root. Its "accounts": SYSTEM,
// Administrators, Users, Authenticated Users and TrustedInstaller.
State BuiltInFolderSecurity();
State BuiltInAccounts();

// Bytes as a file read in text mode gives them: CR LF becomes LF, and Ctrl+Z
// ends the file.
std::string FromTextMode(std::string_view bytes);

// A member of an object, or null when absent (a null in the file removes the
// built-in member) or when object is not an object.
const State& Member(const State& object, const char* name);

// Bytes written as hexadecimal digits ("0a1B"); nothing when the text is not
// that or holds more than maxBytes.
std::optional<std::vector<unsigned char>> BytesFromHex(const std::string& text, std::size_t maxBytes);

// Names Windows compares ignoring case: paths, variables, keys, services.
bool EqualIgnoringCase(std::wstring_view a, std::wstring_view b);

} // namespace Tessel::Bridge::Platform::Emulated
