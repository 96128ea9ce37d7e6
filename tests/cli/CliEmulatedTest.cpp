// Host only: KestrelTool on emulated PCs set up by each test, for what only
// the emulated PC can stage (no camera, failing displays, a service that never
// runs again, ...) and what its state file shows. A fresh PC's answers are in
// CliTest.cpp.
#include "EmulatedPcCli.h"

#include "FrontEnd.h"

#include <nlohmann/json.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>

using namespace KestrelTest;
using Json = nlohmann::json;
using Tessel::Bridge::Server::Services::Kestrel::kAbnormalEndStatus;
using ::testing::AnyOf;
using ::testing::MatchesRegex;

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

// What the Camera category answers for cameras a fresh PC does not have.
TEST_F(EmulatedPcCli, CamerasOtherThanAFreshPcs)
{
    const std::pair<Json, Runs> cases[] = {
        {Json::array(),
         {{{"Camera", "IsCameraSupported"}, "0"}, {{"Camera", "IsZoomSupported"}, "-1"}, {{"Camera", "GetZoom"}, "-1"},
          {{"Camera", "SetZoom", "50"}, "0"}, {{"Camera", "IsBlurSupported"}, "-1"}, {{"Camera", "GetBlurOnOff"}, "-1"},
          {{"Camera", "SetBlurOnOff", "1"}, "0"}, {{"Camera", "GetBrightness"}, "-1"}, {{"Camera", "SetBrightness", "9"}, "0"},
          {{"Camera", "SetAutoFrameOnOff", "x"}, "0"}}},
        // Live values without saved defaults: the zoom truncated, the brightness rounded.
        {Json::array({{{"id", "live"}, {"zoom", {{"value", 150}}}, {"brightness", {{"value", 32}}}}}),
         {{{"Camera", "GetZoom"}, "16"}, {{"Camera", "GetBrightness"}, "75"}}},
        {Json::array({{{"id", "plain"}, {"zoom", {{"supported", false}}}, {"brightness", {{"supported", false}}},
                       {"properties", {{"41", "NotSupported"}, {"43", "DeviceNotAvailable"}}}}}),
         {{{"Camera", "IsZoomSupported"}, "0"}, {{"Camera", "GetZoom"}, "-1"}, {{"Camera", "SetZoom", "5"}, "0"},
          {{"Camera", "GetBrightness"}, "-1"}, {{"Camera", "SetBrightness", "5"}, "0"}, {{"Camera", "IsBlurSupported"}, "0"},
          {{"Camera", "GetBlurOnOff"}, "-1"}, {{"Camera", "SetBlurOnOff", "1"}, "0"}, {{"Camera", "IsAutoFrameSupported"}, "0"},
          {{"Camera", "GetAutoFrameOnOff"}, "0"}, {{"Camera", "SetAutoFrameOnOff", "1"}, "1"}}},
    };
    for (const auto& [cameras, runs] : cases) {
        UseState({{"cameras", cameras}});
        ExpectResults(runs);
    }
    // The last camera on the front panel is chosen, else the first.
    const std::pair<Json, std::size_t> choices[] = {
        {Json::array({{{"id", "rear"}, {"panel", "back"}}, {{"id", "front-1"}}, {{"id", "front-2"}}}), 2},
        {Json::array({{{"id", "a"}, {"panel", nullptr}}, {{"id", "b"}, {"panel", "back"}}}), 0},
        {Json::array({{{"id", "a"}, {"panel", "unknown"}}, {{"id", "b"}, {"panel", "front"}}}), 1},
    };
    for (const auto& [cameras, chosen] : choices) {
        UseState({{"cameras", cameras}});
        EXPECT_EQ(Output({"Camera", "SetBlurOnOff", "1"}), "1\n");
        for (std::size_t i = 0; i < cameras.size(); ++i) {
            EXPECT_EQ(SavedState()["cameras"][i]["defaults"].size(), i == chosen ? 1u : 0u) << cameras.dump() << " camera " << i;
        }
    }
    UseState({{"cameras", Json::array({{{"id", "locked"}, {"canOpen", false}}})}});
    const ProcessResult locked = Run({"Camera", "IsCameraSupported"});
    EXPECT_EQ(locked.out, "");
    EXPECT_THAT(locked.err, MatchesRegex("KestrelTool: CameraSession\\([0-9]+\\): 0x80070005\n"));
    EXPECT_EQ(locked.exitStatus, kAbnormalEndStatus);
}

