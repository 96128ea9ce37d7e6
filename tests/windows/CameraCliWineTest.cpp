// KestrelTool's Camera category against the capture and configuration manager
// stand-ins of the prefix, for reads that must not be made: the stand-ins fail
// them. (A fresh prefix's camera answers are rows of CliTest.cpp.)
#include "support/ProcessRunner.h"
#include "support/TempDirectory.h"

#include <gtest/gtest.h>

#include <fstream>

using namespace KestrelTest;

TEST(CameraCliWine, ReadsThatDecideNothingAreNotMade)
{
    // One camera: its (failing) panel read is never made; no brightness: its
    // (failing) range read is never made.
    TempDirectory dir;
    std::ofstream(dir / "cameras") << "only unreadable 0 1 100 400 100 0 0 0 0 0 0\n";
    for (const auto& [words, line] : std::vector<std::pair<std::vector<std::string>, std::string>>{
             {{"Camera", "GetZoom"}, "0"}, {{"Camera", "GetBrightness"}, "-1"}, {{"Camera", "SetBrightness", "50"}, "0"}}) {
        const ProcessResult result = RunProcess(BuiltProgram("KestrelTool"), words,
                                                {{"KESTREL_TEST_CAMERAS", (dir / "cameras").string()},
                                                 {"KESTREL_TEST_CAMERA_DEFAULTS", dir.Path().string()}});
        EXPECT_EQ(result.out + result.err, line + std::string(kLineEnd)) << words[1];
        EXPECT_EQ(result.exitStatus, 0) << words[1];
    }
}
