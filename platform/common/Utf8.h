#pragma once

#include <string>
#include <string_view>

// UTF-8 <-> wide text without the platform's converter. wchar_t holds UTF-16
// where it is 16 bits wide (Windows) and UTF-32 where it is 32 bits (Linux).
namespace Tessel::Bridge::Platform::Utf8 {

inline constexpr char32_t kReplacementCharacter = U'\uFFFD';

// Decodes bytes; each maximal ill-formed subsequence becomes one U+FFFD
// (Unicode's recommended practice). Valid text decodes as Windows' converter
// decodes it; for some ill-formed input converters differ in how many U+FFFD
// they give.
std::wstring Decode(std::string_view bytes);

// Encodes wide text; an unpaired surrogate or a value beyond U+10FFFF is
// written as U+FFFD.
std::string Encode(std::wstring_view text);

} // namespace Tessel::Bridge::Platform::Utf8
