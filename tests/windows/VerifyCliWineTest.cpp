// KestrelVerify.exe over WinTrust beyond the table every build shares
// (cli/VerifyCliTest.cpp). Wine's WinTrust gives no countersigners, so the
// timestamp of a signature is checked on the host only.
#include "support/ProcessRunner.h"
#include "support/TrustMaterial.h"

#include <gtest/gtest.h>

using namespace KestrelTest;

// Windows trusts only its own stores.
TEST(VerifyCliWine, WindowsTrustsOnlyItsOwnStores)
{
    const std::string signedFile = (TrustMaterial() / "signed.exe").string();
    for (const char* option : {"--roots", "--catalogs"}) {
        const ProcessResult result = RunProcess(BuiltProgram("KestrelVerify"), {option, "x", signedFile});
        EXPECT_EQ(result.exitStatus, 2) << option;
        EXPECT_EQ(result.out, "") << option;
        EXPECT_NE(result.err.find("system's trusted roots"), std::string::npos) << result.err;
    }
}
