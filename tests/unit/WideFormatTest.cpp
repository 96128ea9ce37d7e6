#include "unit/WideFormatCases.h"

#include "logging/WideFormat.h"

#include <gtest/gtest.h>

using Tessel::Bridge::Logging::FormatWideArgs;
using namespace KestrelTest;

#define KESTREL_EXPECT_FORMAT(format, expected, ...) \
    EXPECT_EQ(FormatWideArgs(format __VA_OPT__(, ) __VA_ARGS__), expected) << "format: " << format;

TEST(WideFormat, PrintsWhatTheWindowsRuntimePrints)
{
    KESTREL_WIDE_FORMAT_CASES(KESTREL_EXPECT_FORMAT)
    KESTREL_WIDE_FORMAT_CASES_BEYOND_WINE(KESTREL_EXPECT_FORMAT)
}

TEST(WideFormat, HasNoLengthLimit)
{
    const std::wstring text(100000, L'w');
    EXPECT_EQ(FormatWideArgs(L"<%s>", text.c_str()), L"<" + text + L">");
    EXPECT_EQ(FormatWideArgs(L"%70000d", 7), std::wstring(69999, L' ') + L"7");
    EXPECT_EQ(FormatWideArgs(L"%.70000S", std::string(80000, 'n').c_str()), std::wstring(70000, L'n'));
}
