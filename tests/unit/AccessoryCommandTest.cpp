#include "AccessoryCommand.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

using Tessel::Bridge::Platform::IMouseSettings;
using Tessel::Bridge::Server::Services::Kestrel::HandleAccessoryCommand;
using ::testing::DoAll;
using ::testing::InSequence;
using ::testing::Return;
using ::testing::SetArgReferee;
using ::testing::StrictMock;

namespace {

class MockMouse : public IMouseSettings {
public:
    MOCK_METHOD(bool, GetSpeed, (int& speed), (override));
    MOCK_METHOD(bool, SetSpeed, (int speed), (override));
    MOCK_METHOD(int, GetSwapState, (), (override));
    MOCK_METHOD(bool, SetSwapState, (bool swapped), (override));
};

// Strict: any platform call a test does not expect fails it.
class AccessoryCommand : public ::testing::Test {
protected:
    std::wstring Run(const std::wstring& function, const std::wstring& value = L"",
                     std::wstring result = L"untouched")
    {
        HandleAccessoryCommand(mouse, function, value, result);
        return result;
    }

    StrictMock<MockMouse> mouse;
};

} // namespace

TEST_F(AccessoryCommand, GetMouseSpeedPrintsTheSpeedOrMinusOneWhenTheReadFails)
{
    EXPECT_CALL(mouse, GetSpeed).WillOnce(DoAll(SetArgReferee<0>(10), Return(true)));
    EXPECT_EQ(Run(L"GetMouseSpeed"), L"10");

    EXPECT_CALL(mouse, GetSpeed).WillOnce(Return(false));
    EXPECT_EQ(Run(L"GetMouseSpeed"), L"-1");

    // A read that reports success without storing anything shows the start value.
    EXPECT_CALL(mouse, GetSpeed).WillOnce(Return(true));
    EXPECT_EQ(Run(L"GetMouseSpeed"), L"-1");
}

TEST_F(AccessoryCommand, SetMouseSpeedLeavesTheRangeToThePlatform)
{
    InSequence order;
    EXPECT_CALL(mouse, SetSpeed(7)).WillOnce(Return(true));
    EXPECT_CALL(mouse, SetSpeed(25)).WillOnce(Return(false));
    EXPECT_CALL(mouse, SetSpeed(-3)).WillOnce(Return(false));
    EXPECT_CALL(mouse, SetSpeed(12)).WillOnce(Return(true));
    EXPECT_EQ(Run(L"SetMouseSpeed", L" 7 "), L"1");
    EXPECT_EQ(Run(L"SetMouseSpeed", L"25"), L"0");
    EXPECT_EQ(Run(L"SetMouseSpeed", L"-3"), L"0");
    EXPECT_EQ(Run(L"SetMouseSpeed", L"12abc"), L"1");
}

TEST_F(AccessoryCommand, ValuesThatAreNotNumbersThrowBeforeThePlatformIsTouched)
{
    // The strict mock fails the test on any call.
    EXPECT_THROW(Run(L"SetMouseSpeed", L"abc"), std::invalid_argument);
    EXPECT_THROW(Run(L"SetMouseSpeed", L""), std::invalid_argument);
    EXPECT_THROW(Run(L"SetMouseSpeed", L"4294967296"), std::out_of_range);
    EXPECT_THROW(Run(L"SetMouseLeftHanded", L"left"), std::invalid_argument);
    EXPECT_THROW(Run(L"SetMouseLeftHanded", L""), std::invalid_argument);
}

TEST_F(AccessoryCommand, SwapMouseButtonReadsTheStateThenWritesItsOpposite)
{
    // Any non-zero metric counts as swapped; what the swap call answers is
    // not looked at.
    InSequence order;
    EXPECT_CALL(mouse, GetSwapState).WillOnce(Return(0));
    EXPECT_CALL(mouse, SetSwapState(true)).WillOnce(Return(true));
    EXPECT_CALL(mouse, GetSwapState).WillOnce(Return(2));
    EXPECT_CALL(mouse, SetSwapState(false)).WillOnce(Return(false));
    EXPECT_EQ(Run(L"SwapMouseButton"), L"1");
    EXPECT_EQ(Run(L"SwapMouseButton"), L"1");
}

TEST_F(AccessoryCommand, GetMouseSwapStatusPrintsTheRawMetric)
{
    EXPECT_CALL(mouse, GetSwapState).WillOnce(Return(0)).WillOnce(Return(1)).WillOnce(Return(7));
    EXPECT_EQ(Run(L"GetMouseSwapStatus"), L"0");
    EXPECT_EQ(Run(L"GetMouseSwapStatus"), L"1");
    EXPECT_EQ(Run(L"GetMouseSwapStatus"), L"7");
}

TEST_F(AccessoryCommand, SetMouseLeftHandedSwapsForAnyNonZeroNumber)
{
    InSequence order;
    EXPECT_CALL(mouse, SetSwapState(false)).WillOnce(Return(true));
    EXPECT_CALL(mouse, SetSwapState(true)).WillOnce(Return(false));
    EXPECT_CALL(mouse, SetSwapState(true)).WillOnce(Return(false)); // a failed call still gives "1"
    EXPECT_EQ(Run(L"SetMouseLeftHanded", L"0"), L"1");
    EXPECT_EQ(Run(L"SetMouseLeftHanded", L"2"), L"1");
    EXPECT_EQ(Run(L"SetMouseLeftHanded", L"-1"), L"1");
}

TEST_F(AccessoryCommand, UnknownFunctionsLeaveTheResultAndThePlatformAlone)
{
    for (const wchar_t* function : {L"", L"getmousespeed", L"GETMOUSESPEED", L"GetMouseSpeeds", L"GetMouseSpeed ",
                                    L" SwapMouseButton", L"SetMouseRightHanded"}) {
        EXPECT_EQ(Run(function, L"5"), L"untouched") << "function: \"" << function << '"';
    }
}
