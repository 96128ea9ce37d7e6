// Host only: the emulated PC's state across runs, its file, and concurrent runs.
#include "emulated/EmulatedTestSupport.h"
#include "support/ProcessRunner.h"
#include "support/TempDirectory.h"

#include "FrontEnd.h"

#include <nlohmann/json.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>

using namespace KestrelTest;
using Tessel::Bridge::Server::Services::Kestrel::kAbnormalEndStatus;
using ::testing::AnyOf;
using ::testing::HasSubstr;

namespace {

class EmulatedPcCli : public ::testing::Test {
protected:
    ProcessResult Run(const std::vector<std::string>& words) const
    {
        return RunProcess(BuiltProgram("KestrelTool"), words, {{"KESTREL_EMULATED_PC", stateFile.string()}});
    }

    std::string Output(const std::vector<std::string>& words) const
    {
        const ProcessResult result = Run(words);
        EXPECT_EQ(result.exitStatus, 0) << ::testing::PrintToString(words) << result.err;
        return result.out;
    }

    nlohmann::json SavedState() const { return nlohmann::json::parse(ReadFileBytes(stateFile)); }

    TempDirectory directory;
    std::filesystem::path stateFile = directory / "pc.json";
};

} // namespace

TEST_F(EmulatedPcCli, ASpeedSetInOneRunIsReadByTheNext)
{
    EXPECT_EQ(Output({"Accessory", "SetMouseSpeed", "7"}), "1\n");
    EXPECT_EQ(Output({"Accessory", "GetMouseSpeed"}), "7\n");
    EXPECT_EQ(SavedState()["mouse"]["speed"], 7);

    EXPECT_EQ(Output({"Accessory", "SetMouseSpeed", " 12 "}), "1\n");
    EXPECT_EQ(Output({"Accessory", "GetMouseSpeed"}), "12\n");
}

TEST_F(EmulatedPcCli, ARefusedSpeedChangesNothing)
{
    EXPECT_EQ(Output({"Accessory", "SetMouseSpeed", "25"}), "0\n");
    EXPECT_FALSE(std::filesystem::exists(stateFile));
    EXPECT_EQ(Output({"Accessory", "SetMouseSpeed", "20"}), "1\n");
    const std::string saved = ReadFileBytes(stateFile);
    EXPECT_EQ(Output({"Accessory", "SetMouseSpeed", "0"}), "0\n");
    EXPECT_EQ(ReadFileBytes(stateFile), saved);
    EXPECT_EQ(Output({"Accessory", "GetMouseSpeed"}), "20\n");
}

TEST_F(EmulatedPcCli, ReadingAFreshPcWritesNoFile)
{
    EXPECT_EQ(Output({"Accessory", "GetMouseSpeed"}), "10\n");
    EXPECT_EQ(Output({"Accessory", "GetMouseSwapStatus"}), "0\n");
    EXPECT_EQ(Output({"Accessory", "SetMouseLeftHanded", "0"}), "1\n"); // already so
    EXPECT_FALSE(std::filesystem::exists(stateFile));
}

TEST_F(EmulatedPcCli, CategoriesNotBuiltYetPrintAnEmptyLine)
{
    for (const char* category : {"Application", "Notification", "DisplayHDR", "DisplayPortrait"}) {
        EXPECT_EQ(Output({category, "GetZoom"}), "\n") << category;
    }
}

TEST_F(EmulatedPcCli, AMalformedStateFileIsReportedAndLeftAsItIs)
{
    const std::string bytes = "{\"mouse\": {\"speed\": 4,";
    WriteFileBytes(stateFile, bytes);
    for (const std::vector<std::string>& words :
         {std::vector<std::string>{"Accessory", "GetMouseSpeed"}, {"Accessory", "SetMouseSpeed", "5"}}) {
        const ProcessResult result = Run(words);
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(result.exitStatus, kAbnormalEndStatus);
        EXPECT_THAT(result.err, HasSubstr("KestrelTool: emulated PC state file '" + stateFile.string() +
                                          "' is malformed"));
    }
    EXPECT_EQ(ReadFileBytes(stateFile), bytes);
}

TEST_F(EmulatedPcCli, WithoutANamedFileThePcLivesInTheXdgStateDirectory)
{
    const ProcessResult result =
        RunProcess(BuiltProgram("KestrelTool"), {"Accessory", "SetMouseSpeed", "3"},
                   {{"KESTREL_EMULATED_PC", std::nullopt}, {"XDG_STATE_HOME", directory.Path().string()}});
    EXPECT_EQ(result.out, "1\n");
    const std::filesystem::path expected = directory / "kestrel" / "emulated-pc.json";
    ASSERT_TRUE(std::filesystem::exists(expected));
    EXPECT_EQ(nlohmann::json::parse(ReadFileBytes(expected))["mouse"]["speed"], 3);
}

TEST_F(EmulatedPcCli, ConcurrentRunsAllSucceedAndNeverSeeAHalfWrittenFile)
{
    // Readers run while speed and swap writers replace the file: each must
    // find a whole file. (That no update is lost is shown reliably by the
    // store's own threaded test; here runs overlap too little for that.)
    constexpr std::size_t kEach = 24;
    std::vector<ProcessResult> speedSetters(kEach), swapSetters(kEach), readers(kEach);
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < kEach; ++i) {
        threads.emplace_back([&, i] { speedSetters[i] = Run({"Accessory", "SetMouseSpeed", "3"}); });
        threads.emplace_back([&, i] { swapSetters[i] = Run({"Accessory", "SetMouseLeftHanded", "1"}); });
        threads.emplace_back([&, i] { readers[i] = Run({"Accessory", "GetMouseSpeed"}); });
    }
    for (std::thread& thread : threads) thread.join();

    for (std::size_t i = 0; i < kEach; ++i) {
        EXPECT_EQ(speedSetters[i].out, "1\n") << speedSetters[i].err;
        EXPECT_EQ(swapSetters[i].out, "1\n") << swapSetters[i].err;
        EXPECT_THAT(readers[i].out, AnyOf("10\n", "3\n")) << readers[i].err;
    }
    EXPECT_EQ(Output({"Accessory", "GetMouseSpeed"}), "3\n");
    EXPECT_EQ(Output({"Accessory", "GetMouseSwapStatus"}), "1\n");
    EXPECT_EQ(FileNamesIn(directory.Path()), (std::vector<std::string>{"pc.json", "pc.json.lock"}));
}

TEST(CommandLineBytes, InvalidUtf8BecomesReplacementCharacters)
{
    const ProcessResult result = RunProcess(BuiltProgram("kestrel_argv_echo"), {"\xC3(", "ok", "\xFF"});
    EXPECT_EQ(result.out, "\xEF\xBF\xBD(|ok|\xEF\xBF\xBD\n");
}
