// What a process run cannot show: which displays are asked and switched, in
// which order, and where a walk stops.
#include "DisplayHdrCommand.h"

#include <gtest/gtest.h>

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

// Display n has target id n; every call is recorded.
class FakeDisplayConfiguration final : public IDisplayConfiguration {
public:
    bool ListActiveTargets(std::vector<DisplayTarget>& targets) override
    {
        log += "list ";
        for (std::uint32_t id = 0; id < displays.size(); ++id) targets.push_back({0, 0, id});
        return !readFails;
    }
    bool GetAdvancedColorFlags(const DisplayTarget& target, std::uint32_t& flags) override
    {
        const FakeDisplay& display = displays.at(target.targetId);
        log += "query" + std::to_string(target.targetId) + " ";
        if (!display.queryWritesNothing) flags = display.flags;
        return !display.queryFails;
    }
    bool SetAdvancedColorState(const DisplayTarget& target, bool enable) override
    {
        log += "set" + std::to_string(target.targetId) + (enable ? "on " : "off ");
        return !displays.at(target.targetId).setFails;
    }

    bool readFails = false;
    std::vector<FakeDisplay> displays;
    std::string log;
};

} // namespace

TEST(DisplayHdr, TheLastQualifyingDisplayIsReadEveryOneSwitchedAndAFailureStopsTheWalk)
{
    const std::vector<FakeDisplay> mixed = {{kOn}, {kEnforced}, {kOff}, {0}};
    const struct {
        std::vector<FakeDisplay> displays;
        const wchar_t* function;
        const wchar_t* value;
        const char* result;
        const char* log;
        bool readFails = false;
    } rows[] = {
        {{{kOff}}, L"IsHDRSupported", L"", "-1", "list ", true},
        {{{kOff}}, L"GetHDROnOff", L"", "-1", "list ", true},
        {{{kOff}}, L"SetHDROnOff", L"1", "0", "list ", true},
        {mixed, L"IsHDRSupported", L"", "1", "list query0 "},
        {mixed, L"SetHDROnOff", L"1", "1", "list query0 query1 query2 set2on query3 "},
        {mixed, L"SetHDROnOff", L"0", "1", "list query0 set0off query1 query2 query3 "},
        {{{kEnforced}, {AdvancedColor::kEnabled}}, L"GetHDROnOff", L"", "-1", "list query0 query1 "},
        // A failed query drops what earlier displays said, and ends a switch walk.
        {{{kOff}, {kOn, true}, {kOff}}, L"GetHDROnOff", L"", "-1", "list query0 query1 "},
        {{{kOff}, {kOn, true}, {kOff}}, L"SetHDROnOff", L"2", "1", "list query0 set0on query1 "},
        // Each query starts from a zeroed word: one that writes none reads as no support.
        {{{kOn}, {kOff, false, false, true}}, L"GetHDROnOff", L"", "1", "list query0 query1 "},
        // A refused switch stops the walk; what was done counts.
        {{{kOff, false, true}, {kOff}}, L"SetHDROnOff", L"1", "0", "list query0 set0on "},
    };
    for (const auto& row : rows) {
        FakeDisplayConfiguration display;
        display.displays = row.displays;
        display.readFails = row.readFails;
        std::wstring result = L"untouched";
        HandleDisplayHdrCommand(display, row.function, row.value, result);
        EXPECT_EQ(std::string(result.begin(), result.end()), row.result) << row.log;
        EXPECT_EQ(display.log, row.log);
    }
}
