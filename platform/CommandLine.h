#pragma once

#include <string>
#include <vector>

namespace Tessel::Bridge::Platform {

// A command line split into its arguments as CommandLineToArgvW splits it:
// the first is a program name (up to the next blank, or between quotes with
// no escapes), the rest follow the backslash and quote rules of the C
// runtime. Empty when the platform cannot split it.
std::vector<std::wstring> SplitCommandLine(const std::wstring& commandLine);

} // namespace Tessel::Bridge::Platform
