#pragma once

#include "emulated/EmulatedTestSupport.h"
#include "support/ProcessRunner.h"
#include "support/TempDirectory.h"

#include <nlohmann/json.hpp>

#include <gtest/gtest.h>

namespace KestrelTest {

// Runs of the host's KestrelTool on an emulated PC of the test's own.
class EmulatedPcCli : public ::testing::Test {
protected:
    using Runs = std::vector<std::pair<std::vector<std::string>, std::string>>;

    ProcessResult Run(const std::vector<std::string>& words) const
    {
        return RunProcess(BuiltProgram("KestrelTool"), words, {{"KESTREL_EMULATED_PC", stateFile.string()}});
    }

    std::string Output(const std::vector<std::string>& words) const
    {
        const ProcessResult result = Run(words);
        EXPECT_EQ(result.exitStatus, 0) << ::testing::PrintToString(words) << result.err;
        return result.out;
    }

    // Each run's single line, in order; the PC carries over from run to run.
    void ExpectResults(const Runs& runs)
    {
        for (const auto& [words, line] : runs) EXPECT_EQ(Output(words), line + "\n") << ::testing::PrintToString(words);
    }

    void UseState(const nlohmann::json& state) { WriteFileBytes(stateFile, state.dump()); }
    nlohmann::json SavedState() const { return nlohmann::json::parse(ReadFileBytes(stateFile)); }

    TempDirectory directory;
    std::filesystem::path stateFile = directory / "pc.json";
};

} // namespace KestrelTest
