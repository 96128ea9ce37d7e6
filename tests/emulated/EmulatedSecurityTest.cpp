// The security library over the emulated PC: its processes, a call a server
// thread serves, and logging from many threads at once.
#include "EmulatedTestSupport.h"
#include "platform/emulated/EmulatedRpcCall.h"
#include "security/KestrelSecurity.h"
#include "support/CapturedLog.h"
#include "support/TempDirectory.h"

#include <thread>

using namespace Tessel::Bridge;
using Platform::NativeHandle;
using Platform::Emulated::ServedCall;
using Texts = std::vector<std::wstring>;
using Calls = std::vector<std::string>;

namespace {

// The PC's own caller platform, recording the calls whose rights and order
// matter; `nameFails` makes the second package-name call fail.
struct RecordedCaller : Platform::ICallerPlatform {
    std::shared_ptr<Platform::ICallerPlatform> pc = Platform::CreateCallerPlatform();
    Calls calls;
    bool nameFails = false;
    bool expandFails = false; // after writing part of the text, as a too-small buffer can

    std::int32_t QueryCallClientProcessId(std::uint32_t& id) override { return pc->QueryCallClientProcessId(id); }
    NativeHandle OpenProcessById(std::uint32_t access, std::uint32_t id) override
    {
        calls.push_back("open " + std::to_string(access));
        return pc->OpenProcessById(access, id);
    }
    NativeHandle DuplicateIntoThisProcess(NativeHandle source, std::uint32_t access) override
    {
        calls.push_back("duplicate " + std::to_string(access));
        return pc->DuplicateIntoThisProcess(source, access);
    }
    void CloseNativeHandle(NativeHandle handle) override
    {
        calls.push_back("close");
        pc->CloseNativeHandle(handle);
    }
    std::int32_t ImpersonateCaller() override { return pc->ImpersonateCaller(); }
    std::int32_t RevertImpersonation() override
    {
        calls.push_back("revert");
        return pc->RevertImpersonation();
    }
    std::int32_t PackageFamilyName(NativeHandle process, std::uint32_t& length, wchar_t* name) override
    {
        return nameFails && name != nullptr ? 87 : pc->PackageFamilyName(process, length, name);
    }
    NativeHandle OpenToken(NativeHandle process, std::uint32_t access) override { return pc->OpenToken(process, access); }
    bool ExpandForUser(NativeHandle token, const wchar_t* from, wchar_t* to, std::uint32_t size) override
    {
        return pc->ExpandForUser(token, from, to, size) && !expandFails;
    }
    std::uint32_t ExpandInProcess(const wchar_t* from, wchar_t* to, std::uint32_t size) override { return pc->ExpandInProcess(from, to, size); }
    std::uint32_t FullPath(const wchar_t* path, std::uint32_t size, wchar_t* buffer) override { return pc->FullPath(path, size, buffer); }
    std::uint32_t LastError() override { return pc->LastError(); }
};

class EmulatedSecurity : public ::testing::Test {
protected:
    KestrelTest::TempDirectory directory;
    KestrelTest::ScopedEnvironment pc{"KESTREL_EMULATED_PC", (directory / "pc.json").string()};
    KestrelTest::CapturedLog log;
    const std::shared_ptr<Logging::MemorySink>& sink = log.sink;
};

const std::wstring kPfnError = L"E RpcSecurityHelper::GetPFNOfCaller - ";
const std::wstring kExpandFailed = L"W class Tessel::Bridge::Server::Services::UtilHelper.GetFullExpandedPath failed on function ";

} // namespace

// The built-in processes: 4 cannot be opened or impersonated (but is a known
// process), 99 does not exist, 6144 has no package. The process is opened
// with limited rights and closed; impersonation, once begun, is reverted.
TEST_F(EmulatedSecurity, TheCallersFamilyNameOrOneErrorLine)
{
    const Calls named = {"open 4096", "close", "revert"};
    const struct {
        std::optional<std::uint32_t> caller;
        bool nameFails;
        std::wstring result; // the name, or the one line logged
        Calls calls;
    } rows[] = {
        {std::nullopt, false, kPfnError + L"RpcServerInqCallAttributes failed, Status: 1725", {}},
        {99, false, kPfnError + L"OpenProcess yielded null or invalid handle, Status: 5", {"open 4096"}},
        {4, false, kPfnError + L"Failed to impersonate client, Status: 5", {"open 4096", "duplicate 4096", "close"}},
        {6144, false, kPfnError + L"GetPackageFamilyName failed, Status: 15700", named},
        {5120, true, kPfnError + L"Caught error 5", named},
        {5120, false, L"7C3E9B10.Umbrano_r7w2k9d4m1q8z", named}, // without its terminator
    };
    for (const auto& row : rows) {
        sink->Clear();
        const auto platform = std::make_shared<RecordedCaller>();
        platform->nameFails = row.nameFails;
        Security::RpcSecurityHelper helper(platform);
        helper.KnownProcesses() = {{4, Platform::Emulated::HeldProcessHandle(4)}};
        std::optional<ServedCall> call;
        if (row.caller) call.emplace(*row.caller);
        const std::wstring name = helper.GetPFNOfCaller();
        EXPECT_EQ(name.empty() ? log.Lines() : Texts{name}, Texts{row.result});
        EXPECT_TRUE(name.empty() || log.Lines().empty());
        EXPECT_EQ(platform->calls, row.calls) << row.result;
    }
}

