#include "platform/common/Utf8.h"
#include "platform/common/WideOutputBuffer.h"

#include <windows.h>

#include <string>

namespace Tessel::Bridge::Platform {
namespace {

void WriteToConsole(HANDLE console, std::wstring_view text)
{
    while (!text.empty()) {
        DWORD written = 0;
        const auto chunk = static_cast<DWORD>(text.size() < 16384 ? text.size() : 16384);
        if (!WriteConsoleW(console, text.data(), chunk, &written, nullptr) || written == 0) return;
        text.remove_prefix(written);
    }
}

void WriteToFile(HANDLE file, std::wstring_view text)
{
    // A pipe or file gets UTF-8 with the CR LF line ends of a text-mode stream.
    std::wstring lines;
    lines.reserve(text.size() + 8);
    for (const wchar_t ch : text) {
        if (ch == L'\n') lines.push_back(L'\r');
        lines.push_back(ch);
    }
    const std::string bytes = Utf8::Encode(lines);
    std::string_view rest = bytes;
    while (!rest.empty()) {
        DWORD written = 0;
        const auto chunk = static_cast<DWORD>(rest.size() < (1u << 20) ? rest.size() : (1u << 20));
        if (!WriteFile(file, rest.data(), chunk, &written, nullptr) || written == 0) return;
        rest.remove_prefix(written);
    }
}

} // namespace

WideOutputBuffer::Sink StandardOutputSink()
{
    return [](std::wstring_view text) {
        HANDLE out = GetStdHandle(STD_OUTPUT_HANDLE);
        if (out == nullptr || out == INVALID_HANDLE_VALUE) return;
        DWORD mode = 0;
        if (GetConsoleMode(out, &mode)) {
            WriteToConsole(out, text);
        } else {
            WriteToFile(out, text);
        }
    };
}

} // namespace Tessel::Bridge::Platform
