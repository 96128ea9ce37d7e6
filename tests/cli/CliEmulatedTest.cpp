// Host only: KestrelTool on emulated PCs set up by each test, for what only
// the emulated PC can stage (no camera, failing displays, a service that never
// runs again, ...) and what its state file shows. The decisions themselves are
// tested over fakes in tests/unit; a fresh PC's answers in CliTest.cpp.
#include "EmulatedPcCli.h"

#include "FrontEnd.h"

#include <nlohmann/json.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <thread>

using namespace KestrelTest;
using Json = nlohmann::json;
using Tessel::Bridge::Server::Services::Kestrel::kAbnormalEndStatus;
using ::testing::AnyOf;
using ::testing::HasSubstr;

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

// A malformed area (or file) ends the run naming it, and is left as it is.
TEST_F(EmulatedPcCli, AMalformedStateIsReportedAndLeftAsItIs)
{
    const char* const kToast = "Software\\Microsoft\\Windows\\CurrentVersion\\PushNotifications";
    const std::tuple<std::string, std::vector<std::string>, std::string> cases[] = {
        {R"({"mouse": {"speed": 4,)", {"Accessory", "SetMouseSpeed", "5"}, "emulated PC state file '" + stateFile.string() + "' is malformed"},
        {Json{{"cameras", {{{"id", "x"}, {"zoom", {{"min", "wide"}}}}}}}.dump(), {"Camera", "SetZoom", "5"},
         "is malformed: /cameras/0/zoom/min is not a number in range"},
        {Json{{"displays", {{"paths", {{{"targetId", 1}}, {{"targetId", 1}}}}}}}.dump(), {"DisplayHDR", "SetHDROnOff", "1"},
         "is malformed: /displays/paths/1 has the target of path 0"},
        {Json{{"portraitDisplays", {{"service", {{"fileVersion", "5.0"}}}}}}.dump(), {"DisplayPortrait", "SetDisplayMode", "1"},
         "is malformed: /portraitDisplays/service/fileVersion is not"},
        {Json{{"portraitDisplays", {{"panel", {{"modes", {1, 2.5}}}}}}}.dump(), {"DisplayPortrait", "SetDisplayMode", "1"},
         "is malformed: /portraitDisplays/panel/modes/1 is not a 32-bit"},
        {Json{{"registry", {{"currentUser", {{kToast, {{"ToastEnabled", {{"type", "REG_DWORD"}, {"data", -1}}}}}}}}}}.dump(),
         {"Notification", "SetToastOnOff", "1"}, "is malformed: /registry/"},
        {Json{{"services", {{"list", {{{"name", "WpnUserService_4"}, {"state", "sleeping"}}}}}}}.dump(),
         {"Notification", "SetToastOnOff", "1"}, "is malformed: /services/"},
        {R"({"applications": {"folder": [{"displayName": "Tool", "properties": [["System.Link.TargetParsingPath"]]}]}})",
         {"Application", "GetApplicationLocation", "Tool"}, "is malformed: /applications/folder/0/properties"},
    };
    for (const auto& [state, words, message] : cases) {
        WriteFileBytes(stateFile, state);
        const ProcessResult result = Run(words);
        EXPECT_EQ(result.out, "") << state;
        EXPECT_THAT(result.err, HasSubstr("KestrelTool: ")) << state;
        EXPECT_THAT(result.err, HasSubstr(message)) << state;
        EXPECT_EQ(result.exitStatus, kAbnormalEndStatus) << state;
        EXPECT_EQ(ReadFileBytes(stateFile), state);
    }
}

namespace {

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

Json SavedZoom(std::uint32_t min, std::uint32_t max, std::uint32_t raw)
{
    return {{"configType", 1}, {"set", "{1CB79112-C0D2-4213-9CA6-CD4FDB927972}"}, {"id", 24}, {"streamId", 0xFFFFFFFFu},
            {"control", HexWords({24, 2}, "1291b71cd2c013429ca6cd4fdb927972")},
            {"data", HexWords({1, 0xFFFFFFFF, 64, 0, 0, 0, 0, 0, 0, min, max, 0, raw, 0, 0, 0})}};
}

Json SavedBrightness(std::int32_t raw)
{
    const auto value = static_cast<std::uint32_t>(raw);
    const std::string words = HexWords({0, 2, value, 2, 0, 0}, "6033e1c6ac30d011a18c00a0c9118956");
    return {{"configType", 1}, {"set", "{C6E13360-30AC-11D0-A18C-00A0C9118956}"}, {"id", 0}, {"streamId", 0xFFFFFFFFu},
            {"control", words}, {"data", words}};
}

class CameraCli : public EmulatedPcCli {
protected:
    void UseCameras(const Json& cameras) { UseState({{"cameras", cameras}}); }
    Json SavedDefaultsOf(std::size_t camera) { return SavedState()["cameras"][camera]["defaults"]; }
};

} // namespace

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

