#pragma once

#include <string>

namespace Tessel::Bridge::Platform {

// Hands a line to an attached debugger, if the platform has one.
void WriteToDebugger(const std::wstring& line) noexcept;

// Where a process's log goes unless configured otherwise: "debugger" where
// the platform has a debugger output, else "stderr".
const char* DefaultLogDestination() noexcept;

} // namespace Tessel::Bridge::Platform
