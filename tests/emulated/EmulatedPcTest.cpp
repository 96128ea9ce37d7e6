#include "EmulatedTestSupport.h"
#include "support/TempDirectory.h"

#include "platform/MouseSettings.h"
#include "platform/emulated/EmulatedPc.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>
#include <vector>

using Tessel::Bridge::Platform::CreateMouseSettings;
using Tessel::Bridge::Platform::Emulated::EmulatedPc;
using Tessel::Bridge::Platform::Emulated::EmulatedPcError;
using Tessel::Bridge::Platform::Emulated::State;
using namespace KestrelTest;
using ::testing::HasSubstr;

namespace {

class EmulatedPcTest : public ::testing::Test {
protected:
    TempDirectory directory;
    std::filesystem::path stateFile = directory / "pc.json";
    EmulatedPc pc{stateFile};
};

} // namespace

TEST_F(EmulatedPcTest, AMalformedFileIsAnErrorNamingTheFile)
{
    const std::string files[] = {
        "{\"mouse\": ",                                    // cut short
        "",                                                // empty
        "[1, 2]",                                          // not an object
        R"({"mouse": {"speed": "fast"}})",                 // wrong type
        R"({"mouse": {"speed": 3000000000}})",             // beyond 32 bits
        R"({"mouse": {"speed": 5, "buttonsSwapped": 1}})", // not a boolean
        R"({"mouse": 5})",                                 // area is not an object
        R"({"version": 2})",                               // a later format
        R"({"other": 1e999})",                             // a number no JSON type holds
        "{\"other\": " + std::string(100000, '[') + std::string(100000, ']') + "}", // too deep for the stack
    };
    for (const std::string& bytes : files) {
        WriteFileBytes(stateFile, bytes);
        SCOPED_TRACE(bytes);
        const std::string message = [&] {
            try {
                const State state = pc.Read();
                pc.IntegerAt(state, "/mouse/speed");
                pc.BooleanAt(state, "/mouse/buttonsSwapped");
            } catch (const EmulatedPcError& e) {
                return std::string(e.what());
            }
            return std::string("no error");
        }();
        EXPECT_THAT(message, HasSubstr("'" + stateFile.string() + "' is malformed"));
        const ScopedEnvironment named("KESTREL_EMULATED_PC", stateFile.string());
        EXPECT_THROW(CreateMouseSettings()->SetSwapState(true), EmulatedPcError);
        EXPECT_EQ(ReadFileBytes(stateFile), bytes); // a change never overwrites it
    }
}

TEST_F(EmulatedPcTest, IntegersTakeTheWhole32BitRange)
{
    for (const long long edge : {2147483647LL, -2147483648LL}) {
        WriteFileBytes(stateFile, R"({"mouse": {"speed": )" + std::to_string(edge) + "}}");
        EXPECT_EQ(pc.IntegerAt(pc.Read(), "/mouse/speed"), edge);
    }
}

TEST_F(EmulatedPcTest, ConcurrentUpdatesLoseNothing)
{
    // Each update reads, changes and writes; without the lock, increments
    // made at the same time would overwrite each other.
    constexpr int kThreads = 8;
    constexpr int kIncrements = 25;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([this] {
            const EmulatedPc own(stateFile);
            for (int i = 0; i < kIncrements; ++i) {
                own.Update([](State& state) {
                    const int count = state.contains("counter") ? state["counter"].get<int>() : 0;
                    state["counter"] = count + 1;
                });
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(pc.Read()["counter"], kThreads * kIncrements);
    EXPECT_EQ(FileNamesIn(directory.Path()), (std::vector<std::string>{"pc.json", "pc.json.lock"}));
}
