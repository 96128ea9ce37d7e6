#pragma once

#include "platform/common/WindowsPathRules.h"
#include "platform/emulated/EmulatedPc.h"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string_view>

namespace Tessel::Bridge::Platform::Emulated {

// The "drives" area of the built-in PC: C: is the folder "drive-c" beside the
// state file.
State BuiltInDrives();
// The "trust" area: no trusted roots, and the catalogs in the folder
// "catalogs" beside the state file.
State BuiltInTrust();

// A path the state file gives for a host file or folder; a relative one is
// taken from the state file's folder.
std::filesystem::path HostPathFromState(const EmulatedPc& pc, const State& value, const char* pointer);

// What this program's path functions see on the PC: its current directory and
// its variables, with `overrides` (an object of variables) laid over them.
PathRules::PathEnvironment ProgramEnvironment(const EmulatedPc& pc, const State& state, const State* overrides = nullptr);

// The host file that opening a Windows path reaches on this PC, as CreateFileW
// resolves it: the full path from the PC's current directory and drives (".",
// "..", trailing dots and spaces as GetFullPathNameW takes them; "%" is an
// ordinary character), then each name below the drive's folder matched
// ignoring case. A path behind "\\?\" is taken as it stands: "\" alone
// separates and no name is changed. Nothing when the path reaches no file on a
// mapped drive; `error` then gets Windows' answer: 3 (no such drive, or an
// empty path), 53 (a network path) or 123 (a device, or a name no file can
// have).
std::optional<std::filesystem::path> HostPathOf(const EmulatedPc& pc, const State& state, std::wstring_view path,
                                                std::uint32_t* error = nullptr);

} // namespace Tessel::Bridge::Platform::Emulated
