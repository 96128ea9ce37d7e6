#pragma once

#include <cstdarg>
#include <string>

namespace Tessel::Bridge::Logging {

// Formats as the Windows C runtime's wide printf family (msvcrt.dll's
// _vsnwprintf) does, on every platform: in a wide format "%s" takes a wide
// string and "%S" a narrow one, each byte of which becomes the character of
// the same value. Only "%n" differs: it skips its pointer and stores nothing.
std::wstring FormatWide(const wchar_t* format, std::va_list arguments);
std::wstring FormatWideArgs(const wchar_t* format, ...);

} // namespace Tessel::Bridge::Logging