TEST_F(EmulatedSecurity, PathsExpandInTheCallersEnvironmentInsideACallAndOursOutside)
{
    const auto platform = std::make_shared<RecordedCaller>();
    Server::Services::UtilHelper util(platform);
    EXPECT_EQ(util.GetFullExpandedPath(L"%windir%\\x", 3), L"C:\\Windows\\x");
    {
        const ServedCall call(5120);
        EXPECT_EQ(util.GetFullExpandedPath(L"%USERPROFILE%\\x", 3), L"C:\\Users\\kestrel\\x");
        EXPECT_EQ(platform->calls, (Calls{"open 2097151", "close", "close"}));
    }
    platform->expandFails = true;
    {
        const ServedCall call(5120);
        EXPECT_EQ(util.GetFullExpandedPath(L"%USERPROFILE%\\x", 3), L""); // no part of a failed expansion is used
    }
    sink->Clear();
    {
        const ServedCall call(99);
        EXPECT_EQ(util.GetFullExpandedPath(L"%USERPROFILE%\\x", 3), L"");
    }
    EXPECT_EQ(log.Lines(), (Texts{kExpandFailed + L"process_handle is NULL or INVALID_HANDLE_VALUE with result 87",
                                  kExpandFailed + L"GetFullPathName with result 87"}));
    sink->Clear();
    const int value = 0;
    EXPECT_TRUE(util.NullChecker({{nullptr, "first"}, {&value, "second"}, {nullptr, "third"}}, 9));
    EXPECT_FALSE(util.NullChecker({{&value, "only"}}, 9));
    EXPECT_EQ(log.Lines(), (Texts{L"W class Tessel::Bridge::Server::Services::UtilHelper.NullChecker - first cannot be null",
                                  L"W class Tessel::Bridge::Server::Services::UtilHelper.NullChecker - third cannot be null"}));
    EXPECT_EQ(sink->Records().at(0).context, 9u);
}

TEST_F(EmulatedSecurity, ManyThreadsLogEveryRecordWholeToOneFile)
{
    const std::filesystem::path file = directory / "log.txt";
    Logging::TraceLogger logger(Logging::CreateFileSink(file.string()));
    {
        std::vector<std::jthread> threads;
        for (int t = 0; t < 8; ++t) {
            threads.emplace_back([&logger, t] {
                for (int i = 0; i < 500; ++i) logger.LogWarning(static_cast<Logging::LoggingContext>(t), L"thread %d record %d %s", t, i, std::wstring(100, L'x').c_str());
            });
        }
    }
    std::istringstream lines(KestrelTest::ReadFileBytes(file));
    int count = 0;
    for (std::string line; std::getline(lines, line); ++count) {
        ASSERT_NE(line.find(" WARNING 0x"), std::string::npos) << line;
        ASSERT_EQ(line.substr(line.size() - 100), std::string(100, 'x')) << line;
    }
    EXPECT_EQ(count, 8 * 500);
    EXPECT_EQ(logger.DroppedRecords(), 0u);
}

// A state file the platform cannot read: every operation still answers (empty
// or false) and logs the line of the step that failed; nothing is thrown.
TEST_F(EmulatedSecurity, AMalformedPcFailsEachStepWithItsOwnLine)
{
    struct Row {
        const char* state;
        Texts outsideACall, insideACall; // GetFullExpandedPath; GetPFNOfCaller then GetFullExpandedPath in a call from 5120
    };
    const Row rows[] = {
        {"{\"environment\": ",
         {kExpandFailed + L"ExpandEnvironmentStrings with result 1359", kExpandFailed + L"GetFullPathName with result 1359"},
         {kPfnError + L"OpenProcess yielded null or invalid handle, Status: 5",
          kExpandFailed + L"process_handle is NULL or INVALID_HANDLE_VALUE with result 1359", kExpandFailed + L"GetFullPathName with result 1359"}},
        {R"({"environment": 5})",
         {kExpandFailed + L"ExpandEnvironmentStrings with result 1359", kExpandFailed + L"GetFullPathName with result 1359"},
         {kExpandFailed + L"ExpandEnvironmentStringsForUser with result 1359", kExpandFailed + L"GetFullPathName with result 1359"}},
    };
    for (const Row& row : rows) {
        KestrelTest::WriteFileBytes(directory / "pc.json", row.state);
        sink->Clear();
        EXPECT_EQ(Server::Services::UtilHelper().GetFullExpandedPath(L"%windir%\\x.exe", 0), L"");
        EXPECT_EQ(log.Lines(), row.outsideACall) << row.state;
        sink->Clear();
        {
            const ServedCall call(5120);
            const std::wstring name = Security::RpcSecurityHelper().GetPFNOfCaller();
            EXPECT_EQ(Server::Services::UtilHelper().GetFullExpandedPath(L"%windir%\\x.exe", 0), L"");
            EXPECT_EQ(log.Lines(), row.insideACall) << row.state;
            EXPECT_EQ(name.empty(), row.insideACall.size() == 3) << row.state;
        }
        Security::TesselAuthenticodeFacade facade;
        const wchar_t* file = L"C:\\Windows\\x.exe";
        EXPECT_FALSE(facade.IsFileTrustedByListA(file) || facade.IsFileTrustedByListB(file) || facade.IsDropboxFileTrusted(file) ||
                     facade.IsFileTrustedByWindows(file) || facade.AreSignedBySameKey(file, file) || facade.IsPathAllowed(file) ||
                     facade.IsHostProcessAllowed(L"7C3E9B10.Caretto_r7w2k9d4m1q8z", true, file, L""))
            << row.state;
    }
}
