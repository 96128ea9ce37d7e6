// The security library over the real Windows calls. Only the call-attributes
// query is stood in for: Wine 8's RpcServerInqCallAttributesW ends the process.
#include "security/rpc/RpcSecurityHelper.h"
#include "security/util/UtilHelper.h"
#include "support/CapturedLog.h"
#include "windows/StandInCall.h"

#include <gtest/gtest.h>

#include <windows.h>
#include <rpc.h>


using namespace Tessel::Bridge;
using Texts = std::vector<std::wstring>;

namespace {

using KestrelTest::StandInCall;

// Impersonation needs a real call as well.
class StandInImpersonation : public StandInCall {
public:
    std::int32_t ImpersonateCaller() override { return RPC_S_OK; }
    std::int32_t RevertImpersonation() override { return RPC_S_OK; }
};

class SecurityWine : public ::testing::Test {
protected:
    template <typename Platform>
    std::wstring Pfn(std::uint32_t client, const std::map<std::uint32_t, void*>& known = {})
    {
        auto platform = std::make_shared<Platform>();
        platform->client = client;
        Security::RpcSecurityHelper helper(platform);
        helper.KnownProcesses() = known;
        return helper.GetPFNOfCaller();
    }

    KestrelTest::CapturedLog log;
    const std::wstring prefix = L"E RpcSecurityHelper::GetPFNOfCaller - ";
};

// Each failing step of the real calls logs its own status: impersonation
// outside a real call, a process that cannot be opened, and an unpackaged one.
TEST_F(SecurityWine, EachFailingStepOfTheCallersFamilyNameLogsItsStatus)
{
    const RPC_STATUS outsideACall = RpcImpersonateClient(nullptr);
    ASSERT_NE(outsideACall, RPC_S_OK);
    EXPECT_EQ(Pfn<StandInCall>(GetCurrentProcessId()), L"");
    EXPECT_EQ(Pfn<StandInImpersonation>(0), L"");
    EXPECT_EQ(Pfn<StandInImpersonation>(0, {{0, GetCurrentProcess()}}), L"");
    EXPECT_EQ(log.Lines(), (Texts{prefix + L"Failed to impersonate client, Status: " + std::to_wstring(outsideACall),
                                  prefix + L"OpenProcess yielded null or invalid handle, Status: 5",
                                  prefix + L"GetPackageFamilyName failed, Status: 15700"}));
}

TEST_F(SecurityWine, PathsAreExpandedInThisProcessOutsideACallAndInTheClientsInsideOne)
{
    ASSERT_TRUE(SetEnvironmentVariableW(L"KESTREL_DATA", L"C:\\data"));
    const auto platform = std::make_shared<StandInCall>();
    Server::Services::UtilHelper util(platform);
    EXPECT_EQ(util.GetFullExpandedPath(L"%KESTREL_DATA%\\in\\..\\file.txt", 3), L"C:\\data\\file.txt");
    // 259 characters expanded fit the 260 of the buffer; 260 do not.
    const std::wstring longest = L"%KESTREL_DATA%\\" + std::wstring(251, L'n');
    EXPECT_EQ(util.GetFullExpandedPath(longest.c_str(), 3).size(), 259u);
    log.sink->Clear();
    EXPECT_EQ(util.GetFullExpandedPath((longest + L"n").c_str(), 3), L"");
    const std::wstring warning = L"W class Tessel::Bridge::Server::Services::UtilHelper.";
    EXPECT_EQ(log.Lines(), (Texts{warning + L"GetFullExpandedPath failed on function ExpandEnvironmentStrings with result 122",
                                  // An empty path leaves the last error as it was.
                                  warning + L"GetFullExpandedPath failed on function GetFullPathName with result 122"}));
    SetEnvironmentVariableW(L"KESTREL_DATA", nullptr);

    // Wine expands for any user token in the process's environment.
    std::wstring root(MAX_PATH, L'\0');
    root.resize(GetEnvironmentVariableW(L"SystemRoot", root.data(), MAX_PATH));
    platform->client = GetCurrentProcessId();
    EXPECT_EQ(util.GetFullExpandedPath(L"%SystemRoot%\\system32\\..\\notepad.exe", 4), root + L"\\notepad.exe");
}

} // namespace
