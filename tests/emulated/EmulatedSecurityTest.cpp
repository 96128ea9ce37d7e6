// The security library over the emulated PC: its processes, a call a server
// thread serves, and logging from many threads at once.
#include "EmulatedTestSupport.h"
#include "platform/emulated/EmulatedRpcCall.h"
#include "security/KestrelSecurity.h"
#include "support/CapturedLog.h"
#include "support/TempDirectory.h"

#include <atomic>
#include <thread>

using namespace Tessel::Bridge;
using Platform::Emulated::ServedCall;

namespace {

class EmulatedSecurity : public ::testing::Test {
protected:
    KestrelTest::TempDirectory directory;
    KestrelTest::ScopedEnvironment pc{"KESTREL_EMULATED_PC", (directory / "pc.json").string()};
    KestrelTest::CapturedLog log;
    const std::shared_ptr<Logging::MemorySink>& sink = log.sink;
};

} // namespace

// Server threads serve calls from different clients at once through one helper
// (its known-process map unchanged meanwhile): each sees only its own caller.
TEST_F(EmulatedSecurity, ConcurrentCallsEachIdentifyTheirOwnCaller)
{
    constexpr int kCalls = 60;
    const std::vector<std::pair<std::uint32_t, std::wstring>> clients{
        {5120, L"7C3E9B10.Umbrano_r7w2k9d4m1q8z"}, {6144, L""}, {99, L""}, {4, L""}};
    Security::RpcSecurityHelper helper;
    helper.KnownProcesses() = {{4, Platform::Emulated::HeldProcessHandle(4)}};
    Server::Services::UtilHelper util;
    std::atomic<int> wrong{0};
    {
        std::vector<std::jthread> threads;
        for (int t = 0; t < 8; ++t) {
            threads.emplace_back([&, t] {
                const auto& [processId, family] = clients[static_cast<std::size_t>(t) % clients.size()];
                const std::wstring path = processId == 5120 ? L"C:\\Users\\kestrel\\AppData\\Local\\x" : L"";
                for (int i = 0; i < kCalls; ++i) {
                    const ServedCall call(processId);
                    if (helper.GetPFNOfCaller() != family) ++wrong;
                    if (processId == 5120 && util.GetFullExpandedPath(L"%LOCALAPPDATA%\\x", 1) != path) ++wrong;
                }
            });
        }
    }
    EXPECT_EQ(wrong, 0);
    // One error line per call of the six threads whose caller is not packaged.
    std::size_t errors = 0;
    for (const auto& record : sink->Records()) errors += record.level == Logging::LogLevel::Error ? 1 : 0;
    EXPECT_EQ(errors, 6u * kCalls);
}

TEST_F(EmulatedSecurity, ManyThreadsLogEveryRecordWholeToOneFile)
{
    const std::filesystem::path file = directory / "log.txt";
    Logging::TraceLogger logger(Logging::CreateFileSink(file.string()));
    constexpr int kThreads = 8;
    constexpr int kRecords = 500;
    {
        std::vector<std::jthread> threads;
        for (int t = 0; t < kThreads; ++t) {
            threads.emplace_back([&logger, t] {
                for (int i = 0; i < kRecords; ++i) logger.LogWarning(static_cast<Logging::LoggingContext>(t), L"thread %d record %d %s", t, i, std::wstring(100, L'x').c_str());
            });
        }
    }
    std::istringstream lines(KestrelTest::ReadFileBytes(file));
    int count = 0;
    for (std::string line; std::getline(lines, line); ++count) {
        ASSERT_NE(line.find(" WARNING 0x"), std::string::npos) << line;
        ASSERT_EQ(line.substr(line.size() - 100), std::string(100, 'x')) << line;
    }
    EXPECT_EQ(count, kThreads * kRecords);
    EXPECT_EQ(logger.DroppedRecords(), 0u);
}

// A state file the platform cannot read: every operation still answers (empty
// or false) and logs the line of the step that failed; nothing is thrown.
TEST_F(EmulatedSecurity, AMalformedPcFailsEachStepWithItsOwnLine)
{
    using Texts = std::vector<std::wstring>;
    const std::wstring failed = L"W class Tessel::Bridge::Server::Services::UtilHelper.GetFullExpandedPath failed on function ";
    const std::wstring pfn = L"E RpcSecurityHelper::GetPFNOfCaller - ";
    struct Row {
        const char* state;
        Texts outsideACall, insideACall; // GetFullExpandedPath; GetPFNOfCaller then GetFullExpandedPath in a call from 5120
    };
    const Row rows[] = {
        {"{\"environment\": ",
         {failed + L"ExpandEnvironmentStrings with result 1359", failed + L"GetFullPathName with result 1359"},
         {pfn + L"OpenProcess yielded null or invalid handle, Status: 5",
          failed + L"process_handle is NULL or INVALID_HANDLE_VALUE with result 1359", failed + L"GetFullPathName with result 1359"}},
        {R"({"environment": 5})",
         {failed + L"ExpandEnvironmentStrings with result 1359", failed + L"GetFullPathName with result 1359"},
         {failed + L"ExpandEnvironmentStringsForUser with result 1359", failed + L"GetFullPathName with result 1359"}},
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
