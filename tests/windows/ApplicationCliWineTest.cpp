// KestrelTool's Application category under Wine, whose shell has no
// applications folder: the real calls fail and the answer is -1.
#include "support/ProcessRunner.h"

#include <gtest/gtest.h>

using namespace KestrelTest;

TEST(ApplicationUnderWine, WithoutAnApplicationsFolderNoLocationIsFound)
{
    const ProcessResult result = RunProcess(BuiltProgram("KestrelTool"), {"Application", "GetApplicationLocation", "Notepad"});
    EXPECT_EQ(result.out + result.err, "-1" + std::string(kLineEnd));
    EXPECT_EQ(result.exitStatus, 0);
}