TEST_F(EmulatedPcCli, SeveralDisplaysWithFailuresInjected)
{
    UseState({{"displays",
               {{"paths",
                 {{{"targetId", 1}, {"advancedColorEnabled", true}},
                  {{"targetId", 2}, {"wideColorEnforced", true}},
                  {{"targetId", 3}},
                  {{"targetId", 4}, {"setFails", true}},
                  {{"targetId", 5}}}}}}});
    ExpectResults({{{"DisplayHDR", "GetHDROnOff"}, "0"}, {{"DisplayHDR", "SetHDROnOff", "1"}, "1"}});
    std::vector<bool> enabled;
    const Json saved = SavedState();
    for (const Json& path : saved["displays"]["paths"]) enabled.push_back(path.value("advancedColorEnabled", false));
    EXPECT_EQ(enabled, (std::vector<bool>{true, false, true, false, false})); // stopped at the refusal

    UseState({{"displays", {{"paths", {{{"targetId", 1}, {"advancedColorSupported", false}}, {{"targetId", 2}, {"queryFails", true}}}}}}});
    ExpectResults({{{"DisplayHDR", "IsHDRSupported"}, "-1"}, {{"DisplayHDR", "GetHDROnOff"}, "-1"},
                   {{"DisplayHDR", "SetHDROnOff", "1"}, "0"}});
    UseState({{"displays", {{"paths", Json::array()}}}});
    ExpectResults({{{"DisplayHDR", "IsHDRSupported"}, "0"}, {{"DisplayHDR", "GetHDROnOff"}, "-1"}});
}

TEST_F(EmulatedPcCli, TheServiceVersionThePanelAndMissingExportsReachTheResults)
{
    const std::pair<Json, std::string> cases[] = {
        {{{"service", {{"fileVersion", "4.9.0.0"}}}}, "0 -1"},
        {{{"service", nullptr}}, "0 -1"},
        {{{"service", {{"fileVersion", "5.0.0.0"}}}}, "1 0"},
        {{{"panel", {{"platformSupported", 2}}}}, "0 -1"},
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
    UseState({{"portraitDisplays", {{"panel", {{"missingExports", {"GetDisplayModes"}}}}}}}); // no export of that name
    EXPECT_EQ(Run({"DisplayPortrait", "GetDisplayMode"}).exitStatus, kAbnormalEndStatus);
}

// Service transitions take virtual time: half a second each way, polled a
// second apart, and thirty polls before a start is given up.
TEST_F(EmulatedPcCli, TheServiceIsRestartedInVirtualTime)
{
    const auto service = [this] { return SavedState()["services"]["list"][0]; };
    ExpectResults({{{"Notification", "SetToastOnOff", "0"}, "1"}});
    EXPECT_EQ(service()["state"], "running");
    EXPECT_EQ(service()["starts"], 1);
    EXPECT_EQ(SavedState()["services"]["clockSeconds"], 2.0);

    UseState({{"services", {{"list", {{{"name", "WpnUserService_1"}, {"state", "running"}, {"startSeconds", nullptr}}}}}}});
    ExpectResults({{{"Notification", "SetToastOnOff", "0"}, "0"}});
    EXPECT_EQ(service()["state"], "startPending");
    EXPECT_EQ(SavedState()["services"]["clockSeconds"], 31.0);
}

TEST_F(EmulatedPcCli, EachWriteToDocTypesItsFileIntoANewVisibleDocumentInFront)
{
    // An open document, minimized in front; its window handle has the sign bit set.
    UseState({{"wordProcessor", {{"documents", Json::array({{{"text", "old"}, {"paragraphMarks", 0}, {"window", -16},
                                                              {"foreground", true}, {"minimized", true}}})}}}});
    // A lone CR stays, invalid UTF-8 becomes U+FFFD, a zero byte or Ctrl+Z ends the text.
    const std::pair<std::string, std::string> writes[] = {
        {"a\r\nb", "a\nb"}, {std::string("c\rd\xff\0e", 6), "c\rd\xef\xbf\xbd"}, {"", ""}, {"f\x1ag", "f"}};
    const std::filesystem::path text = directory / "text.txt";
    for (const auto& [bytes, typed] : writes) {
        WriteFileBytes(text, bytes);
        EXPECT_EQ(Output({"Application", "WriteToDoc", text.string()}), "1\n");
    }
    const Json word = SavedState()["wordProcessor"];
    EXPECT_EQ(word["visible"], true);
    ASSERT_EQ(word["documents"].size(), 5u);
    EXPECT_EQ(word["documents"][0]["foreground"], false);
    for (std::size_t i = 1; i < 5; ++i) {
        const Json& document = word["documents"][i];
        EXPECT_EQ(document["text"], writes[i - 1].second);
        EXPECT_EQ(document["paragraphMarks"], 1);
        EXPECT_EQ(document["minimized"], false);
        EXPECT_EQ(document["foreground"], i == 4); // only the newest window is in front
    }
    EXPECT_EQ(SavedState()["editor"]["openedPaths"], Json::array());
    // Without the word processor the plain text editor gets the path: its command
    // line ("notepad.exe", a blank, the path and its end) holds 32767 characters.
    UseState({{"wordProcessor", {{"installed", false}}}});
    ExpectResults({{{"Application", "WriteToDoc", std::string(32754, 'p')}, "1"}, {{"Application", "WriteToDoc", std::string(32755, 'p')}, "0"}});
}
