// KestrelVerify as a release pipeline runs it, one table for every build: on
// the host trusting the test root, under Wine over WinTrust (which trusts any
// root). Paths made for the run are compared as {S}, {U}, {M}, {D} and signer
// keys as K. Real signed files, and the comparison with osslsigncode, are in
// tests/realworld.
#include "support/ProcessRunner.h"
#include "support/TempDirectory.h"
#include "support/TrustMaterial.h"

#include <nlohmann/json.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <regex>
#include <sstream>

using namespace KestrelTest;
namespace fs = std::filesystem;

namespace {

std::string Utf8(const fs::path& path) { const std::u8string text = path.u8string(); return {text.begin(), text.end()}; }

class KestrelVerifyCli : public ::testing::Test {
protected:
    KestrelVerifyCli()
    {
        fs::create_directories(folder / "a" / "empty");
        for (const char* name : {"b.exe", "a/z.exe", "a/b.exe"}) fs::copy_file(material / (name[2] == 'z' ? "unsigned.exe" : "signed.exe"), folder / name);
    }

    ProcessResult Verify(std::vector<std::string> words, bool placeholders = true) const
    {
        for (const auto& [name, path] : paths) std::replace(words.begin(), words.end(), name, path);
        words.insert(words.begin(), trust.begin(), trust.end());
        ProcessResult result = RunProcess(BuiltProgram("KestrelVerify"), words);
        for (std::string* text : {&result.out, &result.err}) {
            *text = std::regex_replace(*text, std::regex("\r\n"), "\n");
            if (!placeholders) continue;
            *text = std::regex_replace(*text, std::regex("key=[0-9a-f]{64}"), "key=K");
            for (const auto& [name, path] : paths) {
                for (std::size_t at; (at = text->find(path)) != std::string::npos;) text->replace(at, path.size(), name);
            }
            std::replace(text->begin(), text->end(), '\\', '/');
        }
        return result;
    }

