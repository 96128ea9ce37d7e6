#include "platform/DebuggerOutput.h"

#include <windows.h>

namespace Tessel::Bridge::Platform {

void WriteToDebugger(const std::wstring& line) noexcept
{
    OutputDebugStringW(line.c_str());
}

const char* DefaultLogDestination() noexcept
{
    return "debugger";
}

} // namespace Tessel::Bridge::Platform
