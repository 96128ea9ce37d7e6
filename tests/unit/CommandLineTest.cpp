#include "CommandLineCases.h"

#include "platform/CommandLine.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>

using namespace KestrelTest::CommandLine;

namespace {

// The Windows build (16-bit wchar_t) splits with the real function. Under
// Wine, which hands WINEPREFIX on to the program, rows Wine gets wrong are
// left out; everywhere else every row counts.
bool RealFunctionUnderWine()
{
    return sizeof(wchar_t) == 2 && std::getenv("WINEPREFIX") != nullptr;
}

// The last name of a path, either separator, without ".exe".
std::wstring ProgramStem(const std::wstring& path)
{
    std::wstring name = path.substr(path.find_last_of(L"\\/") + 1);
    if (name.size() > 4 && name.ends_with(L".exe")) name.resize(name.size() - 4);
    return name;
}

} // namespace

TEST(CommandLine, EveryRowSplitsAsCommandLineToArgvWSplitsIt)
{
    const std::vector<Case> cases = Cases();
    std::size_t compared = 0;
    for (std::size_t i = 0; i < cases.size(); ++i) {
        const Case& row = cases[i];
        if (row.notUnderWine != nullptr && RealFunctionUnderWine()) continue;
        SCOPED_TRACE(::testing::Message() << "row " << i);
        const std::vector<std::wstring> split = Tessel::Bridge::Platform::SplitCommandLine(row.input);
        if (row.arguments.empty()) {
            ASSERT_EQ(split.size(), 1u);
            EXPECT_EQ(ProgramStem(split[0]), L"kestrel_unit_tests") << split[0];
        } else {
            EXPECT_EQ(split, row.arguments);
        }
        ++compared;
    }
    std::printf("%zu of %zu rows compared\n", compared, cases.size());
}