    TempDirectory directory;
    const fs::path material = TrustMaterial(), folder = directory / "folder";
    // What makes the build's KestrelVerify trust the test root: on Windows its own stores.
    const bool host = kLineEnd == "\n";
    const std::vector<std::string> trust = host ? std::vector<std::string>{"--roots", Utf8(material / "root.crt")} : std::vector<std::string>{};
    const std::vector<std::pair<std::string, std::string>> paths{{"{S}", Utf8(material / "signed.exe")}, {"{U}", Utf8(material / "unsigned.exe")},
                                                                 {"{M}", Utf8(directory / "missing.exe")}, {"{D}", Utf8(folder)}};
};

const std::string kLeaf = "  embedded 0: 0x00000000 key=K subject=C=US, S=Washington, L=Redmond, O=Kestrel Test, OU=Release, CN=Kestrel Test leaf\n";
const std::string kSigned = "{S}: trusted by Windows\n" + kLeaf, kUnsigned = "{U}: not trusted by Windows\n  embedded 0: 0x800B0100\n";
const std::string kFolder = "{D}/a/b.exe: trusted by Windows\n" + kLeaf + "{D}/a/z.exe: not trusted by Windows\n  embedded 0: 0x800B0100\n" +
                            "{D}/b.exe: trusted by Windows\n" + kLeaf + "3 files: 2 trusted, 1 not trusted\n";

const struct {
    std::vector<std::string> words;
    int exitStatus;
    std::string out; // exactly, or its beginning where it ends in "..."
    std::string err; // a part of standard error
    const char* windowsErr = nullptr; // where Windows' differs
} kCases[] = {
    {{"--version"}, 0, "KestrelVerify " KESTREL_VERSION "\n", ""},
    {{"--help"}, 0, "usage: KestrelVerify [--json] [--recursive] [-j N] [--roots FILE] [--catalogs DIR] [--] PATH...\n...", ""},
    {{}, 2, "", "no file to verify"},
    {{"-x", "{S}"}, 2, "", "unknown option -x"},
    {{"{S}", "--roots"}, 2, "", "--roots needs a value"},
    {{"{S}", "--catalogs"}, 2, "", "--catalogs needs a value"},
    {{"--root", "{S}"}, 2, "", "unknown option --root"},
    // Roots that cannot be read or are no certificates; Windows trusts only its own stores.
    {{"--roots", "{M}", "{S}"}, 2, "", "KestrelVerify: ", "the system's trusted roots"},
    {{"--roots", "{S}", "{S}"}, 2, "", "KestrelVerify: ", "the system's trusted roots"},
    {{"-j", "0", "{S}"}, 2, "", "-j needs a number"},
    {{"-j257", "{S}"}, 2, "", "-j needs a number"},
    {{"{D}"}, 2, "", "{D} is a directory"},
    {{"{S}"}, 0, kSigned + "1 file: 1 trusted, 0 not trusted\n", ""},
    {{"{S}", "{U}"}, 1, kSigned + kUnsigned + "2 files: 1 trusted, 1 not trusted\n", ""},
    // A file that cannot be read is named; the others are still reported.
    {{"{M}", "{S}"}, 2, kSigned + "2 files: 1 trusted, 0 not trusted, 1 could not be read\n", "cannot read {M} (error 2)"},
    // After "--" a name is a file, whatever it looks like.
    {{"--", "--roots"}, 2, "1 file: 0 trusted, 0 not trusted, 1 could not be read\n", "cannot read --roots"},
    // Every file below, sorted, whatever the number of workers.
    {{"--recursive", "{D}"}, 1, kFolder, ""},
    {{"--recursive", "-j", "1", "{D}"}, 1, kFolder, ""},
    {{"-j4", "--recursive", "{D}"}, 1, kFolder, ""},
};

TEST_F(KestrelVerifyCli, OptionsOutputAndExitStatus)
{
    for (const auto& c : kCases) {
        const ProcessResult result = Verify(c.words);
        const bool prefix = c.out.ends_with("...");
        EXPECT_EQ(prefix ? result.out.substr(0, c.out.size() - 3) : result.out, prefix ? c.out.substr(0, c.out.size() - 3) : c.out) << ::testing::PrintToString(c.words);
        EXPECT_EQ(result.exitStatus, c.exitStatus) << ::testing::PrintToString(c.words);
        EXPECT_NE(result.err.find(!host && c.windowsErr ? c.windowsErr : c.err), std::string::npos) << ::testing::PrintToString(c.words) << result.err;
    }
}

TEST_F(KestrelVerifyCli, JsonGivesOneParsableObjectPerFile)
{
    const fs::path named = directory / u8"\u00e4\u20ac\U0001D11E.exe";
    fs::copy_file(material / "signed.exe", named);
    const ProcessResult result = Verify({"--json", Utf8(named), "{M}", "{U}"}, false);
    EXPECT_EQ(result.exitStatus, 2);
    std::vector<nlohmann::json> objects;
    std::istringstream lines(result.out);
    for (std::string line; std::getline(lines, line);) objects.push_back(nlohmann::json::parse(line));
    ASSERT_EQ(objects.size(), 2U) << result.out;
    std::smatch key;
    const std::string text = Verify({"{S}"}, false).out;
    ASSERT_TRUE(std::regex_search(text, key, std::regex("key=([0-9a-f]{64})")));
    const nlohmann::json leaf = {{"subject", "C=US\r\nS=Washington\r\nL=Redmond\r\nO=Kestrel Test\r\nOU=Release\r\nCN=Kestrel Test leaf"}, {"key_sha256", key[1].str()}};
    const nlohmann::json signature = {{"kind", "embedded"}, {"index", 0}, {"code", 0}, {"code_hex", "0x00000000"}, {"code_name", "ERROR_SUCCESS"},
                                      {"signer", leaf}, {"digest_algorithm", "sha256"}, {"timestamp", nullptr}};
    EXPECT_EQ(objects[0], (nlohmann::json{{"path", Utf8(named)}, {"trusted", true}, {"signatures", {signature}}}));
    EXPECT_EQ(objects[1], (nlohmann::json{{"path", paths[1].second}, {"trusted", false}, {"signatures", {{{"kind", "embedded"}, {"index", 0},
        {"code", 0x800B0100}, {"code_hex", "0x800B0100"}, {"code_name", "TRUST_E_NOSIGNATURE"}, {"signer", nullptr}, {"digest_algorithm", nullptr},
        {"timestamp", nullptr}}}}}));

    // What Wine's WinTrust does not give (docs/kestrelverify.md): the accepted
    // timestamp and a nested signature's own digest; and names no Windows file
    // could have.
    if (!host) return;
    const fs::path odd = directory / "q\"b\\\x01\t\x7f.exe";
    fs::copy_file(material / "expired-ts.exe", odd);
    const nlohmann::json file = nlohmann::json::parse(Verify({"--json", odd.string()}, false).out);
    EXPECT_EQ(file["path"], odd.string());
    EXPECT_EQ(file["signatures"][0]["digest_algorithm"], "sha256");
    EXPECT_EQ(file["signatures"][0]["timestamp"], (nlohmann::json{{"kind", "rfc3161"}, {"time", "2020-07-01T00:00:00Z"}}));
    const nlohmann::json nested = nlohmann::json::parse(Verify({"--json", Utf8(material / "nested.exe")}, false).out);
    EXPECT_EQ(nested["signatures"][0]["digest_algorithm"], "sha1");
    EXPECT_EQ(nested["signatures"][1]["digest_algorithm"], "sha256");
}

// The host verifier's other answers (signed and unsigned files are rows of the
// table above); Wine's WinTrust trusts any root.
TEST_F(KestrelVerifyCli, GivesWindowsCodesAndTrustForEachFile)
{
    if (!host) GTEST_SKIP() << "Wine's WinTrust trusts any root";
    const struct {
        const char* file;
        const char* lines; // a pattern for the lines after the first
        bool trusted;
    } cases[] = {
        {"untrusted.exe", "  embedded 0: 0x800B0109 key=[0-9a-f]{64} subject=CN=Kestrel Test untrusted\n", false},
        {"wrongpurpose.exe", "  embedded 0: 0x800B0110\n", false},
        {"expired.exe", "  embedded 0: 0x800B0101 key=[0-9a-f]{64} subject=CN=Kestrel Test expired\n", true},
        {"notyet.exe", "  embedded 0: 0x800B0101 key=[0-9a-f]{64} subject=CN=Kestrel Test notyet\n", true},
        {"trailing.exe", "  embedded 0: 0x800B0100\n", false}, // bytes after the certificate table
        {"root.crt", "  embedded 0: 0x800B0003\n", false},     // no image at all
    };
    for (const auto& c : cases) {
        const ProcessResult result = Verify({Utf8(material / c.file)}, false);
        const std::string first = Utf8(material / c.file) + (c.trusted ? ": trusted by Windows\n" : ": not trusted by Windows\n");
        EXPECT_TRUE(result.out.starts_with(first) && std::regex_match(result.out.substr(first.size()), std::regex(c.lines + std::string("1 file: .*\n"))))
            << c.file << ":\n" << result.out;
        EXPECT_EQ(result.exitStatus, c.trusted ? 0 : 1) << c.file;
    }
}

} // namespace
