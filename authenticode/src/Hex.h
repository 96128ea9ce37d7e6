#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace Kestrel::Authenticode {

// Bytes as two upper-case hexadecimal digits each: the form of catalog member tags.
inline std::string HexDigits(std::span<const std::uint8_t> bytes)
{
    static constexpr char kDigits[] = "0123456789ABCDEF";
    std::string text;
    text.reserve(bytes.size() * 2);
    for (const std::uint8_t byte : bytes) {
        text.push_back(kDigits[byte >> 4]);
        text.push_back(kDigits[byte & 0x0F]);
    }
    return text;
}

} // namespace Kestrel::Authenticode
