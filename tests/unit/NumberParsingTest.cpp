#include "NumberParsing.h"

#include <gtest/gtest.h>

#include <climits>
#include <stdexcept>

using Tessel::Bridge::Server::Services::Kestrel::StringToInt;

namespace {

// The message of the exception of type E that parsing text throws.
template <typename E>
std::string FailureOf(const std::wstring& text)
{
    try {
        const int value = StringToInt(text);
        return "parsed as " + std::to_string(value);
    } catch (const E& e) {
        return e.what();
    }
}

} // namespace

TEST(StringToInt, ReadsTheLeadingDecimalNumber)
{
    EXPECT_EQ(StringToInt(L"7"), 7);
    EXPECT_EQ(StringToInt(L" 7 "), 7);
    EXPECT_EQ(StringToInt(L"\t\n\v\f\r 42"), 42);
    EXPECT_EQ(StringToInt(L"+3"), 3);
    EXPECT_EQ(StringToInt(L"-15"), -15);
    EXPECT_EQ(StringToInt(L"007"), 7);
    EXPECT_EQ(StringToInt(L"5abc"), 5);
    EXPECT_EQ(StringToInt(L"1x"), 1);
    EXPECT_EQ(StringToInt(L"0x1F"), 0); // base 10 only
    EXPECT_EQ(StringToInt(L"12 34"), 12);
    EXPECT_EQ(StringToInt(L"2147483647"), INT_MAX);
    EXPECT_EQ(StringToInt(L"-2147483648"), INT_MIN);
}

TEST(StringToInt, TextWithoutALeadingDigitIsAnInvalidArgument)
{
    for (const wchar_t* text : {L"", L" ", L"abc", L"x5", L"-", L"+", L"- 3", L"+-3", L".5"}) {
        EXPECT_EQ(FailureOf<std::invalid_argument>(text), "invalid stoi argument") << "text: \"" << text << '"';
    }
}

TEST(StringToInt, NumbersBeyond32BitsAreOutOfRange)
{
    for (const wchar_t* text : {L"2147483648", L"-2147483649", L"99999999999", L"  -99999999999999999999999abc"}) {
        EXPECT_EQ(FailureOf<std::out_of_range>(text), "stoi argument out of range") << "text: \"" << text << '"';
    }
}
