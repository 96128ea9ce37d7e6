#include "platform/CallerIdentity.h"
#include "security/KestrelSecurity.h"
#include "support/CapturedLog.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <map>

using namespace Tessel::Bridge;
using Platform::NativeHandle;

namespace {

NativeHandle Handle(std::uintptr_t value)
{
    return reinterpret_cast<NativeHandle>(value);
}

// A scripted platform that records the calls that matter for their order.
struct FakeCaller : Platform::ICallerPlatform {
    std::int32_t callStatus = 0;
    std::uint32_t clientId = 42;
    NativeHandle opened = Handle(0x10);
    NativeHandle duplicate = Handle(0x20);
    std::int32_t impersonation = 0;
    std::int32_t lengthStatus = 122;
    std::int32_t nameStatus = 0;
    std::wstring family = L"7C3E9B10.Umbrano_r7w2k9d4m1q8z";
    NativeHandle token = Handle(0x30);
    std::wstring expansion = L"C:\\Users\\client\\x";
    std::uint32_t error = 0;
    std::vector<std::string> calls;

    std::int32_t QueryCallClientProcessId(std::uint32_t& id) override
    {
        if (callStatus == 0) id = clientId;
        return callStatus;
    }
    NativeHandle OpenProcessById(std::uint32_t access, std::uint32_t id) override
    {
        calls.push_back("open " + std::to_string(id) + " " + std::to_string(access));
        return opened;
    }
    NativeHandle DuplicateIntoThisProcess(NativeHandle source, std::uint32_t) override
    {
        calls.push_back("duplicate " + std::to_string(reinterpret_cast<std::uintptr_t>(source)));
        return duplicate;
    }
    void CloseNativeHandle(NativeHandle handle) override
    {
        calls.push_back("close " + std::to_string(reinterpret_cast<std::uintptr_t>(handle)));
    }
    std::int32_t ImpersonateCaller() override
    {
        calls.push_back("impersonate");
        return impersonation;
    }
    std::int32_t RevertImpersonation() override
    {
        calls.push_back("revert");
        return 0;
    }
    std::int32_t PackageFamilyName(NativeHandle, std::uint32_t& length, wchar_t* name) override
    {
        if (name == nullptr) {
            length = static_cast<std::uint32_t>(family.size() + 1);
            return lengthStatus;
        }
        if (nameStatus == 0) std::memcpy(name, family.c_str(), (family.size() + 1) * sizeof(wchar_t));
        return nameStatus;
    }
    NativeHandle OpenToken(NativeHandle, std::uint32_t access) override
    {
        calls.push_back("token " + std::to_string(access));
        return token;
    }
    bool ExpandForUser(NativeHandle, const wchar_t*, wchar_t* destination, std::uint32_t size) override
    {
        if (expansion.size() >= size) return false;
        std::wcscpy(destination, expansion.c_str());
        return true;
    }
    std::uint32_t ExpandInProcess(const wchar_t*, wchar_t*, std::uint32_t) override { return 0; }
    std::uint32_t FullPath(const wchar_t* path, std::uint32_t size, wchar_t* buffer) override
    {
        const std::wstring text = path;
        if (text.size() >= size) return static_cast<std::uint32_t>(text.size() + 1);
        std::wcscpy(buffer, text.c_str());
        return static_cast<std::uint32_t>(text.size());
    }
    std::uint32_t LastError() override { return error; }
};

class CallerTest : public ::testing::Test {
protected:
    std::vector<std::wstring> Lines() const { return log.Lines(); }
    std::wstring Pfn()
    {
        Security::RpcSecurityHelper helper(caller);
        helper.KnownProcesses() = known;
        return helper.GetPFNOfCaller();
    }

    KestrelTest::CapturedLog log;
    const std::shared_ptr<Logging::MemorySink>& sink = log.sink;
    std::shared_ptr<FakeCaller> caller = std::make_shared<FakeCaller>();
    std::map<std::uint32_t, void*> known;
};

using Texts = std::vector<std::wstring>;

} // namespace

