// KestrelTool run as a process, as its callers run it.
#include "FreshPc.h"

#include "FrontEnd.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace KestrelTest;
using Tessel::Bridge::Server::Services::Kestrel::kAbnormalEndStatus;
using ::testing::HasSubstr;

namespace {

class KestrelToolCli : public ::testing::Test {
protected:
    ProcessResult Run(const std::vector<std::string>& words)
    {
        return RunProcess(BuiltProgram("KestrelTool"), words, pc.Environment());
    }

    // Runs and expects exactly one result line, status 0 and no error text.
    void ExpectLine(const std::vector<std::string>& words, const std::string& line)
    {
        const ProcessResult result = Run(words);
        const std::string command = ::testing::PrintToString(words);
        EXPECT_EQ(result.out, line + std::string(kLineEnd)) << command;
        EXPECT_EQ(result.exitStatus, 0) << command;
        EXPECT_EQ(result.err, "") << command;
    }

    FreshPc pc;
};

} // namespace

TEST_F(KestrelToolCli, FewerThanTwoWordsEndWithMinusOneAndPrintNothing)
{
    for (const std::vector<std::string>& words : {std::vector<std::string>{}, {"Accessory"}, {"GetMouseSpeed"}}) {
        const ProcessResult result = Run(words);
        EXPECT_EQ(result.exitStatus, kExitStatusOfMinusOne) << ::testing::PrintToString(words);
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(result.err, "");
    }
}

TEST_F(KestrelToolCli, GetMouseSpeedOfAFreshPcIsTen)
{
    ExpectLine({"Accessory", "GetMouseSpeed"}, "10");
    ExpectLine({"Accessory", "GetMouseSpeed", "ignored", "words"}, "10");
}

TEST_F(KestrelToolCli, WordsThatMatchNothingPrintOneEmptyLine)
{
    ExpectLine({"accessory", "GetMouseSpeed"}, "");
    ExpectLine({"Accessory", "getmousespeed"}, "");
    ExpectLine({"Accessory ", "GetMouseSpeed"}, "");
    ExpectLine({"Printer", "GetMouseSpeed"}, "");
    ExpectLine({"Application", "OpenSesame", "x"}, "");
}

TEST_F(KestrelToolCli, SwapMouseButtonTwiceReturnsToTheStart)
{
    ExpectLine({"Accessory", "GetMouseSwapStatus"}, "0");
    ExpectLine({"Accessory", "SwapMouseButton"}, "1");
    ExpectLine({"Accessory", "GetMouseSwapStatus"}, "1");
    ExpectLine({"Accessory", "SwapMouseButton"}, "1");
    ExpectLine({"Accessory", "GetMouseSwapStatus"}, "0");
}

TEST_F(KestrelToolCli, SetMouseLeftHandedSwapsForAnyNonZeroNumber)
{
    ExpectLine({"Accessory", "SetMouseLeftHanded", "2"}, "1");
    ExpectLine({"Accessory", "GetMouseSwapStatus"}, "1");
    ExpectLine({"Accessory", "SetMouseLeftHanded", "0"}, "1");
    ExpectLine({"Accessory", "GetMouseSwapStatus"}, "0");
    ExpectLine({"Accessory", "SetMouseLeftHanded", "-1"}, "1");
    ExpectLine({"Accessory", "GetMouseSwapStatus"}, "1");
    ExpectLine({"Accessory", "SetMouseLeftHanded", "0"}, "1");
}

TEST_F(KestrelToolCli, AValueThatIsNotANumberEndsTheRunWithoutAResult)
{
    const std::pair<std::vector<std::string>, std::string> cases[] = {
        {{"Accessory", "SetMouseSpeed", "abc"}, "invalid stoi argument"},
        {{"Accessory", "SetMouseSpeed"}, "invalid stoi argument"},
        {{"Accessory", "SetMouseSpeed", "99999999999"}, "stoi argument out of range"},
        {{"Accessory", "SetMouseLeftHanded", "left"}, "invalid stoi argument"},
    };
    for (const auto& [words, message] : cases) {
        const ProcessResult result = Run(words);
        const std::string command = ::testing::PrintToString(words);
        EXPECT_EQ(result.out, "") << command;
        EXPECT_EQ(result.exitStatus, kAbnormalEndStatus) << command;
        EXPECT_THAT(result.err, HasSubstr(message)) << command;
    }
    // Nothing was changed.
    ExpectLine({"Accessory", "GetMouseSpeed"}, "10");
    ExpectLine({"Accessory", "GetMouseSwapStatus"}, "0");
}

TEST(CommandLineText, ReachesTheProgramAsUtf8AndComesBackIntact)
{
    const ProcessResult result =
        RunProcess(BuiltProgram("kestrel_argv_echo"), {"C\xC3\xA4mera", "\xE5\x80\xA4", "\xF0\x9F\x98\x80 x"});
    EXPECT_EQ(result.out, "C\xC3\xA4mera|\xE5\x80\xA4|\xF0\x9F\x98\x80 x" + std::string(kLineEnd));
    EXPECT_EQ(result.exitStatus, 0);
}
