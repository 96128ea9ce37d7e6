#include "FrontEnd.h"

#include <gtest/gtest.h>

#include <sstream>

using namespace Tessel::Bridge::Server::Services::Kestrel;

TEST(ReadCommandWords, NeedsACategoryAndAFunction)
{
    const char* none[] = {"KestrelTool", nullptr};
    const char* one[] = {"KestrelTool", "Accessory", nullptr};
    EXPECT_FALSE(ReadCommandWords(0, none).has_value());
    EXPECT_FALSE(ReadCommandWords(1, none).has_value());
    EXPECT_FALSE(ReadCommandWords(2, one).has_value());
}

TEST(ReadCommandWords, TakesTheValueWhenGivenAndIgnoresTheRest)
{
    const char* two[] = {"KestrelTool", "Accessory", "GetMouseSpeed", nullptr};
    const auto withoutValue = ReadCommandWords(3, two);
    ASSERT_TRUE(withoutValue.has_value());
    EXPECT_EQ(withoutValue->category, L"Accessory");
    EXPECT_EQ(withoutValue->function, L"GetMouseSpeed");
    EXPECT_EQ(withoutValue->value, L"");

    const char* five[] = {"KestrelTool", "Accessory", "SetMouseSpeed", "7", "8", "9", nullptr};
    const auto withExtras = ReadCommandWords(6, five);
    ASSERT_TRUE(withExtras.has_value());
    EXPECT_EQ(withExtras->value, L"7");
}

TEST(ReadCommandWords, ConvertsUtf8ToWideText)
{
    const char* words[] = {"KestrelTool", "C\xC3\xA4mera", "\xE2\x82\xAC", "\xF0\x9F\x98\x80", nullptr};
    const auto read = ReadCommandWords(4, words);
    ASSERT_TRUE(read.has_value());
    EXPECT_EQ(read->category, L"C\u00E4mera");
    EXPECT_EQ(read->function, L"\u20AC");
    EXPECT_EQ(read->value, L"\U0001F600");
}

TEST(DispatchCommand, CategoriesMatchExactlyOrNotAtAll)
{
    for (const wchar_t* category : {L"accessory", L"ACCESSORY", L"Accessory ", L"Accessor", L"AccessoryX", L""}) {
        std::wstring result = L"untouched";
        DispatchCommand({category, L"GetMouseSpeed", L""}, result);
        EXPECT_EQ(result, L"untouched") << "category: \"" << category << '"';
    }
}

TEST(RunKestrelTool, TooFewWordsReturnMinusOneAndPrintNothing)
{
    const char* one[] = {"KestrelTool", "Accessory", nullptr};
    std::wostringstream out;
    EXPECT_EQ(RunKestrelTool(2, one, out), -1);
    EXPECT_EQ(out.str(), L"");
}

TEST(RunKestrelTool, AnEmptyResultIsStillOneLine)
{
    const char* words[] = {"KestrelTool", "Printer", "GetMouseSpeed", nullptr};
    std::wostringstream out;
    EXPECT_EQ(RunKestrelTool(3, words, out), 0);
    EXPECT_EQ(out.str(), L"\n");
}
