#include "platform/TextConversion.h"

#include <windows.h>

#include <vector>

namespace Tessel::Bridge::Platform {

std::wstring WideFromUtf8(const char* text)
{
    // Length first (terminator included), then a zeroed buffer one longer, so
    // the result ends at the first zero even when the conversion fails.
    const int length = MultiByteToWideChar(CP_UTF8, 0, text, -1, nullptr, 0);
    std::vector<wchar_t> buffer(static_cast<std::size_t>(length > 0 ? length : 0) + 1, L'\0');
    if (length > 0) {
        MultiByteToWideChar(CP_UTF8, 0, text, -1, buffer.data(), length);
    }
    return std::wstring(buffer.data());
}

} // namespace Tessel::Bridge::Platform
