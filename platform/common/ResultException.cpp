#include "platform/ResultException.h"

#include <cstdio>

namespace Tessel::Bridge::Platform {
namespace {

std::string Describe(HResult code, const char* source, int line)
{
    char hex[16];
    std::snprintf(hex, sizeof hex, "0x%08X", static_cast<unsigned>(static_cast<std::uint32_t>(code)));
    return std::string(source) + "(" + std::to_string(line) + "): " + hex;
}

} // namespace

ResultException::ResultException(HResult code, const char* source, int line)
    : std::runtime_error(Describe(code, source, line)), code_(code)
{
}

} // namespace Tessel::Bridge::Platform
