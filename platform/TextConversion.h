#pragma once

#include <string>

namespace Tessel::Bridge::Platform {

// Converts zero-terminated UTF-8 text (a command-line word) to wide text, up
// to its first zero character. Invalid sequences become U+FFFD, as the
// platform's converter does; nothing is rejected.
std::wstring WideFromUtf8(const char* text);

} // namespace Tessel::Bridge::Platform
