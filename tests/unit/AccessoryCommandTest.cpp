// What a process run cannot show: how the answers of the mouse platform
// become results (the emulated PC only keeps speeds 1 to 20 and a flag).
#include "AccessoryCommand.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

using Tessel::Bridge::Platform::IMouseSettings;
using Tessel::Bridge::Server::Services::Kestrel::HandleAccessoryCommand;
using ::testing::DoAll;
using ::testing::Return;
using ::testing::SetArgReferee;

namespace {

class MockMouse : public IMouseSettings {
public:
    MOCK_METHOD(bool, GetSpeed, (int& speed), (override));
    MOCK_METHOD(bool, SetSpeed, (int speed), (override));
    MOCK_METHOD(int, GetSwapState, (), (override));
    MOCK_METHOD(bool, SetSwapState, (bool swapped), (override));
};

} // namespace

// Strict and in order: any platform call a row does not expect fails it.
TEST(AccessoryCommand, EachFunctionAsksThePlatformOnceAndPrintsItsAnswer)
{
    ::testing::StrictMock<MockMouse> mouse;
    ::testing::InSequence order;
    EXPECT_CALL(mouse, GetSpeed).WillOnce(DoAll(SetArgReferee<0>(10), Return(true)));
    EXPECT_CALL(mouse, GetSpeed).WillOnce(Return(false));
    EXPECT_CALL(mouse, GetSpeed).WillOnce(Return(true)); // success without a value: the start value
    EXPECT_CALL(mouse, SetSpeed(12)).WillOnce(Return(true));
    EXPECT_CALL(mouse, SetSpeed(-3)).WillOnce(Return(false));
    EXPECT_CALL(mouse, GetSwapState).WillOnce(Return(7));
    EXPECT_CALL(mouse, GetSwapState).WillOnce(Return(2)); // any non-zero metric is swapped
    EXPECT_CALL(mouse, SetSwapState(false)).WillOnce(Return(false)); // whose answer is not looked at
    EXPECT_CALL(mouse, SetSwapState(true)).WillOnce(Return(false));
    EXPECT_CALL(mouse, SetSwapState(false)).WillOnce(Return(true));
    const struct {
        const wchar_t* function;
        const wchar_t* value;
        const wchar_t* result;
    } rows[] = {{L"GetMouseSpeed", L"", L"10"},          {L"GetMouseSpeed", L"", L"-1"},      {L"GetMouseSpeed", L"", L"-1"},
                {L"SetMouseSpeed", L"12abc", L"1"},      {L"SetMouseSpeed", L"-3", L"0"},     {L"GetMouseSwapStatus", L"", L"7"},
                {L"SwapMouseButton", L"", L"1"},         {L"SetMouseLeftHanded", L"-1", L"1"}, {L"SetMouseLeftHanded", L"0", L"1"},
                {L"getmousespeed", L"5", L"untouched"}, {L"GetMouseSpeed ", L"", L"untouched"}, {L"", L"", L"untouched"}};
    for (const auto& row : rows) {
        std::wstring result = L"untouched";
        HandleAccessoryCommand(mouse, row.function, row.value, result);
        EXPECT_EQ(result, row.result) << row.function << " " << row.value;
    }
    // Values that are not numbers throw before the platform is touched.
    std::wstring result;
    EXPECT_THROW(HandleAccessoryCommand(mouse, L"SetMouseSpeed", L"", result), std::invalid_argument);
    EXPECT_THROW(HandleAccessoryCommand(mouse, L"SetMouseSpeed", L"4294967296", result), std::out_of_range);
    EXPECT_THROW(HandleAccessoryCommand(mouse, L"SetMouseLeftHanded", L"left", result), std::invalid_argument);
}
