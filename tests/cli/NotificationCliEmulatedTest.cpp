// Host only: the Notification category on emulated PCs, whose service
// transitions take virtual time.
#include "EmulatedPcCli.h"

#include "FrontEnd.h"

#include <gmock/gmock.h>

#include <chrono>

using namespace KestrelTest;
using Json = nlohmann::json;
using Tessel::Bridge::Server::Services::Kestrel::kAbnormalEndStatus;

namespace {

constexpr const char* kKey = "Software\\Microsoft\\Windows\\CurrentVersion\\PushNotifications";

class NotificationCli : public EmulatedPcCli {
protected:
    Json Service() { return SavedState()["services"]["list"][0]; }
    Json Toast() { return SavedState()["registry"]["currentUser"][kKey]["ToastEnabled"]; }
};

} // namespace

TEST_F(NotificationCli, AFreshPcSwitchesToastsAndRestartsItsService)
{
    ExpectResults({{{"Notification", "GetToastOnOff"}, "1"}, {{"Notification", "gettoastonoff"}, ""}});
    EXPECT_FALSE(std::filesystem::exists(stateFile));
    const ProcessResult aborted = Run({"Notification", "SetToastOnOff", "abc"});
    EXPECT_EQ(aborted.out + aborted.err, "KestrelTool: invalid stoi argument\n");
    EXPECT_EQ(aborted.exitStatus, kAbnormalEndStatus);
    EXPECT_FALSE(std::filesystem::exists(stateFile));

    ExpectResults({{{"Notification", "SetToastOnOff", "0"}, "1"}, {{"Notification", "GetToastOnOff"}, "0"}});
    EXPECT_EQ(Service()["state"], "running");
    EXPECT_EQ(Service()["starts"], 1);
    EXPECT_EQ(SavedState()["services"]["clockSeconds"], 2.0); // half a second each way, polled a second apart
    ExpectResults({{{"Notification", "SetToastOnOff", "-3"}, "1"}, {{"Notification", "GetToastOnOff"}, "1"}});
    EXPECT_EQ(Toast(), (Json{{"type", "REG_DWORD"}, {"data", 1}}));
}

TEST_F(NotificationCli, WithoutTheKeyNothingIsReadOrCreated)
{
    UseState({{"registry", {{"currentUser", {{kKey, nullptr}}}}}});
    ExpectResults({{{"Notification", "GetToastOnOff"}, "-1"}, {{"Notification", "SetToastOnOff", "1"}, "0"}});
    EXPECT_EQ(SavedState(), (Json{{"registry", {{"currentUser", {{kKey, nullptr}}}}}}));
}

TEST_F(NotificationCli, OtherValueTypesReadAsMinusOneAndASetReplacesThem)
{
    for (const Json& value : {Json{{"type", "REG_SZ"}, {"data", "1"}}, Json{{"type", "REG_QWORD"}, {"data", 1}},
                              Json{{"type", "REG_BINARY"}, {"data", "01000000"}}}) {
        UseState({{"registry", {{"currentUser", {{kKey, {{"ToastEnabled", value}}}}}}}});
        ExpectResults({{{"Notification", "GetToastOnOff"}, "-1"}});
    }
    ExpectResults({{{"Notification", "SetToastOnOff", "1"}, "1"}, {{"Notification", "GetToastOnOff"}, "1"}});
}

TEST_F(NotificationCli, AServiceThatNeverRunsAgainGivesUpInVirtualTime)
{
    UseState({{"services", {{"list", {{{"name", "WpnUserService_1"}, {"state", "running"}, {"startSeconds", nullptr}}}}}}});
    const auto start = std::chrono::steady_clock::now();
    ExpectResults({{{"Notification", "SetToastOnOff", "0"}, "0"}});
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
    EXPECT_EQ(Toast()["data"], 0); // the switch stays written
    EXPECT_EQ(Service()["state"], "startPending");
    EXPECT_EQ(SavedState()["services"]["clockSeconds"], 31.0); // one poll for the stop, thirty for the start
}

TEST_F(NotificationCli, AStoppedServiceIsOnlyStartedAndRefusalsFail)
{
    UseState({{"services", {{"list", {{{"name", "Other"}, {"displayName", "WpnUserService"}, {"state", "running"}},
                                      {{"name", "WpnUserService_2"}, {"startSeconds", 0}}}}}}});
    ExpectResults({{{"Notification", "SetToastOnOff", "1"}, "1"}});
    EXPECT_EQ(SavedState()["services"]["list"][0]["starts"], 0);
    EXPECT_EQ(SavedState()["services"]["list"][1]["state"], "running");
    EXPECT_EQ(SavedState()["services"]["clockSeconds"], 0);

    for (const char* refusal : {"stopRefused", "startRefused"}) {
        UseState({{"services", {{"list", {{{"name", "WpnUserService_3"}, {"state", "running"}, {refusal, true}}}}}}});
        ExpectResults({{{"Notification", "SetToastOnOff", "1"}, "0"}});
    }
}

TEST_F(NotificationCli, MalformedRegistryAndServiceAreasAreReportedAndLeftAsTheyAre)
{
    for (const Json& state : {Json{{"registry", {{"currentUser", {{kKey, {{"ToastEnabled", {{"type", "REG_DWORD"}, {"data", -1}}}}}}}}}},
                              Json{{"services", {{"list", {{{"name", "WpnUserService_4"}, {"state", "sleeping"}}}}}}}}) {
        UseState(state);
        const std::string before = ReadFileBytes(stateFile);
        const ProcessResult result = Run({"Notification", "SetToastOnOff", "1"});
        EXPECT_THAT(result.err, ::testing::HasSubstr("is malformed: /")) << state.dump();
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(result.exitStatus, kAbnormalEndStatus);
        EXPECT_EQ(ReadFileBytes(stateFile), before);
    }
}
