// KestrelVerify.exe over WinTrust, as a release pipeline runs it: the same
// lines as on the emulated PC. Wine trusts any root, so nothing here depends
// on whether the material's root is trusted.
#include "support/ProcessRunner.h"
#include "support/TrustMaterial.h"

#include <gtest/gtest.h>

using namespace KestrelTest;

TEST(VerifyCliWine, PrintsWinTrustsAnswersAndRefusesOtherTrust)
{
    const std::string signedFile = (TrustMaterial() / "signed.exe").string();
    const std::string unsignedFile = (TrustMaterial() / "unsigned.exe").string();
    const ProcessResult result = RunProcess(BuiltProgram("KestrelVerify"), {signedFile, unsignedFile});
    const std::string end(kLineEnd);
    const std::string head = signedFile + ": trusted by Windows" + end + "  embedded 0: 0x00000000 key=";
    const std::string tail = " subject=C=US, S=Washington, L=Redmond, O=Kestrel Test, OU=Release, CN=Kestrel Test leaf" + end +
                             unsignedFile + ": not trusted by Windows" + end + "  embedded 0: 0x800B0100" + end;
    ASSERT_EQ(result.out.size(), head.size() + 64 + tail.size()) << result.out;
    EXPECT_EQ(result.out.substr(0, head.size()), head);
    EXPECT_EQ(result.out.substr(head.size(), 64).find_first_not_of("0123456789abcdef"), std::string::npos) << result.out;
    EXPECT_EQ(result.out.substr(head.size() + 64), tail);
    EXPECT_EQ(result.exitStatus, 1);
    // Windows trusts only its own stores.
    EXPECT_EQ(RunProcess(BuiltProgram("KestrelVerify"), {"--roots", "root.crt", signedFile}).exitStatus, 2);
}
