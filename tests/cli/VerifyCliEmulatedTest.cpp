// KestrelVerify as a release pipeline runs it: on the signing material made
// for this run, exact output and exit status, and the same verdicts as
// osslsigncode.
#include "cli/EmulatedPcCli.h"
#include "support/CatalogBuilder.h"
#include "support/TrustMaterial.h"

#include "platform/common/Hex.h"

#include <openssl/sha.h>

#include <regex>

using namespace KestrelTest;
using Tessel::Bridge::Platform::HexDigits;
namespace fs = std::filesystem;

namespace {

class VerifyCli : public EmulatedPcCli {
protected:
    ProcessResult Verify(const std::vector<std::string>& words) const { return Run(words, BuiltProgram("KestrelVerify")); }
    ProcessResult VerifyWithRoot(const std::string& file) const
    {
        return Verify({"--roots", (material / "root.crt").string(), (material / file).string()});
    }

    fs::path material = TrustMaterial();
};

TEST_F(VerifyCli, GivesWindowsCodesAndTrustForEachFile)
{
    const ProcessResult good = VerifyWithRoot("signed.exe");
    EXPECT_EQ(good.exitStatus, 0) << good.err;
    // The fingerprint of the leaf's key as openssl prints it.
    const ProcessResult key = RunProcess("/bin/sh", {"-c", "openssl x509 -in '" + (material / "leaf.crt").string() +
                                                               "' -noout -pubkey | openssl pkey -pubin -outform DER | tail -c 270"});
    unsigned char digest[SHA256_DIGEST_LENGTH];
    SHA256(reinterpret_cast<const unsigned char*>(key.out.data()), key.out.size(), digest);
    EXPECT_EQ(good.out, (material / "signed.exe").string() + ": trusted by Windows\n  embedded 0: 0x00000000 key=" +
                            HexDigits<char>(digest, false) + " subject=C=US, S=Washington, L=Redmond, O=Kestrel Test, OU=Release, CN=Kestrel Test leaf\n");

    const struct {
        const char* file;
        const char* lines; // a pattern for the lines after the first
        bool trusted;
    } cases[] = {
        {"unsigned.exe", "  embedded 0: 0x800B0100\n", false},
        {"tampered.exe", "  embedded 0: 0x80096010\n", false},
        {"untrusted.exe", "  embedded 0: 0x800B0109 key=[0-9a-f]{64} subject=CN=Kestrel Test untrusted\n", false},
        {"wrongpurpose.exe", "  embedded 0: 0x800B0110\n", false},
        {"expired.exe", "  embedded 0: 0x800B0101 key=[0-9a-f]{64} subject=CN=Kestrel Test expired\n", true},
        {"expired-ts.exe", "  embedded 0: 0x00000000 key=[0-9a-f]{64} subject=CN=Kestrel Test expired\n", true},
        {"nested.exe", "(  embedded [01]: 0x00000000 key=[0-9a-f]{64} subject=C=US, S=Washington, L=Redmond, O=Kestrel Test, OU=Release, CN=Kestrel Test leaf\n){2}", true},
    };
    for (const auto& c : cases) {
        const ProcessResult result = VerifyWithRoot(c.file);
        const std::string first = (material / c.file).string() + (c.trusted ? ": trusted by Windows\n" : ": not trusted by Windows\n");
        EXPECT_TRUE(result.out.starts_with(first) && std::regex_match(result.out.substr(first.size()), std::regex(c.lines)))
            << c.file << ":\n" << result.out;
        EXPECT_EQ(result.exitStatus, c.trusted ? 0 : 1) << c.file;
    }
    // One untrusted file among trusted ones fails the run; a missing one too.
    EXPECT_EQ(Verify({"--roots", (material / "root.crt").string(), (material / "signed.exe").string(),
                      (material / "unsigned.exe").string()}).exitStatus, 1);
    EXPECT_EQ(Verify({"--roots", (material / "root.crt").string(), (directory / "missing.exe").string()}).exitStatus, 1);
}

TEST_F(VerifyCli, TrustsOnlyThePcsRootsAndCatalogs)
{
    // Out of the box the PC trusts no root at all.
    EXPECT_EQ(Verify({(material / "signed.exe").string()}).exitStatus, 1);

    // A PC with the test root, and a catalog listing a copy of the unsigned
    // program on its C: drive by the Authenticode digest that osslsigncode
    // signed for the same bytes.
    const ProcessResult claimed = RunProcess("/bin/sh", {"-c", "osslsigncode verify -in '" + (material / "signed.exe").string() +
                                                                   "' | sed -n 's/^Calculated message digest *: *//p' | tr -d ' '"});
    const std::string tag = claimed.out.substr(0, claimed.out.find('\n'));
    ASSERT_EQ(tag.size(), 64u) << claimed.out;
    fs::create_directories(directory / "drive-c" / "Tools");
    fs::copy_file(material / "unsigned.exe", directory / "drive-c" / "Tools" / "app.exe");
    fs::create_directories(directory / "catalogs");
    WriteCatalog(directory / "catalogs" / "tools.cat", {std::wstring(tag.begin(), tag.end())},
                 SignerFromPem(material / "leaf.crt", material / "leaf.key", material / "intermediate.crt"));
    UseState({{"trust", {{"roots", (material / "root.crt").string()}}}});

    const ProcessResult listed = Verify({"C:\\Tools\\App.exe"});
    EXPECT_EQ(listed.exitStatus, 0) << listed.err;
    EXPECT_TRUE(std::regex_match(listed.out, std::regex("C:\\\\Tools\\\\App.exe: trusted by Windows\n"
                                                        "  catalog .*/catalogs/tools.cat lists " + tag + "\n"
                                                        "  catalog 0: 0x00000000 key=[0-9a-f]{64} subject=C=US, S=Washington, L=Redmond, O=Kestrel Test, OU=Release, CN=Kestrel Test leaf\n"
                                                        "  embedded 0: 0x800B0100\n")))
        << listed.out;
    // Another catalog folder on the command line replaces the PC's.
    EXPECT_EQ(Verify({"--catalogs", (directory / "drive-c").string(), "C:\\Tools\\App.exe"}).exitStatus, 1);
}

TEST_F(VerifyCli, RefusesBadUsage)
{
    const std::string file = (material / "signed.exe").string();
    for (const std::vector<std::string>& words : std::vector<std::vector<std::string>>{
             {}, {"--roots"}, {file, "--catalogs"}, {"--root", file}, {"-x", file}, {"--roots", (directory / "none.pem").string(), file},
             {"--roots", file, file}}) {
        const ProcessResult result = Verify(words);
        EXPECT_EQ(result.exitStatus, 2) << ::testing::PrintToString(words);
        EXPECT_EQ(result.out, "");
        EXPECT_NE(result.err, "");
    }
    // After "--" a name is a file, whatever it looks like.
    EXPECT_EQ(Verify({"--", "--roots"}).exitStatus, 1);
    // A PC whose trust or drives name no path.
    for (const char* state : {R"({"trust": {"roots": 5}})", R"({"trust": {"catalogs": ""}})", R"({"drives": {"D:": ["x"]}})"}) {
        WriteFileBytes(stateFile, state);
        const ProcessResult result = Verify({file});
        EXPECT_EQ(result.exitStatus, 2) << state;
        EXPECT_NE(result.err.find(stateFile.string()), std::string::npos) << state << result.err;
    }
}

TEST_F(VerifyCli, AgreesWithOsslsigncodeOnEveryFile)
{
    for (const char* file : {"signed.exe", "nested.exe", "unsigned.exe", "expired.exe", "expired-ts.exe", "notyet.exe",
                             "wrongpurpose.exe", "untrusted.exe", "tampered.exe"}) {
        const std::string path = (material / file).string();
        const std::string root = (material / "root.crt").string();
        const bool reference =
            RunProcess("/usr/bin/env", {"osslsigncode", "verify", "-CAfile", root, "-TSA-CAfile", root, "-in", path}).exitStatus == 0;
        // osslsigncode has no counterpart of an expired signer that Windows
        // still counts: valid for it is code 0 here.
        const ProcessResult ours = Verify({"--roots", root, path});
        EXPECT_EQ(ours.out.find(": 0x00000000") != std::string::npos, reference) << file << "\n" << ours.out;
    }
}

} // namespace
