// Host only: the DisplayHDR and DisplayPortrait categories on emulated PCs,
// with the real plug-in library loaded from where the program looks for it.
#include "EmulatedPcCli.h"

#include "FrontEnd.h"

#include <gmock/gmock.h>

using namespace KestrelTest;
using Json = nlohmann::json;
using Tessel::Bridge::Server::Services::Kestrel::kAbnormalEndStatus;

namespace {

std::string FortyModes(const std::string& written)
{
    std::string list = "[" + written;
    const auto entries = written.empty() ? 0 : std::count(written.begin(), written.end(), ',') + 1;
    for (auto i = entries; i < 40; ++i) list += (i == 0 ? "-1" : ", -1");
    return list + "]";
}

class DisplayCli : public EmulatedPcCli {
protected:
    Json Path(std::uint32_t target, bool enabled, const Json& more = Json::object())
    {
        Json path = {{"targetId", target}, {"advancedColorEnabled", enabled}};
        path.update(more);
        return path;
    }
    void UsePaths(const Json& paths) { UseState({{"displays", {{"paths", paths}}}}); }
    bool Enabled(std::size_t path) { return SavedState()["displays"]["paths"][path]["advancedColorEnabled"]; }

    void UsePortrait(const Json& portrait) { UseState({{"portraitDisplays", portrait}}); }
};

} // namespace

TEST_F(DisplayCli, AFreshPcHasOneHdrDisplayAndAPortraitPanelWithThreeModes)
{
    ExpectResults({{{"DisplayHDR", "IsHDRSupported"}, "1"},
                   {{"DisplayHDR", "GetHDROnOff"}, "0"},
                   {{"DisplayPortrait", "IsPortraitSupported"}, "1"},
                   {{"DisplayPortrait", "GetSupportedDisplayModes"}, FortyModes("0, 1, 2")},
                   {{"DisplayPortrait", "GetDisplayMode"}, "0"},
                   {{"DisplayPortrait", "SetDisplayMode", "7"}, "-1"},
                   {{"DisplayPortrait", "GetDisplayModes"}, "-1"}});
    EXPECT_FALSE(std::filesystem::exists(stateFile)); // reading and refusals write nothing

    const ProcessResult aborted = Run({"DisplayHDR", "SetHDROnOff", "x"});
    EXPECT_EQ(aborted.out + aborted.err, "KestrelTool: invalid stoi argument\n");
    EXPECT_EQ(aborted.exitStatus, kAbnormalEndStatus);
    EXPECT_FALSE(std::filesystem::exists(stateFile));

    ExpectResults({{{"DisplayHDR", "SetHDROnOff", "2"}, "1"},
                   {{"DisplayHDR", "GetHDROnOff"}, "1"},
                   {{"DisplayPortrait", "SetDisplayMode", "2"}, "2"},
                   {{"DisplayPortrait", "GetDisplayMode"}, "2"}});
    EXPECT_TRUE(Enabled(0));
    EXPECT_EQ(SavedState()["portraitDisplays"]["panel"]["currentMode"], 2);
}

TEST_F(DisplayCli, SeveralDisplaysAreReadLastFirstAndSwitchedUntilOneRefuses)
{
    UsePaths({Path(1, true), Path(2, false, {{"wideColorEnforced", true}}), Path(3, false),
              Path(4, false, {{"setFails", true}}), Path(5, false)});
    ExpectResults({{{"DisplayHDR", "GetHDROnOff"}, "0"}, {{"DisplayHDR", "SetHDROnOff", "1"}, "1"}});
    EXPECT_TRUE(Enabled(0));
    EXPECT_FALSE(Enabled(1)); // wide colour enforced: never switched
    EXPECT_TRUE(Enabled(2));
    EXPECT_FALSE(Enabled(3));
    EXPECT_FALSE(Enabled(4)); // after the refusal
    ExpectResults({{{"DisplayHDR", "GetHDROnOff"}, "0"}});
}

TEST_F(DisplayCli, InjectedFailuresGiveMinusOneForQueriesAndZeroForTheSetter)
{
    UsePaths({Path(1, false, {{"advancedColorSupported", false}}), Path(2, false, {{"queryFails", true}})});
    ExpectResults({{{"DisplayHDR", "IsHDRSupported"}, "-1"},
                   {{"DisplayHDR", "GetHDROnOff"}, "-1"},
                   {{"DisplayHDR", "SetHDROnOff", "1"}, "0"}});
    UseState({{"displays", {{"readFails", true}}}});
    ExpectResults({{{"DisplayHDR", "IsHDRSupported"}, "-1"}, {{"DisplayHDR", "SetHDROnOff", "1"}, "0"}});
    UsePaths(Json::array());
    ExpectResults({{{"DisplayHDR", "IsHDRSupported"}, "0"}, {{"DisplayHDR", "GetHDROnOff"}, "-1"}});
}

