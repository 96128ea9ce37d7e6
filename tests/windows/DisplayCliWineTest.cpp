// The security library's component, linked against KestrelTool.exe's exports
// and loaded in the display vendor plug-in's place (beside the program, with
// the vendor's service installed where a real installation puts it), answers 1
// when every check held. (A fresh prefix's display answers are rows of CliTest.cpp.)
#include "support/ProcessRunner.h"
#include "support/TempDirectory.h"

#include <gtest/gtest.h>

#include <cstdlib>

using namespace KestrelTest;
namespace fs = std::filesystem;

TEST(DisplayPortraitUnderWine, AComponentLoadedByTheProgramUsesItsExportedSecurityLibrary)
{
    // Its C++ interface links only with a program of the same compiler and runtime.
    if (std::getenv("KESTREL_PROGRAM_DIR") != nullptr) GTEST_SKIP() << "the program is another build's";
    const fs::path beds = std::getenv("KESTREL_TEST_BEDS");
    const fs::path service = "C:\\Program Files\\Portrait Displays\\Tessel Panel Service";
    TempDirectory tool;
    fs::create_directories(service);
    fs::copy_file(beds / "Vantor-5.0.exe", service / "Vantor.exe", fs::copy_options::overwrite_existing);
    fs::copy_file(BuiltProgram("KestrelTool"), tool / "KestrelTool.exe");
    fs::copy_file(beds / "SecurityConsumer.dll", tool / "TesselVNT.dll");
    const ProcessResult result = RunProcess(tool / "KestrelTool.exe", {"DisplayPortrait", "IsPortraitSupported"});
    fs::remove_all(service.parent_path());
    EXPECT_EQ(result.out, std::string("1").append(kLineEnd)) << result.err;
    EXPECT_EQ(result.exitStatus, 0);
}