TEST_F(CallerTest, EachFailureLogsOneErrorAndGivesAnEmptyName)
{
    const struct {
        void (*setUp)(FakeCaller&);
        const wchar_t* line;
        bool reverts;
    } rows[] = {
        {[](FakeCaller& c) { c.callStatus = 1725; }, L"E RpcSecurityHelper::GetPFNOfCaller - RpcServerInqCallAttributes failed, Status: 1725", false},
        {[](FakeCaller& c) { c.opened = Handle(static_cast<std::uintptr_t>(-1)); }, L"E RpcSecurityHelper::GetPFNOfCaller - OpenProcess yielded null or invalid handle, Status: 5", false},
        {[](FakeCaller& c) { c.impersonation = 1710; }, L"E RpcSecurityHelper::GetPFNOfCaller - Failed to impersonate client, Status: 1710", false},
        {[](FakeCaller& c) { c.lengthStatus = 15700; }, L"E RpcSecurityHelper::GetPFNOfCaller - GetPackageFamilyName failed, Status: 15700", true},
        {[](FakeCaller& c) { c.nameStatus = 87; }, L"E RpcSecurityHelper::GetPFNOfCaller - Caught error 5", true},
    };
    for (const auto& row : rows) {
        caller = std::make_shared<FakeCaller>();
        sink->Clear();
        row.setUp(*caller);
        EXPECT_EQ(Pfn(), L"") << row.line;
        EXPECT_EQ(Lines(), Texts{row.line});
        EXPECT_EQ(std::count(caller->calls.begin(), caller->calls.end(), "revert"), row.reverts ? 1 : 0) << row.line;
    }
}

TEST_F(CallerTest, ThePackagedCallersFamilyNameFromItsOwnHandleOrAKnownOne)
{
    EXPECT_EQ(Pfn(), L"7C3E9B10.Umbrano_r7w2k9d4m1q8z"); // without its terminator
    EXPECT_EQ(caller->calls, (std::vector<std::string>{"open 42 4096", "impersonate", "close 16", "revert"}));
    EXPECT_EQ(Lines(), Texts{});

    caller = std::make_shared<FakeCaller>();
    caller->opened = nullptr;
    known = {{7, Handle(0x70)}, {42, Handle(0x420)}};
    EXPECT_EQ(Pfn(), L"7C3E9B10.Umbrano_r7w2k9d4m1q8z");
    EXPECT_EQ(caller->calls, (std::vector<std::string>{"open 42 4096", "duplicate 1056", "impersonate", "close 32", "revert"}));
}

TEST_F(CallerTest, NullCheckerWarnsForEveryNullWithTheClassName)
{
    Server::Services::UtilHelper helper(caller);
    const int value = 0;
    EXPECT_TRUE(helper.NullChecker({{nullptr, "first"}, {&value, "second"}, {nullptr, "third"}}, 9));
    EXPECT_FALSE(helper.NullChecker({{&value, "only"}}, 9));
    EXPECT_EQ(Lines(), (Texts{L"W class Tessel::Bridge::Server::Services::UtilHelper.NullChecker - first cannot be null",
                              L"W class Tessel::Bridge::Server::Services::UtilHelper.NullChecker - third cannot be null"}));
    EXPECT_EQ(sink->Records().at(0).context, 9u);
}

TEST_F(CallerTest, FullExpandedPathInsideACallUsesTheClientsEnvironment)
{
    Server::Services::UtilHelper helper(caller);
    EXPECT_EQ(helper.GetFullExpandedPath(L"%USERPROFILE%\\x", 3), L"C:\\Users\\client\\x");
    EXPECT_EQ(caller->calls, (std::vector<std::string>{"open 42 2097151", "token 983551", "close 48", "close 16"}));
    EXPECT_EQ(Lines(), (Texts{L"I GetFullPathName: [C:\\Users\\client\\x]"}));

    sink->Clear();
    caller->opened = nullptr;
    caller->error = 5;
    EXPECT_EQ(helper.GetFullExpandedPath(L"x", 3), L"");
    const std::wstring prefix = L"W class Tessel::Bridge::Server::Services::UtilHelper.GetFullExpandedPath failed on function ";
    EXPECT_EQ(Lines().at(0), prefix + L"process_handle is NULL or INVALID_HANDLE_VALUE with result 5");
    EXPECT_EQ(Lines().size(), 2u);
}
