#include "platform/DebuggerOutput.h"

namespace Tessel::Bridge::Platform {

// No debugger listens on the emulated PC: like Windows without one, the line is dropped.
void WriteToDebugger(const std::wstring&) noexcept {}

const char* DefaultLogDestination() noexcept
{
    return "stderr";
}

} // namespace Tessel::Bridge::Platform
