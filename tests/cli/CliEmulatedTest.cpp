// Host only: the emulated PC's state across runs, its file, and concurrent runs.
#include "EmulatedPcCli.h"

#include "FrontEnd.h"

#include <nlohmann/json.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>

using namespace KestrelTest;
using Tessel::Bridge::Server::Services::Kestrel::kAbnormalEndStatus;
using ::testing::AnyOf;
using ::testing::HasSubstr;

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

TEST_F(EmulatedPcCli, AnUnknownFunctionPrintsAnEmptyLine)
{
    for (const char* category : {"Application", "Notification", "DisplayHDR"}) {
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

namespace {

using Json = nlohmann::json;

// Little-endian 32-bit words as the hexadecimal text of a saved payload.
std::string HexWords(std::initializer_list<std::uint32_t> words, const char* prefix = "")
{
    std::string hex = prefix;
    char byte[3];
    for (std::uint32_t word : words) {
        for (int i = 0; i < 4; ++i, word >>= 8) {
            std::snprintf(byte, sizeof byte, "%02x", word & 0xFF);
            hex += byte;
        }
    }
    return hex;
}

constexpr const char* kExtendedSet = "{1CB79112-C0D2-4213-9CA6-CD4FDB927972}";
constexpr const char* kExtendedSetHex = "1291b71cd2c013429ca6cd4fdb927972";
constexpr const char* kVideoProcAmpSet = "{C6E13360-30AC-11D0-A18C-00A0C9118956}";
constexpr const char* kVideoProcAmpSetHex = "6033e1c6ac30d011a18c00a0c9118956";

Json SavedZoom(std::uint32_t min, std::uint32_t max, std::uint32_t raw)
{
    return {{"configType", 1}, {"set", kExtendedSet}, {"id", 24}, {"streamId", 0xFFFFFFFFu},
            {"control", HexWords({24, 2}, kExtendedSetHex)},
            {"data", HexWords({1, 0xFFFFFFFF, 64, 0, 0, 0, 0, 0, 0, min, max, 0, raw, 0, 0, 0})}};
}

Json SavedBrightness(std::int32_t raw)
{
    const auto value = static_cast<std::uint32_t>(raw);
    return {{"configType", 1}, {"set", kVideoProcAmpSet}, {"id", 0}, {"streamId", 0xFFFFFFFFu},
            {"control", HexWords({0, 2, value, 2, 0, 0}, kVideoProcAmpSetHex)},
            {"data", HexWords({0, 2, value, 2, 0, 0}, kVideoProcAmpSetHex)}};
}

class CameraCli : public EmulatedPcCli {
protected:
    void UseCameras(const Json& cameras) { UseState({{"cameras", cameras}}); }

    Json SavedDefaultsOf(std::size_t camera) { return SavedState()["cameras"][camera]["defaults"]; }
};

} // namespace

TEST_F(CameraCli, AFreshPcHasOneFrontCameraWithZoomBrightnessBlurAndFraming)
{
    ExpectResults({{{"Camera", "IsCameraSupported"}, "1"}, {{"Camera", "IsZoomSupported"}, "1"},
                   {{"Camera", "GetZoom"}, "0"},           {{"Camera", "GetBrightness"}, "50"},
                   {{"Camera", "GetBlurOnOff"}, "0"},      {{"Camera", "IsBlurSupported"}, "1"},
                   {{"Camera", "SetZoom", "101"}, "0"},    {{"Camera", "SetZoom", "-5"}, "0"},
                   {{"Camera", "setZoom", "5"}, ""}});
    EXPECT_FALSE(std::filesystem::exists(stateFile)); // refusals save nothing

    ExpectResults({{{"Camera", "SetBlurOnOff", "7"}, "1"},      {{"Camera", "GetBlurOnOff"}, "1"},
                   {{"Camera", "SetAutoFrameOnOff", "-1"}, "1"}, {{"Camera", "GetAutoFrameOnOff"}, "1"},
                   {{"Camera", "SetAutoFrameOnOff", "0"}, "1"},  {{"Camera", "GetAutoFrameOnOff"}, "0"},
                   {{"Camera", "SetBrightness", "25"}, "1"},     {{"Camera", "GetBrightness"}, "26"}});
    // Blur, framing and brightness defaults, as the platform stores them.
    EXPECT_EQ(SavedDefaultsOf(0).size(), 3u);
    EXPECT_EQ(SavedDefaultsOf(0)[2], SavedBrightness(-31));

    const ProcessResult aborted = Run({"Camera", "SetZoom", "abc"});
    EXPECT_EQ(aborted.out, "");
    EXPECT_EQ(aborted.err, "KestrelTool: invalid stoi argument\n");
    EXPECT_EQ(aborted.exitStatus, kAbnormalEndStatus);
}

TEST_F(CameraCli, WithoutACameraQueriesGiveMinusOneAndSettersZero)
{
    UseCameras(Json::array());
    const std::string before = ReadFileBytes(stateFile);
    ExpectResults({{{"Camera", "IsCameraSupported"}, "0"}, {{"Camera", "IsZoomSupported"}, "-1"},
                   {{"Camera", "GetZoom"}, "-1"},           {{"Camera", "SetZoom", "50"}, "0"},
                   {{"Camera", "IsBlurSupported"}, "-1"},   {{"Camera", "GetBlurOnOff"}, "-1"},
                   {{"Camera", "SetBlurOnOff", "1"}, "0"},  {{"Camera", "GetBrightness"}, "-1"},
                   {{"Camera", "SetBrightness", "9"}, "0"}, {{"Camera", "SetAutoFrameOnOff", "x"}, "0"}});
    EXPECT_EQ(ReadFileBytes(stateFile), before);
}

TEST_F(CameraCli, TheLastFrontPanelCameraIsChosenElseTheFirst)
{
    const std::pair<Json, std::size_t> cases[] = {
        {Json::array({{{"id", "rear"}, {"panel", "back"}}, {{"id", "front-1"}}, {{"id", "front-2"}}}), 2},
        {Json::array({{{"id", "a"}, {"panel", nullptr}}, {{"id", "b"}, {"panel", "back"}}}), 0},
        {Json::array({{{"id", "only"}, {"panel", "back"}}}), 0},
        {Json::array({{{"id", "a"}, {"panel", "unknown"}}, {{"id", "b"}, {"panel", "front"}}}), 1},
    };
    for (const auto& [cameras, chosen] : cases) {
        UseCameras(cameras);
        EXPECT_EQ(Output({"Camera", "SetBlurOnOff", "1"}), "1\n");
        for (std::size_t i = 0; i < cameras.size(); ++i) {
            EXPECT_EQ(SavedDefaultsOf(i).size(), i == chosen ? 1u : 0u) << cameras.dump() << " camera " << i;
        }
    }
}

TEST_F(CameraCli, ACameraThatCannotBeOpenedEndsEveryRunWithThePlatformsCode)
{
    UseCameras(Json::array({{{"id", "locked"}, {"canOpen", false}}}));
    for (const char* function : {"IsCameraSupported", "GetZoom"}) {
        const ProcessResult result = Run({"Camera", function});
        EXPECT_EQ(result.out, "");
        EXPECT_THAT(result.err, ::testing::MatchesRegex("KestrelTool: CameraSession\\([0-9]+\\): 0x80070005\n"));
        EXPECT_EQ(result.exitStatus, kAbnormalEndStatus);
    }
}

TEST_F(CameraCli, SavedDefaultsWinOverLiveValuesAndUnsupportedControlsRefuse)
{
    UseCameras(Json::array(
        {{{"id", "saved"},
          {"zoom", {{"value", 150}}},
          {"brightness", {{"value", 32}}},
          {"defaults", Json::array({SavedZoom(100, 400, 250), SavedBrightness(-32)})}},
         {{"id", "live"}, {"panel", nullptr}, {"zoom", {{"value", 150}}}, {"brightness", {{"value", 32}}}}}));
    ExpectResults({{{"Camera", "GetZoom"}, "50"}, {{"Camera", "GetBrightness"}, "25"}});
    ExpectResults({{{"Camera", "SetZoom", "100"}, "1"}, {{"Camera", "GetZoom"}, "100"}});
    EXPECT_EQ(SavedDefaultsOf(0)[0], SavedZoom(100, 400, 400));

    UseCameras(Json::array({{{"id", "live"}, {"zoom", {{"value", 150}}}, {"brightness", {{"value", 32}}}}}));
    ExpectResults({{{"Camera", "GetZoom"}, "16"}, {{"Camera", "GetBrightness"}, "75"}}); // truncated; rounded

    UseCameras(Json::array({{{"id", "plain"},
                             {"zoom", {{"supported", false}}},
                             {"brightness", {{"supported", false}}},
                             {"properties", {{"41", "NotSupported"}, {"43", "DeviceNotAvailable"}}}}}));
    ExpectResults({{{"Camera", "IsZoomSupported"}, "0"},       {{"Camera", "GetZoom"}, "-1"},
                   {{"Camera", "SetZoom", "5"}, "0"},          {{"Camera", "GetBrightness"}, "-1"},
                   {{"Camera", "SetBrightness", "5"}, "0"},    {{"Camera", "IsBlurSupported"}, "0"},
                   {{"Camera", "GetBlurOnOff"}, "-1"},         {{"Camera", "SetBlurOnOff", "1"}, "0"},
                   {{"Camera", "IsAutoFrameSupported"}, "0"},  {{"Camera", "GetAutoFrameOnOff"}, "0"},
                   {{"Camera", "SetAutoFrameOnOff", "1"}, "1"}});
}

TEST_F(CameraCli, AMalformedCameraAreaIsReportedAndLeftAsItIs)
{
    UseCameras(Json::array({{{"id", "x"}, {"zoom", {{"min", "wide"}}}}}));
    const std::string before = ReadFileBytes(stateFile);
    const ProcessResult result = Run({"Camera", "SetZoom", "5"});
    EXPECT_THAT(result.err, HasSubstr("is malformed: /cameras/0/zoom/min is not a number in range"));
    EXPECT_EQ(result.exitStatus, kAbnormalEndStatus);
    EXPECT_EQ(ReadFileBytes(stateFile), before);
}
