#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace Tessel::Bridge::Platform {

// Bytes as two hexadecimal digits each, no separators: the form of catalog
// member tags (upper case) and key fingerprints (lower case).
template <typename Char = wchar_t>
std::basic_string<Char> HexDigits(std::span<const std::uint8_t> bytes, bool upperCase)
{
    const char* digits = upperCase ? "0123456789ABCDEF" : "0123456789abcdef";
    std::basic_string<Char> text;
    text.reserve(bytes.size() * 2);
    for (const std::uint8_t byte : bytes) {
        text.push_back(static_cast<Char>(digits[byte >> 4]));
        text.push_back(static_cast<Char>(digits[byte & 0x0F]));
    }
    return text;
}

} // namespace Tessel::Bridge::Platform
