// The user32 mouse settings on a freshly booted prefix. SPI_SETMOUSESPEED is
// not exercised: Wine answers success but stores 0 whatever the value.
#include "platform/MouseSettings.h"

#include <gtest/gtest.h>

using Tessel::Bridge::Platform::CreateMouseSettings;

TEST(User32MouseSettings, ReadsTheDefaultPointerSpeed)
{
    const auto mouse = CreateMouseSettings();
    int speed = -1;
    ASSERT_TRUE(mouse->GetSpeed(speed));
    EXPECT_EQ(speed, 10);
}

TEST(User32MouseSettings, SwapsTheButtonsAndAnswersThePreviousState)
{
    const auto mouse = CreateMouseSettings();
    ASSERT_EQ(mouse->GetSwapState(), 0);
    EXPECT_FALSE(mouse->SetSwapState(true));
    EXPECT_NE(mouse->GetSwapState(), 0);
    EXPECT_TRUE(mouse->SetSwapState(false));
    EXPECT_EQ(mouse->GetSwapState(), 0);
}