TEST_F(DisplayCli, TheVendorServiceVersionGatesThePlugin)
{
    const std::pair<Json, std::string> services[] = {
        {{{"fileVersion", "4.9.0.0"}}, "0"}, {{{"fileVersion", nullptr}}, "0"}, {nullptr, "0"},
        {{{"fileVersion", "5.0.0.0"}}, "1"}, {{{"fileVersion", "65535.1.2.3"}}, "1"}};
    for (const auto& [service, supported] : services) {
        UsePortrait({{"service", service}});
        ExpectResults({{{"DisplayPortrait", "IsPortraitSupported"}, supported},
                       {{"DisplayPortrait", "GetDisplayMode"}, supported == "1" ? "0" : "-1"}});
    }
}

TEST_F(DisplayCli, ThePanelsAnswersAndMissingExportsReachTheResults)
{
    UsePortrait({{"panel", {{"platformSupported", 2}}}});
    ExpectResults({{{"DisplayPortrait", "IsPortraitSupported"}, "0"}, {{"DisplayPortrait", "GetDisplayMode"}, "-1"}});

    UsePortrait({{"panel", {{"modes", {-5, 7}}, {"currentMode", 7}, {"missingExports", {"GetCurrentDisplayMode"}}}}});
    ExpectResults({{{"DisplayPortrait", "GetSupportedDisplayModes"}, FortyModes("-5, 7")},
                   {{"DisplayPortrait", "GetDisplayMode"}, "-1"},
                   {{"DisplayPortrait", "SetDisplayMode", "-5"}, "-1"}});
    EXPECT_EQ(SavedState()["portraitDisplays"]["panel"]["currentMode"], -5); // set, but not read back

    UsePortrait({{"panel", {{"modes", Json::array()}, {"missingExports", {"SetDisplayMode"}}}}});
    ExpectResults({{{"DisplayPortrait", "GetSupportedDisplayModes"}, "-1"},
                   {{"DisplayPortrait", "SetDisplayMode", "0"}, "0"}}); // already current
    UsePortrait({{"panel", {{"missingExports", {"Start"}}}}});
    ExpectResults({{{"DisplayPortrait", "IsPortraitSupported"}, "0"}});
}

TEST_F(DisplayCli, ThePluginBesideTheProgramWinsOverTheWorkingDirectory)
{
    // A copy of the program without the plug-in beside it, and folders with
    // the real plug-in or with a file of its name that is no library.
    const std::filesystem::path tool = directory / "tool";
    const std::filesystem::path work = directory / "work";
    const std::filesystem::path broken = directory / "broken";
    for (const auto& folder : {tool, work, broken}) std::filesystem::create_directory(folder);
    std::filesystem::copy_file(BuiltProgram("KestrelTool"), tool / "KestrelTool");
    std::filesystem::copy_file(BuiltProgram("libTesselVNT.so"), work / "libTesselVNT.so");
    WriteFileBytes(broken / "libTesselVNT.so", "not a library");
    const auto supported = [&](const std::filesystem::path& cwd) {
        return Run({"DisplayPortrait", "IsPortraitSupported"}, tool / "KestrelTool", cwd).out;
    };

    EXPECT_EQ(supported(work), "1\n");
    EXPECT_EQ(supported(broken), "0\n");
    EXPECT_EQ(supported(directory.Path()), "0\n");

    std::filesystem::copy_file(work / "libTesselVNT.so", tool / "libTesselVNT.so");
    EXPECT_EQ(supported(broken), "1\n");
    // Found beside the program, the file is taken even when it cannot load.
    std::filesystem::copy_file(broken / "libTesselVNT.so", tool / "libTesselVNT.so",
                               std::filesystem::copy_options::overwrite_existing);
    EXPECT_EQ(supported(work), "0\n");
}

TEST_F(DisplayCli, MalformedDisplayAreasAreReportedAndLeftAsTheyAre)
{
    const std::pair<Json, std::string> cases[] = {
        {{{"displays", {{"paths", {{{"targetId", -1}}}}}}}, "/displays/paths/0/targetId is not an unsigned integer"},
        {{{"displays", {{"paths", {{{"targetId", 1}}, {{"targetId", 1}}}}}}}, "/displays/paths/1 has the target of path 0"},
        {{{"displays", {{"paths", {{{"setFails", 1}}}}}}}, "/displays/paths/0/setFails is not true or false"},
        {{{"portraitDisplays", {{"service", {{"fileVersion", "5.0"}}}}}}, "/portraitDisplays/service/fileVersion is not"},
        {{{"portraitDisplays", {{"panel", {{"modes", {1, 2.5}}}}}}}, "/portraitDisplays/panel/modes/1 is not a 32-bit"},
        {{{"portraitDisplays", {{"panel", {{"missingExports", {"Stop"}}}}}}}, "/portraitDisplays/panel/missingExports/0"},
    };
    for (const auto& [state, message] : cases) {
        UseState(state);
        const std::string before = ReadFileBytes(stateFile);
        const char* category = state.contains("displays") ? "DisplayHDR" : "DisplayPortrait";
        const ProcessResult result = Run({category, category[7] == 'H' ? "SetHDROnOff" : "SetDisplayMode", "1"});
        EXPECT_THAT(result.err, ::testing::HasSubstr("is malformed: " + message)) << state.dump();
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(result.exitStatus, kAbnormalEndStatus);
        EXPECT_EQ(ReadFileBytes(stateFile), before);
    }
}
