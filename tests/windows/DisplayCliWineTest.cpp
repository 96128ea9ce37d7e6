// KestrelTool's portrait flow under Wine, with the vendor's stand-ins
// installed where a real installation puts them. (A fresh prefix's display
// answers are rows of CliTest.cpp.)
#include "support/ProcessRunner.h"
#include "support/TempDirectory.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>

using namespace KestrelTest;
namespace fs = std::filesystem;

namespace {

class DisplayPortraitUnderWine : public ::testing::Test {
protected:
    DisplayPortraitUnderWine()
    {
        for (const fs::path& folder : {tool, work}) fs::create_directory(folder);
        fs::copy_file(BuiltProgram("KestrelTool"), tool / "KestrelTool.exe");
    }
    ~DisplayPortraitUnderWine() override
    {
        std::error_code ignored;
        fs::remove_all(kVendorFolder, ignored);
    }

    static fs::path Bed(const char* name) { return fs::path(std::getenv("KESTREL_TEST_BEDS")) / name; }

    void InstallService(const char* version)
    {
        fs::create_directories(kServiceFolder);
        fs::copy_file(Bed(version), kServiceFolder / "Vantor.exe", fs::copy_options::overwrite_existing);
    }

    // The plug-in and its panel: "<IsPlatformSupported> <current> <modes...>".
    void InstallPlugin(const fs::path& folder, const std::string& panel, const char* library = "TesselVNT.dll")
    {
        fs::copy_file(Bed(library), folder / "TesselVNT.dll", fs::copy_options::overwrite_existing);
        std::ofstream(folder / "TesselVNT.panel") << panel;
    }

    std::string Run(const std::vector<std::string>& words)
    {
        std::vector<std::string> all{"DisplayPortrait"};
        all.insert(all.end(), words.begin(), words.end());
        const ProcessResult result = RunProcess(tool / "KestrelTool.exe", all, {}, work);
        EXPECT_EQ(result.exitStatus, 0) << result.err;
        const std::string line = result.out + result.err;
        return line.size() >= kLineEnd.size() ? line.substr(0, line.size() - kLineEnd.size()) : line;
    }

    const fs::path kVendorFolder = "C:\\Program Files\\Portrait Displays";
    const fs::path kServiceFolder = kVendorFolder / "Tessel Panel Service";
    TempDirectory directory;
    fs::path tool = directory / "tool";
    fs::path work = directory / "work";
};

TEST_F(DisplayPortraitUnderWine, ASupportedPanelListsReadsAndSetsItsModes)
{
    InstallService("Vantor-5.0.exe");
    InstallPlugin(tool, "1 0 0 1 2");
    std::string modes = "[0, 1, 2";
    for (int i = 0; i < 37; ++i) modes += ", -1";
    EXPECT_EQ(Run({"IsPortraitSupported"}), "1");
    EXPECT_EQ(Run({"GetSupportedDisplayModes"}), modes + "]");
    EXPECT_EQ(Run({"SetDisplayMode", "2"}), "2");
    EXPECT_EQ(Run({"SetDisplayMode", "7"}), "-1"); // refused: not a mode of the panel
    EXPECT_EQ(Run({"GetDisplayMode"}), "2");
}

TEST_F(DisplayPortraitUnderWine, AnOldServiceOrAPanelThatAnswersTwoLeavesNothingSupported)
{
    InstallService("Vantor-4.9.exe");
    InstallPlugin(tool, "1 0 0 1 2");
    EXPECT_EQ(Run({"IsPortraitSupported"}), "0");
    EXPECT_EQ(Run({"SetDisplayMode", "1"}), "-1");
    InstallService("Vantor-5.0.exe");
    InstallPlugin(tool, "2 1 0 1 2");
    EXPECT_EQ(Run({"IsPortraitSupported"}), "0");
    EXPECT_EQ(Run({"GetDisplayMode"}), "-1");
    EXPECT_EQ(Run({"GetSupportedDisplayModes"}), "-1");
}

TEST_F(DisplayPortraitUnderWine, ThePluginBesideTheProgramWinsOverTheWorkingDirectory)
{
    InstallService("Vantor-5.0.exe");
    InstallPlugin(work, "1 5 5 6");
    EXPECT_EQ(Run({"GetDisplayMode"}), "5");
    InstallPlugin(tool, "1 0 0 1 2");
    EXPECT_EQ(Run({"GetDisplayMode"}), "0");
}

// The security library's component, linked against the program's exports and
// loaded in the plug-in's place, prints each failed check beside the answer.
TEST_F(DisplayPortraitUnderWine, AComponentLoadedByTheProgramUsesItsExportedSecurityLibrary)
{
    // Its C++ interface links only with a program of the same compiler and runtime.
    if (std::getenv("KESTREL_PROGRAM_DIR") != nullptr) GTEST_SKIP() << "the program is another build's";
    InstallService("Vantor-5.0.exe");
    InstallPlugin(tool, "", "SecurityConsumer.dll");
    EXPECT_EQ(Run({"IsPortraitSupported"}), "1");
}

} // namespace
