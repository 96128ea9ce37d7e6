// KestrelTool's Camera category against the capture and configuration manager
// stand-ins of the prefix; each test has its own cameras and saved defaults.
#include "FrontEnd.h"
#include "support/ProcessRunner.h"
#include "support/TempDirectory.h"

#include <gmock/gmock.h>

#include <fstream>
#include <iterator>

using namespace KestrelTest;

namespace {

// Zoom 100..400 at 100, brightness -64..64 at 0, properties 41 and 43 succeed.
std::string Camera(const char* id, const char* panel = "1", const char* open = "0")
{
    return std::string(id) + " " + panel + " " + open + " 1 100 400 100 1 -64 64 0 0 0\n";
}

class CameraCli : public ::testing::Test {
protected:
    ProcessResult Run(const std::string& cameras, std::vector<std::string> words)
    {
        std::ofstream(dir / "cameras") << cameras;
        words.insert(words.begin(), "Camera");
        return RunProcess(BuiltProgram("KestrelTool"), words,
                          {{"KESTREL_TEST_CAMERAS", (dir / "cameras").string()},
                           {"KESTREL_TEST_CAMERA_DEFAULTS", dir.Path().string()}});
    }
    // Each run is a new process; the cameras stay, the saved defaults too.
    using Runs = std::vector<std::pair<std::vector<std::string>, std::string>>;
    void ExpectLines(const std::string& cameras, const Runs& runs)
    {
        for (const auto& [words, line] : runs) {
            const ProcessResult result = Run(cameras, words);
            EXPECT_EQ(result.out + result.err, line + std::string(kLineEnd)) << ::testing::PrintToString(words);
            EXPECT_EQ(result.exitStatus, 0) << ::testing::PrintToString(words);
        }
    }
    std::string Opened()
    {
        std::ifstream in(dir / "cameras.opened");
        return {std::istreambuf_iterator<char>(in), {}};
    }

    TempDirectory dir;
};

} // namespace

TEST_F(CameraCli, ReadsAndChangesTheSettingsOfTheCamera)
{
    ExpectLines(Camera("front"), {{{"IsCameraSupported"}, "1"}, {{"IsZoomSupported"}, "1"}, {{"GetZoom"}, "0"},
                                  {{"GetBrightness"}, "50"}, {{"GetBlurOnOff"}, "0"}, {{"SetBlurOnOff", "7"}, "1"},
                                  {{"GetBlurOnOff"}, "1"}, {{"SetBrightness", "25"}, "1"}, {{"GetBrightness"}, "26"},
                                  {{"SetZoom", "101"}, "0"}});
}

TEST_F(CameraCli, OpensTheLastFrontCamera)
{
    ExpectLines(Camera("back", "2") + Camera("nowhere", "none") + Camera("first-front") +
                    "last-front 1 0 1 100 400 250 1 -64 64 0 0 0\n",
                {{{"GetZoom"}, "50"}});
    EXPECT_EQ(Opened(), "last-front\n");
}

TEST_F(CameraCli, WithoutACameraNothingIsSupported)
{
    ExpectLines("", {{{"IsCameraSupported"}, "0"}, {{"GetZoom"}, "-1"}, {{"SetZoom", "50"}, "0"}});
    EXPECT_EQ(Opened(), "");
}

TEST_F(CameraCli, ACameraThatFailsToOpenEndsTheRun)
{
    const ProcessResult result = Run(Camera("front", "1", "C00D3704"), {"IsCameraSupported"});
    EXPECT_EQ(result.out, "");
    EXPECT_THAT(result.err, ::testing::MatchesRegex("KestrelTool: CameraSession\\(\\d+\\): 0xC00D3704\\s*"));
    EXPECT_EQ(result.exitStatus, Tessel::Bridge::Server::Services::Kestrel::kAbnormalEndStatus);
}

TEST_F(CameraCli, ReadsThatDecideNothingAreNotMade)
{
    // One camera: its (failing) panel read is never made; no brightness: its
    // (failing) range read is never made.
    ExpectLines("only unreadable 0 1 100 400 100 0 0 0 0 0 0\n",
                {{{"GetZoom"}, "0"}, {{"GetBrightness"}, "-1"}, {{"SetBrightness", "50"}, "0"}});
}
