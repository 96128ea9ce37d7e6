// Host only: the DisplayHDR and DisplayPortrait categories on emulated PCs,
// with the real plug-in library loaded from where the program looks for it.
#include "EmulatedPcCli.h"

#include "FrontEnd.h"

#include <gmock/gmock.h>

using namespace KestrelTest;
using Json = nlohmann::json;
using Tessel::Bridge::Server::Services::Kestrel::kAbnormalEndStatus;

namespace {

std::string FortyModes(const std::string& written, int count)
{
    std::string list = "[" + written;
    for (int i = count; i < 40; ++i) list += ", -1";
    return list + "]";
}

class DisplayCli : public EmulatedPcCli {
protected:
    bool Enabled(std::size_t path) { return SavedState()["displays"]["paths"][path].value("advancedColorEnabled", false); }
};

} // namespace

TEST_F(DisplayCli, AFreshPcHasOneHdrDisplayAndAPortraitPanelWithThreeModes)
{
    ExpectResults({{{"DisplayHDR", "IsHDRSupported"}, "1"},
                   {{"DisplayHDR", "GetHDROnOff"}, "0"},
                   {{"DisplayPortrait", "IsPortraitSupported"}, "1"},
                   {{"DisplayPortrait", "GetSupportedDisplayModes"}, FortyModes("0, 1, 2", 3)},
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
}

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
        const std::string supported = results.substr(0, 1);
        ExpectResults({{{"DisplayPortrait", "IsPortraitSupported"}, supported},
                       {{"DisplayPortrait", "GetDisplayMode"}, results.substr(2)}});
    }
    UseState({{"portraitDisplays", {{"panel", {{"modes", {-5, 7}}, {"missingExports", {"SetDisplayMode"}}}}}}});
    ExpectResults({{{"DisplayPortrait", "GetSupportedDisplayModes"}, FortyModes("-5, 7", 2)},
                   {{"DisplayPortrait", "SetDisplayMode", "7"}, "-1"}});
    UseState({{"portraitDisplays", {{"panel", {{"modes", Json::array()}}}}}});
    ExpectResults({{{"DisplayPortrait", "GetSupportedDisplayModes"}, "-1"}});
}

TEST_F(DisplayCli, ThePluginBesideTheProgramWinsOverTheWorkingDirectory)
{
    // A copy of the program without the plug-in beside it, and folders with
    // the real plug-in or with a file of its name that is no library.
    const std::filesystem::path tool = directory / "tool", work = directory / "work", broken = directory / "broken";
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
    const std::tuple<Json, const char*, std::string> cases[] = {
        {{{"displays", {{"paths", {{{"targetId", 1}}, {{"targetId", 1}}}}}}}, "DisplayHDR",
         "/displays/paths/1 has the target of path 0"},
        {{{"portraitDisplays", {{"service", {{"fileVersion", "5.0"}}}}}}, "DisplayPortrait",
         "/portraitDisplays/service/fileVersion is not"},
        {{{"portraitDisplays", {{"panel", {{"modes", {1, 2.5}}}}}}}, "DisplayPortrait",
         "/portraitDisplays/panel/modes/1 is not a 32-bit"},
    };
    for (const auto& [state, category, message] : cases) {
        UseState(state);
        const std::string before = ReadFileBytes(stateFile);
        const ProcessResult result = Run({category, category[7] == 'H' ? "SetHDROnOff" : "SetDisplayMode", "1"});
        EXPECT_THAT(result.out + result.err, ::testing::HasSubstr("is malformed: " + message)) << state.dump();
        EXPECT_EQ(result.exitStatus, kAbnormalEndStatus);
        EXPECT_EQ(ReadFileBytes(stateFile), before);
    }
}