TEST_F(CameraCli, ACameraThatCannotBeOpenedEndsTheRunWithThePlatformsCode)
{
    UseCameras(Json::array({{{"id", "locked"}, {"canOpen", false}}}));
    const ProcessResult result = Run({"Camera", "IsCameraSupported"});
    EXPECT_EQ(result.out, "");
    EXPECT_THAT(result.err, ::testing::MatchesRegex("KestrelTool: CameraSession\\([0-9]+\\): 0x80070005\n"));
    EXPECT_EQ(result.exitStatus, kAbnormalEndStatus);
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

namespace {

class DisplayCli : public EmulatedPcCli {
protected:
    bool Enabled(std::size_t path) { return SavedState()["displays"]["paths"][path].value("advancedColorEnabled", false); }
};

} // namespace

TEST_F(DisplayCli, SeveralDisplaysWithFailuresInjected)
{
    UseState({{"displays",
               {{"paths",
                 {{{"targetId", 1}, {"advancedColorEnabled", true}},
                  {{"targetId", 2}, {"wideColorEnforced", true}},
                  {{"targetId", 3}},
                  {{"targetId", 4}, {"setFails", true}},
                  {{"targetId", 5}}}}}}});
    ExpectResults({{{"DisplayHDR", "GetHDROnOff"}, "0"}, {{"DisplayHDR", "SetHDROnOff", "1"}, "1"}});
    const std::vector<bool> enabled{Enabled(0), Enabled(1), Enabled(2), Enabled(3), Enabled(4)};
    EXPECT_EQ(enabled, (std::vector<bool>{true, false, true, false, false})); // stopped at the refusal

    UseState({{"displays", {{"paths", {{{"targetId", 1}, {"advancedColorSupported", false}}, {{"targetId", 2}, {"queryFails", true}}}}}}});
    ExpectResults({{{"DisplayHDR", "IsHDRSupported"}, "-1"}, {{"DisplayHDR", "GetHDROnOff"}, "-1"},
                   {{"DisplayHDR", "SetHDROnOff", "1"}, "0"}});
    UseState({{"displays", {{"paths", Json::array()}}}});
    ExpectResults({{{"DisplayHDR", "IsHDRSupported"}, "0"}, {{"DisplayHDR", "GetHDROnOff"}, "-1"}});
}

TEST_F(DisplayCli, TheServiceVersionThePanelAndMissingExportsReachTheResults)
{
    const std::pair<Json, std::string> cases[] = {
        {{{"service", {{"fileVersion", "4.9.0.0"}}}}, "0 -1"},
        {{{"service", {{"fileVersion", nullptr}}}}, "0 -1"},
        {{{"service", nullptr}}, "0 -1"},
        {{{"service", {{"fileVersion", "5.0.0.0"}}}}, "1 0"},
        {{{"panel", {{"platformSupported", 2}}}}, "0 -1"},
        {{{"panel", {{"missingExports", {"Start"}}}}}, "0 -1"},
        {{{"panel", {{"currentMode", 7}, {"missingExports", {"GetCurrentDisplayMode"}}}}}, "1 -1"},
    };
    for (const auto& [portrait, results] : cases) {
        UseState({{"portraitDisplays", portrait}});
        ExpectResults({{{"DisplayPortrait", "IsPortraitSupported"}, results.substr(0, 1)},
                       {{"DisplayPortrait", "GetDisplayMode"}, results.substr(2)}});
    }
    UseState({{"portraitDisplays", {{"panel", {{"modes", {-5, 7}}, {"missingExports", {"SetDisplayMode"}}}}}}});
    std::string modes = "[-5, 7";
    for (int i = 2; i < 40; ++i) modes += ", -1";
    ExpectResults({{{"DisplayPortrait", "GetSupportedDisplayModes"}, modes + "]"},
                   {{"DisplayPortrait", "SetDisplayMode", "7"}, "-1"}});
    UseState({{"portraitDisplays", {{"panel", {{"modes", Json::array()}}}}}});
    ExpectResults({{{"DisplayPortrait", "GetSupportedDisplayModes"}, "-1"}});
}

namespace {

class NotificationCli : public EmulatedPcCli {
protected:
    Json Service() { return SavedState()["services"]["list"][0]; }
};

} // namespace

// Service transitions take virtual time: half a second each way, polled a
// second apart, and thirty polls before a start is given up.
TEST_F(NotificationCli, TheServiceIsRestartedInVirtualTime)
{
    ExpectResults({{{"Notification", "SetToastOnOff", "0"}, "1"}});
    EXPECT_EQ(Service()["state"], "running");
    EXPECT_EQ(Service()["starts"], 1);
    EXPECT_EQ(SavedState()["services"]["clockSeconds"], 2.0);

    UseState({{"services", {{"list", {{{"name", "WpnUserService_1"}, {"state", "running"}, {"startSeconds", nullptr}}}}}}});
    const auto start = std::chrono::steady_clock::now();
    ExpectResults({{{"Notification", "SetToastOnOff", "0"}, "0"}});
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
    EXPECT_EQ(Service()["state"], "startPending");
    EXPECT_EQ(SavedState()["services"]["clockSeconds"], 31.0);
}

TEST_F(EmulatedPcCli, AnApplicationLocationIsCutToItsBuffer)
{
    const std::string longPath = "C:\\" + std::string(1497, 'x');
    UseState({{"applications", {{"folder", {{{"displayName", "Long"}, {"properties", Json::array({{"System.Link.TargetParsingPath", longPath}})}}}}}}});
    EXPECT_EQ(Output({"Application", "GetApplicationLocation", "Long"}), longPath.substr(0, 1023) + "\n");
}

namespace {

class WriteToDocCli : public EmulatedPcCli {
protected:
    std::string Write(const std::string& bytes)
    {
        WriteFileBytes(text, bytes);
        return Output({"Application", "WriteToDoc", text.string()});
    }
    Json WordProcessor() const { return SavedState()["wordProcessor"]; }

    std::filesystem::path text = directory / "text.txt";
};

} // namespace

TEST_F(WriteToDocCli, EachRunTypesItsFileIntoANewVisibleDocumentInFront)
{
    EXPECT_EQ(Write("a\r\nb"), "1\n");
    EXPECT_EQ(Write(std::string("c\rd\xff\0e", 6)), "1\n");
    EXPECT_EQ(Write(""), "1\n");
    EXPECT_EQ(Write("f\x1ag"), "1\n");
    const Json word = WordProcessor();
    EXPECT_EQ(word["visible"], true);
    // A lone CR stays, invalid UTF-8 becomes U+FFFD, a zero byte or Ctrl+Z ends the text.
    const std::vector<std::string> texts{"a\nb", "c\rd\xef\xbf\xbd", "", "f"};
    ASSERT_EQ(word["documents"].size(), texts.size());
    for (std::size_t i = 0; i < texts.size(); ++i) {
        const Json& document = word["documents"][i];
        EXPECT_EQ(document["text"], texts[i]);
        EXPECT_EQ(document["paragraphMarks"], 1);
        // Only the newest window is in front.
        EXPECT_EQ(document["foreground"], i + 1 == texts.size());
    }
    EXPECT_EQ(SavedState()["editor"]["openedPaths"], Json::array());
}

TEST_F(WriteToDocCli, ADocumentsWindowComesToTheFrontAndIsRestored)
{
    // A handle with the sign bit set still finds its window.
    UseState({{"wordProcessor", {{"documents", Json::array({{{"text", "old"}, {"paragraphMarks", 0}, {"window", -16},
                                                              {"foreground", true}, {"minimized", true}}})}}}});
    EXPECT_EQ(Write("new"), "1\n");
    const Json documents = WordProcessor()["documents"];
    ASSERT_EQ(documents.size(), 2u);
    EXPECT_EQ(documents[0]["foreground"], false);
    EXPECT_EQ(documents[1]["foreground"], true);
    EXPECT_EQ(documents[1]["minimized"], false);
    EXPECT_EQ(documents[1]["text"], "new");
}
