// KestrelTool run as a process, as its callers run it, on every layer: the
// host's emulated PC, and under Wine (x64 and ARM64) the test run's fresh
// prefix. One table; a row names Wine's answer where the prefix differs.
#include "FreshPc.h"

#include <gtest/gtest.h>

using namespace KestrelTest;

namespace {

constexpr const char* kAsOnHost = "";
constexpr const char* kNotUnderWine = nullptr; // Wine does not keep it faithfully

// A last word that stands for a file of kText, written for the step. CR LF becomes
// LF, a lone CR stays, invalid UTF-8 becomes U+FFFD, the zero byte ends it.
constexpr const char* kTextFile = "<text file>";
constexpr char kText[] = "one\r\ntwo\r\xc3\xa9\xff!\0after";

struct Step {
    std::vector<std::string> words;
    std::string host;
    const char* wine = kAsOnHost;
};

struct Scenario {
    const char* name;
    std::vector<Step> steps; // in order, on one fresh PC
};

// The portrait panel's list: the modes, then -1 up to forty entries.
std::string FortyModes(const std::string& modes, int count)
{
    std::string list = "[" + modes;
    for (int i = count; i < 40; ++i) list += ", -1";
    return list + "]";
}

const Scenario kScenarios[] = {
    {"Mouse",
     {{{"Accessory", "GetMouseSpeed"}, "10"},
      {{"Accessory", "GetMouseSpeed", "ignored", "words"}, "10"},
      {{"Accessory", "GetMouseSwapStatus"}, "0"},
      {{"Accessory", "SwapMouseButton"}, "1"},
      {{"Accessory", "GetMouseSwapStatus"}, "1"},
      {{"Accessory", "SwapMouseButton"}, "1"},
      {{"Accessory", "GetMouseSwapStatus"}, "0"},
      {{"Accessory", "SetMouseLeftHanded", "-1"}, "1"},
      {{"Accessory", "GetMouseSwapStatus"}, "1"},
      {{"Accessory", "SetMouseLeftHanded", "0"}, "1"},
      {{"Accessory", "GetMouseSwapStatus"}, "0"},
      {{"Accessory", "SetMouseSpeed", "7"}, "1", kNotUnderWine},
      {{"Accessory", "GetMouseSpeed"}, "7", kNotUnderWine}}},
    // Words match in their letter case only; an unknown function of a category is
    // an empty line, of DisplayPortrait -1.
    {"WordsThatMatchNothing",
     {{{"Accessory ", "GetMouseSpeed"}, ""},
      {{"accessory", "GetMouseSpeed"}, ""},
      {{"Accessory", "getMouseSpeed"}, ""},
      {{"Camera", "iscamerasupported"}, "", kNotUnderWine},
      {{"Application", "getApplicationLocation", "notepad"}, ""},
      {{"Notification", "gettoastonoff"}, ""},
      {{"DisplayHDR", "IsHdrSupported"}, ""},
      {{"DisplayPortrait", "getdisplaymode"}, "-1"},
      {{"Printer", "GetMouseSpeed"}, ""},
      {{"Application", "OpenSesame", "x"}, ""}}},
    // The prefix has no camera.
    {"Camera",
     {{{"Camera", "IsCameraSupported"}, "1", kNotUnderWine},
      {{"Camera", "IsZoomSupported"}, "1", kNotUnderWine},
      {{"Camera", "GetZoom"}, "0", kNotUnderWine},
      {{"Camera", "GetBrightness"}, "50", kNotUnderWine},
      {{"Camera", "GetBlurOnOff"}, "0", kNotUnderWine},
      {{"Camera", "IsBlurSupported"}, "1", kNotUnderWine},
      {{"Camera", "SetZoom", "101"}, "0", kNotUnderWine},
      {{"Camera", "SetZoom", "-5"}, "0", kNotUnderWine},
      {{"Camera", "SetBlurOnOff", "7"}, "1", kNotUnderWine},
      {{"Camera", "GetBlurOnOff"}, "1", kNotUnderWine},
      {{"Camera", "SetAutoFrameOnOff", "-1"}, "1", kNotUnderWine},
      {{"Camera", "GetAutoFrameOnOff"}, "1", kNotUnderWine},
      {{"Camera", "SetAutoFrameOnOff", "0"}, "1", kNotUnderWine},
      {{"Camera", "GetAutoFrameOnOff"}, "0", kNotUnderWine},
      {{"Camera", "SetBrightness", "25"}, "1", kNotUnderWine},
      {{"Camera", "GetBrightness"}, "26", kNotUnderWine}}},
    // Wine's one display path fails its advanced-colour query; its prefix has
    // no portrait panel installed.
    {"Display",
     {{{"DisplayHDR", "IsHDRSupported"}, "1", "-1"},
      {{"DisplayHDR", "GetHDROnOff"}, "0", "-1"},
      {{"DisplayHDR", "SetHDROnOff", "2"}, "1", "0"},
      {{"DisplayHDR", "GetHDROnOff"}, "1", "-1"},
      {{"DisplayPortrait", "IsPortraitSupported"}, "1", "0"},
      {{"DisplayPortrait", "GetSupportedDisplayModes"}, FortyModes("0, 1, 2", 3), "-1"},
      {{"DisplayPortrait", "GetDisplayMode"}, "0", "-1"},
      {{"DisplayPortrait", "SetDisplayMode", "7"}, "-1"},
      {{"DisplayPortrait", "SetDisplayMode", "2"}, "2", "-1"},
      {{"DisplayPortrait", "GetDisplayMode"}, "2", "-1"}}},
    // Each change restarts the push-notification service: under Wine the test
    // bed's, first stopped, then running.
    {"Notification",
     {{{"Notification", "GetToastOnOff"}, "1"},
      {{"Notification", "SetToastOnOff", "0"}, "1"},
      {{"Notification", "GetToastOnOff"}, "0"},
      {{"Notification", "SetToastOnOff", "-3"}, "1"},
      {{"Notification", "GetToastOnOff"}, "1"}}},
    // Wine's shell has no applications folder.
    {"Application",
     {{{"Application", "GetApplicationLocation", "notepad"}, "C:\\Windows\\System32\\notepad.exe", "-1"},
      {{"Application", "GetApplicationLocation", "Notepad++"}, "-1"},
      {{"Application", "GetApplicationLocation", ""}, "-1"}}},
    // Under Wine the test bed's word processor writes the calls it got first:
    // the text typed into a new document, shown in front.
    {"Document",
     {{{"Application", "WriteToDoc", kTextFile},
       "1",
       "Application.Documents Documents.Add() Application.Selection "
       "Selection.TypeText(\"one\ntwo\r\xc3\xa9\xef\xbf\xbd!\") Selection.TypeParagraph() "
       "Application.ActiveDocument Application.Visible=-1 Document.ActiveWindow Window.Hwnd\r\n1"}}},
};

class KestrelToolCli : public ::testing::TestWithParam<Scenario> {};

} // namespace

