// The Windows converter that the front end uses, under the real (or Wine's)
// MultiByteToWideChar, against the same vectors as the portable codec.
#include "unit/Utf8Vectors.h"

#include "platform/TextConversion.h"

#include <gtest/gtest.h>

using Tessel::Bridge::Platform::WideFromUtf8;
using KestrelTest::FromCodePoints;

TEST(WindowsTextConversion, MatchesTheVectors)
{
    for (const auto& vector : KestrelTest::Utf8DecodeVectors()) {
        EXPECT_EQ(WideFromUtf8(vector.bytes.c_str()), FromCodePoints(vector.expected)) << vector.name;
    }
}

TEST(WindowsTextConversion, EmptyTextIsEmpty)
{
    EXPECT_EQ(WideFromUtf8(""), L"");
}
