#pragma once

#include "platform/emulated/EmulatedPc.h"

#include <filesystem>
#include <optional>
#include <string>
#include <vector>
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

// The names of a path after its drive ("\\a\\.\\b\\..\\c" gives a, c): "."
// dropped, ".." taking the name before it away (never above the root), "\\"
// and "/" both separating.
std::vector<std::wstring> NamesBelowRoot(std::wstring_view rest);

// The host file a path names on this PC. A path with a drive letter
// ("C:\dir\file.exe", also behind "\\?\") lies in the folder that drive is
// mapped to, "." and ".." taken as Windows takes them, each name matched
// ignoring case when no exact match exists; any other path is a host path as
// it stands. Nothing for a drive the PC does not have, or a UNC path.
std::optional<std::filesystem::path> HostPathOf(const EmulatedPc& pc, const State& state, std::wstring_view path);

} // namespace Tessel::Bridge::Platform::Emulated