TEST_P(KestrelToolCli, EachRunPrintsOneLine)
{
    const bool underWine = kLineEnd != "\n";
    FreshPc pc;
    TempDirectory directory;
    for (const Step& step : GetParam().steps) {
        if (underWine && step.wine == kNotUnderWine) continue;
        const std::string line = underWine && *step.wine != '\0' ? step.wine : step.host;
        std::vector<std::string> words = step.words;
        if (words.back() == kTextFile) {
            words.back() = (directory / "text.txt").string();
            WriteFileBytes(words.back(), std::string(kText, sizeof kText - 1));
        }
        const ProcessResult result = RunProcess(BuiltProgram("KestrelTool"), words, pc.Environment());
        const std::string command = ::testing::PrintToString(step.words);
        EXPECT_EQ(result.out, line + std::string(kLineEnd)) << command;
        EXPECT_EQ(result.exitStatus, 0) << command;
        EXPECT_EQ(result.err, "") << command;
    }
}

INSTANTIATE_TEST_SUITE_P(OnAFreshPc, KestrelToolCli, ::testing::ValuesIn(kScenarios),
                         [](const ::testing::TestParamInfo<Scenario>& scenario) { return std::string(scenario.param.name); });

TEST(KestrelToolWords, FewerThanTwoEndWithMinusOneAndPrintNothing)
{
    for (const std::vector<std::string>& words : {std::vector<std::string>{}, {"Accessory"}, {"GetMouseSpeed"}}) {
        const ProcessResult result = RunProcess(BuiltProgram("KestrelTool"), words);
        EXPECT_EQ(result.exitStatus, kExitStatusOfMinusOne) << ::testing::PrintToString(words);
        EXPECT_EQ(result.out + result.err, "");
    }
}

TEST(CommandLineText, ReachesTheProgramAsUtf8AndComesBackIntact)
{
    const ProcessResult result =
        RunProcess(BuiltProgram("kestrel_argv_echo"), {"C\xC3\xA4mera", "\xE5\x80\xA4", "\xF0\x9F\x98\x80 x"});
    EXPECT_EQ(result.out, "C\xC3\xA4mera|\xE5\x80\xA4|\xF0\x9F\x98\x80 x" + std::string(kLineEnd));
    EXPECT_EQ(result.exitStatus, 0);
}
