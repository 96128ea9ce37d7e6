#include "DisplayHdrCommand.h"

#include <gtest/gtest.h>

#include <stdexcept>

using namespace Tessel::Bridge::Platform;
using Tessel::Bridge::Server::Services::Kestrel::HandleDisplayHdrCommand;

namespace {

constexpr std::uint32_t kOff = AdvancedColor::kSupported;
constexpr std::uint32_t kOn = AdvancedColor::kSupported | AdvancedColor::kEnabled;
constexpr std::uint32_t kEnforced = AdvancedColor::kSupported | AdvancedColor::kWideColorEnforced;

struct FakeDisplay {
    std::uint32_t flags = 0;
    bool queryFails = false;
    bool setFails = false;
    bool queryWritesNothing = false;
};

// Display n has target id n on one adapter; every call is recorded.
class FakeDisplayConfiguration final : public IDisplayConfiguration {
public:
    bool ListActiveTargets(std::vector<DisplayTarget>& targets) override
    {
        log += "list ";
        for (std::uint32_t id = 0; id < displays.size(); ++id) targets.push_back({0x1234, -2, id});
        return !readFails;
    }

    bool GetAdvancedColorFlags(const DisplayTarget& target, std::uint32_t& flags) override
    {
        const FakeDisplay& display = At(target);
        log += "query" + std::to_string(target.targetId) + " ";
        if (flags != 0) log += "(flags not zeroed) ";
        if (!display.queryWritesNothing) flags = display.flags;
        return !display.queryFails;
    }

    bool SetAdvancedColorState(const DisplayTarget& target, bool enable) override
    {
        FakeDisplay& display = At(target);
        log += "set" + std::to_string(target.targetId) + (enable ? "on " : "off ");
        if (display.setFails) return false;
        display.flags = enable ? display.flags | AdvancedColor::kEnabled : display.flags & ~AdvancedColor::kEnabled;
        return true;
    }

    FakeDisplay& At(const DisplayTarget& target)
    {
        EXPECT_EQ(target.adapterLow, 0x1234u);
        EXPECT_EQ(target.adapterHigh, -2);
        return displays.at(target.targetId);
    }

    bool readFails = false;
    std::vector<FakeDisplay> displays;
    std::string log;
};

class DisplayHdr : public ::testing::Test {
protected:
    std::string Run(const std::wstring& function, const std::wstring& value = L"")
    {
        std::wstring result = L"untouched";
        display.log.clear();
        HandleDisplayHdrCommand(display, function, value, result);
        return std::string(result.begin(), result.end());
    }

    FakeDisplayConfiguration display;
};

TEST_F(DisplayHdr, FailuresToReadTheConfigurationGiveMinusOneForQueriesAndZeroForTheSetter)
{
    display.readFails = true;
    display.displays = {{kOff}};
    EXPECT_EQ(Run(L"IsHDRSupported"), "-1");
    EXPECT_EQ(Run(L"GetHDROnOff"), "-1");
    EXPECT_EQ(Run(L"SetHDROnOff", L"1"), "0");
    EXPECT_EQ(display.log, "list ");
}

TEST_F(DisplayHdr, TheLastQualifyingDisplayIsReadAndEveryOneIsSwitched)
{
    display.displays = {{kOn}, {kEnforced}, {kOff}, {0}};
    EXPECT_EQ(Run(L"IsHDRSupported"), "1");
    EXPECT_EQ(display.log, "list query0 "); // stops at the first qualifying display
    EXPECT_EQ(Run(L"GetHDROnOff"), "0");
    EXPECT_EQ(Run(L"SetHDROnOff", L"1"), "1");
    EXPECT_EQ(display.log, "list query0 query1 query2 set2on query3 ");
    EXPECT_EQ(Run(L"SetHDROnOff", L"0"), "1");
    EXPECT_EQ(display.log, "list query0 set0off query1 query2 set2off query3 ");
    EXPECT_EQ(display.displays[1].flags, kEnforced);
}

TEST_F(DisplayHdr, DisplaysWithoutSupportOrWithWideColourEnforcedAreNeverReportedNorSwitched)
{
    display.displays = {{kEnforced}, {AdvancedColor::kEnabled}, {kEnforced | AdvancedColor::kEnabled}};
    EXPECT_EQ(Run(L"IsHDRSupported"), "0");
    EXPECT_EQ(Run(L"GetHDROnOff"), "-1");
    EXPECT_EQ(Run(L"SetHDROnOff", L"0"), "0");
    EXPECT_EQ(display.log, "list query0 query1 query2 ");
}

TEST_F(DisplayHdr, AFailedQueryStopsEveryWalk)
{
    display.displays = {{kOff}, {kOn, true}, {kOff}};
    EXPECT_EQ(Run(L"IsHDRSupported"), "1");
    EXPECT_EQ(Run(L"GetHDROnOff"), "-1"); // what the first display said is dropped
    EXPECT_EQ(Run(L"SetHDROnOff", L"2"), "1");
    EXPECT_EQ(display.log, "list query0 set0on query1 ");

    display.displays = {{0}, {kOn, true}, {kOff}};
    EXPECT_EQ(Run(L"IsHDRSupported"), "-1");
    EXPECT_EQ(Run(L"SetHDROnOff", L"1"), "0");
    EXPECT_EQ(display.log, "list query0 query1 ");

    // Each query starts from a zeroed word: one that writes none reads as no support.
    display.displays = {{kOn}, {kOff, false, false, true}};
    EXPECT_EQ(Run(L"GetHDROnOff"), "1");
    EXPECT_EQ(display.log, "list query0 query1 ");
}

TEST_F(DisplayHdr, ARefusedSwitchStopsTheWalkAndKeepsWhatWasDone)
{
    display.displays = {{kOff}, {kOff, false, true}, {kOff}};
    EXPECT_EQ(Run(L"SetHDROnOff", L"1"), "1");
    EXPECT_EQ(display.log, "list query0 set0on query1 set1on ");
    EXPECT_EQ(display.displays[0].flags, kOn);

    display.displays = {{kOff, false, true}, {kOff}};
    EXPECT_EQ(Run(L"SetHDROnOff", L"1"), "0");
    EXPECT_EQ(display.log, "list query0 set0on ");
}

TEST_F(DisplayHdr, TheValueIsParsedBeforeAnyDisplayIsTouched)
{
    display.displays = {{kOff}};
    EXPECT_THROW(Run(L"SetHDROnOff", L"x"), std::invalid_argument);
    EXPECT_EQ(display.log, "");
    EXPECT_THROW(Run(L"SetHDROnOff", L"99999999999"), std::out_of_range);
    EXPECT_EQ(display.log, "");
    EXPECT_EQ(Run(L"SetHDROnOff", L" 0x1"), "1"); // 0: off, and it is off already
    EXPECT_EQ(display.log, "list query0 ");
}

} // namespace
