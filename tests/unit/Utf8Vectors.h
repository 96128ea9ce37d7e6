#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace KestrelTest {

// Wide text from code points: surrogate pairs where wchar_t is 16 bits.
inline std::wstring FromCodePoints(std::u32string_view codePoints)
{
    std::wstring text;
    for (const char32_t cp : codePoints) {
        if constexpr (sizeof(wchar_t) == 2) {
            if (cp >= 0x10000) {
                text.push_back(static_cast<wchar_t>(0xD800 + ((cp - 0x10000) >> 10)));
                text.push_back(static_cast<wchar_t>(0xDC00 + ((cp - 0x10000) & 0x3FF)));
                continue;
            }
        }
        text.push_back(static_cast<wchar_t>(cp));
    }
    return text;
}

struct Utf8Vector {
    const char* name;
    std::string bytes;
    std::u32string expected;
};

// UTF-8 input and the text a converter must make of it. Ill-formed input
// follows Unicode's "maximal subpart" practice: one U+FFFD for each maximal
// ill-formed subsequence.
inline std::vector<Utf8Vector> Utf8DecodeVectors()
{
    return {
        {"ascii", "Accessory", U"Accessory"},
        {"two-byte", "C\xC3\xA4mera", U"C\u00E4mera"},
        {"three-byte", "\xE2\x82\xAC 5", U"\u20AC 5"},
        {"four-byte", "\xF0\x9F\x98\x80", U"\U0001F600"},
        {"highest code point", "\xF4\x8F\xBF\xBF", U"\U0010FFFF"},
        {"last of the basic plane", "\xEF\xBF\xBF", U"\uFFFF"},
        {"stray continuation bytes", "a\x80\xBF" "b", U"a\uFFFD\uFFFDb"},
        {"never-valid lead bytes", "\xC0\xC1\xF5\xFF", U"\uFFFD\uFFFD\uFFFD\uFFFD"},
        {"overlong two-byte", "\xC0\x80\xC1\xBF", U"\uFFFD\uFFFD\uFFFD\uFFFD"},
        {"overlong three-byte", "\xE0\x80\xAF", U"\uFFFD\uFFFD\uFFFD"},
        {"encoded surrogate", "\xED\xA0\x80", U"\uFFFD\uFFFD\uFFFD"},
        {"beyond U+10FFFF", "\xF4\x90\x80\x80", U"\uFFFD\uFFFD\uFFFD\uFFFD"},
        {"truncated at the end", "x\xE2\x82", U"x\uFFFD"},
        {"truncated before ASCII", "\xF0\x9F\x98" "A", U"\uFFFDA"},
        // The example of the Unicode standard's chapter 3 (U+FFFD substitution).
        {"unicode example", "\x61\xF1\x80\x80\xE1\x80\xC2\x62\x80\x63\x80\xBF\x64",
         U"a\uFFFD\uFFFD\uFFFDb\uFFFDc\uFFFD\uFFFDd"},
    };
}

} // namespace KestrelTest
