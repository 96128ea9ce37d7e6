// KestrelVerify as a release pipeline runs it: on the signing material made
// for this run, exact output and exit status. Real signed files, and the
// comparison with osslsigncode, are in tests/realworld.
#include "cli/EmulatedPcCli.h"
#include "support/TrustMaterial.h"

#include <regex>

using namespace KestrelTest;
namespace fs = std::filesystem;

namespace KestrelTest { std::vector<std::string> TrustWords(const fs::path& material) { return {"--roots", (material / "root.crt").string()}; } }

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
    const struct {
        const char* file;
        const char* lines; // a pattern for the lines after the first
        bool trusted;
    } cases[] = {
        {"signed.exe", "  embedded 0: 0x00000000 key=[0-9a-f]{64} subject=C=US, S=Washington, L=Redmond, O=Kestrel Test, OU=Release, CN=Kestrel Test leaf\n", true},
        {"unsigned.exe", "  embedded 0: 0x800B0100\n", false},
        {"untrusted.exe", "  embedded 0: 0x800B0109 key=[0-9a-f]{64} subject=CN=Kestrel Test untrusted\n", false},
        {"wrongpurpose.exe", "  embedded 0: 0x800B0110\n", false},
        {"expired.exe", "  embedded 0: 0x800B0101 key=[0-9a-f]{64} subject=CN=Kestrel Test expired\n", true},
        {"trailing.exe", "  embedded 0: 0x800B0100\n", false}, // bytes after the certificate table
        {"root.crt", "  embedded 0: 0x800B0003\n", false},     // no image at all
    };
    for (const auto& c : cases) {
        const ProcessResult result = VerifyWithRoot(c.file);
        const std::string first = (material / c.file).string() + (c.trusted ? ": trusted by Windows\n" : ": not trusted by Windows\n");
        EXPECT_TRUE(result.out.starts_with(first) && std::regex_match(result.out.substr(first.size()), std::regex(c.lines + std::string("1 file: .*\n"))))
            << c.file << ":\n" << result.out;
        EXPECT_EQ(result.exitStatus, c.trusted ? 0 : 1) << c.file;
    }
}

// What Wine's WinTrust does not give (docs/kestrelverify.md): the accepted
// timestamp and a nested signature's own digest; and names no Windows file
// could have.
TEST_F(VerifyCli, JsonGivesTimestampsAndEscapesAnyName)
{
    const fs::path odd = directory / "q\"b\\\x01\t\x7f.exe";
    fs::copy_file(material / "expired-ts.exe", odd);
    const ProcessResult result = Verify({"--json", "--roots", (material / "root.crt").string(), odd.string()});
    const nlohmann::json file = nlohmann::json::parse(result.out);
    EXPECT_EQ(file["path"], odd.string());
    EXPECT_EQ(file["signatures"][0]["digest_algorithm"], "sha256");
    EXPECT_EQ(file["signatures"][0]["timestamp"], (nlohmann::json{{"kind", "rfc3161"}, {"time", "2020-07-01T00:00:00Z"}}));
    const nlohmann::json nested = nlohmann::json::parse(Verify({"--json", "--roots", (material / "root.crt").string(), (material / "nested.exe").string()}).out);
    EXPECT_EQ(nested["signatures"][0]["digest_algorithm"], "sha1");
    EXPECT_EQ(nested["signatures"][1]["digest_algorithm"], "sha256");
}

} // namespace
