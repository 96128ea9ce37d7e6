#include "EmulatedTestSupport.h"
#include "support/TempDirectory.h"

#include "platform/MouseSettings.h"
#include "platform/emulated/EmulatedPc.h"

#include <gtest/gtest.h>

using Tessel::Bridge::Platform::CreateMouseSettings;
using namespace KestrelTest;

namespace {

class EmulatedMouse : public ::testing::Test {
protected:
    TempDirectory directory;
    std::filesystem::path stateFile = directory / "pc.json";
    ScopedEnvironment pcFile{"KESTREL_EMULATED_PC", stateFile.string()};
};

} // namespace

TEST_F(EmulatedMouse, SpeedsOneToTwentyAreKeptAndOthersRefusedWithoutAWrite)
{
    const auto mouse = CreateMouseSettings();
    for (const int refused : {0, 21, -1, 25, 1000}) {
        EXPECT_FALSE(mouse->SetSpeed(refused)) << refused;
    }
    EXPECT_FALSE(std::filesystem::exists(stateFile));

    for (const int kept : {1, 20, 13}) {
        ASSERT_TRUE(mouse->SetSpeed(kept));
        int speed = -1;
        ASSERT_TRUE(CreateMouseSettings()->GetSpeed(speed));
        EXPECT_EQ(speed, kept);
    }
}

TEST_F(EmulatedMouse, AMalformedStateFileIsNeverOverwritten)
{
    using Tessel::Bridge::Platform::Emulated::EmulatedPcError;
    const auto mouse = CreateMouseSettings();
    for (const std::string& bytes : MalformedStateFiles()) {
        WriteFileBytes(stateFile, bytes);
        SCOPED_TRACE(bytes);
        int speed = 0;
        EXPECT_THROW(mouse->GetSpeed(speed), EmulatedPcError);
        EXPECT_THROW(mouse->SetSpeed(7), EmulatedPcError);
        EXPECT_THROW(mouse->SetSwapState(true), EmulatedPcError);
        EXPECT_EQ(ReadFileBytes(stateFile), bytes);
    }
}
