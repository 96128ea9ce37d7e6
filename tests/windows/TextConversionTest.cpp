// The Windows converter that the front end uses (MultiByteToWideChar), run
// against the same vectors as the portable codec.
#include "unit/Utf8Vectors.h"

#include "platform/TextConversion.h"

#include <gtest/gtest.h>

using Tessel::Bridge::Platform::WideFromUtf8;
using KestrelTest::FromCodePoints;

namespace {

// How many U+FFFD an ill-formed sequence becomes is not the same everywhere:
// Wine 8 gives fewer than Unicode's recommended practice for overlong,
// surrogate and beyond-U+10FFFF sequences. What is certain is that the bad
// bytes are replaced and the text around them is kept.
std::wstring CollapseReplacements(const std::wstring& text)
{
    std::wstring collapsed;
    for (const wchar_t ch : text) {
        if (ch == L'\uFFFD' && !collapsed.empty() && collapsed.back() == L'\uFFFD') continue;
        collapsed.push_back(ch);
    }
    return collapsed;
}

} // namespace

// Valid text converts exactly; in ill-formed text the bad bytes are replaced.
TEST(WindowsTextConversion, AgreesWithTheVectors)
{
    for (const auto& vector : KestrelTest::Utf8DecodeVectors()) {
        const std::wstring expected = FromCodePoints(vector.expected), converted = WideFromUtf8(vector.bytes.c_str());
        if (vector.expected.find(U'\uFFFD') == std::u32string::npos) {
            EXPECT_EQ(converted, expected) << vector.name;
        } else {
            EXPECT_EQ(CollapseReplacements(converted), CollapseReplacements(expected)) << vector.name;
        }
    }
    EXPECT_EQ(WideFromUtf8(""), L"");
}
