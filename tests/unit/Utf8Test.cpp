#include "Utf8Vectors.h"

#include "platform/common/Utf8.h"

#include <gtest/gtest.h>

namespace Utf8 = Tessel::Bridge::Platform::Utf8;
using KestrelTest::FromCodePoints;

// Well-formed text also encodes back to its bytes (surrogate pairs where
// wchar_t has 16 bits).
TEST(Utf8, DecodesEveryVectorAsUnicodeRecommends)
{
    for (const auto& vector : KestrelTest::Utf8DecodeVectors()) {
        EXPECT_EQ(Utf8::Decode(vector.bytes), FromCodePoints(vector.expected)) << vector.name;
        if (vector.expected.find(U'\uFFFD') != std::u32string::npos) continue;
        EXPECT_EQ(Utf8::Encode(FromCodePoints(vector.expected)), vector.bytes) << vector.name;
    }
}

TEST(Utf8, UnencodableWideCharactersBecomeReplacementCharacters)
{
    const std::string replacement = "\xEF\xBF\xBD";
    // A lone surrogate, high or low, at the end or before other text.
    EXPECT_EQ(Utf8::Encode(std::wstring(1, static_cast<wchar_t>(0xD83D))), replacement);
    EXPECT_EQ(Utf8::Encode(std::wstring{static_cast<wchar_t>(0xDE00), L'A'}), replacement + "A");
    EXPECT_EQ(Utf8::Encode(std::wstring{static_cast<wchar_t>(0xD83D), L'A'}), replacement + "A");
    if constexpr (sizeof(wchar_t) == 4) {
        EXPECT_EQ(Utf8::Encode(std::wstring(1, static_cast<wchar_t>(0x110000))), replacement);
    }
}
