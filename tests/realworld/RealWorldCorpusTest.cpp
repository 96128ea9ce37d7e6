// KestrelVerify on files signed by real publishers through real CAs
// (tests/realworld/corpus.txt), judged against Debian's CA bundle and Wine's
// Microsoft roots as WinVerifyTrust judges them, and against osslsigncode.
#include "cli/EmulatedPcCli.h"
#include "support/CatalogBuilder.h"
#include "support/TrustMaterial.h"

#include <regex>

using namespace KestrelTest;
namespace fs = std::filesystem;

namespace {

struct Row {
    const char* file;
    std::vector<std::string> signatures; // embedded, by index: code, then for a signer SHA-256 of its key and CertNameToStrW subject
    bool osslsigncode;                   // whether `osslsigncode verify` accepts it with the same roots
    const char* catalogTag = nullptr;    // listed by this tag in a CATALOG_LIST_MEMBER2 catalog the test signs
};

const std::string kMicrosoft = " subject=C=US, S=Washington, L=Redmond, O=Microsoft Corporation, ";

const Row kCorpus[] = {
    // SHA-1 signature with a PKCS #9 countersignature, nested SHA-256 one with
    // an RFC 3161 timestamp; both signers expired since.
    {"signtool-2017.exe",
     {"0x00000000 key=ebf85c3f1daf764369c993129bb282bda7258e1784729b43693ebeb2a9efb996" + kMicrosoft + "OU=MOPR, CN=Microsoft Corporation",
      "0x00000000 key=7040dbec85a3c707334c6983d24d05438860fb3d0cc34033dd8cedd71c6a5d98" + kMicrosoft + "OU=MOPR, CN=Microsoft Corporation"},
     true},
    // Expired signer; the timestamp's genTime has milliseconds, its token an attribute certificate.
    {"signtool-2021.exe", {"0x00000000 key=e12f6d25bf216556e10d31a590fe899d6599c1013233ead8e6ba7dbb416b1260" + kMicrosoft + "CN=Microsoft Corporation"},
     true, "6F40D40F80257F00B0C632ABF8E0175A811A5DEE84D4EFA2DB4CC2B50A5DC816"},
    {"signtool-2024.exe", {"0x00000000 key=dd4b5ffb3e7b26a49226961f331a300d948d7378835c828a9063b317457ff2a3" + kMicrosoft + "CN=Microsoft Corporation"}, true},
    // DigiCert signer, SHA-1 file digest, GlobalSign countersignature.
    {"node-7-x64.exe",
     {"0x00000000 key=3c751ee1e81615112e6252cf30f4f608990c93d3e0933ecce0bc5aae973ab2c1 subject=C=US, S=CA, L=San Francisco, O=Node.js Foundation, "
      "CN=Node.js Foundation"},
     true},
    // ARM64, extended validation subject, DigiCert G4 chain and timestamp.
    {"node-20-arm64.exe",
     {"0x00000000 key=78cf18859bc533cef4452e07c8528696c340d01a149267a850ae75ec8ee97d12 subject=OID.1.3.6.1.4.1.311.60.2.1.3=US, "
      "OID.1.3.6.1.4.1.311.60.2.1.2=Delaware, OID.2.5.4.15=Private Organization, SERIALNUMBER=5579593, C=US, S=California, L=San Francisco, "
      "O=OpenJS Foundation, OU=Nodejs, CN=OpenJS Foundation"},
     true},
    // Signer and timestamp chain up to the 1997 Microsoft Root Authority, which
    // has no extensions, through an OIW sha1WithRSA (1.3.14.3.2.29) CA.
    {"winusbcoinstaller2.dll",
     {"0x00000000 key=0dc2218e71dc1c2f2852b17dc1adc8dd3a85ca803ffadeb7d321cda17fd92147" + kMicrosoft + "OU=MOPR, CN=Microsoft Windows Component Publisher"},
     true},
    {"WdfCoInstaller01011.dll", {"0x00000000 key=9d981ec530419fc0ec26486faae37ee36015078dcd516980242bfc7b57c72321" + kMicrosoft + "OU=MOPR, CN=Microsoft Windows"},
     true},
    // Two WIN_CERTIFICATE entries; Windows reads the first, whose chain ends
    // at the UEFI CA 2011 under the Third Party Marketplace Root, which no
    // Windows store holds: no chain (fetched online, it is an untrusted root).
    // osslsigncode cannot read a table of two entries.
    {"shimx64.efi", {"0x800B010A"}, false},
};

TEST_F(EmulatedPcCli, RealSignedFilesGetWindowsAnswers)
{
    // The lines of the row's signatures, each with the code given if any.
    const auto lines = [](const Row& row, const char* code = nullptr) {
        std::string text;
        for (std::size_t i = 0; i < row.signatures.size(); ++i) text += "  embedded " + std::to_string(i) + ": " + (code ? code : row.signatures[i]) + "\n";
        const bool trusted = (code ? code : row.signatures[0]).starts_with("0x00000000");
        return text + (trusted ? "1 file: 1 trusted, 0 not trusted\n" : "1 file: 0 trusted, 1 not trusted\n");
    };
    const char* folder = std::getenv("KESTREL_REALWORLD");
    ASSERT_TRUE(folder != nullptr) << "KESTREL_REALWORLD is not set";
    const fs::path corpus = fs::absolute(folder), material = TrustMaterial(), catalog = directory / "catalogs" / "member2.cat";
    // The roots, with the test root whose leaf signs the catalog.
    const std::string roots = (directory / "roots.pem").string(), catalogs = (directory / "catalogs").string();
    WriteFileBytes(roots, ReadFileBytes(corpus / "roots.pem") + ReadFileBytes(material / "root.crt"));
    const CatalogSigner signer = SignerFromPem(material / "leaf.crt", material / "leaf.key", material / "intermediate.crt");
    fs::create_directories(catalogs);
    const auto verify = [](const std::vector<std::string>& words) { return RunProcess(BuiltProgram("KestrelVerify"), words); };

    for (const Row& row : kCorpus) {
        const std::string path = (corpus / row.file).string();
        const bool trusted = row.signatures[0].starts_with("0x00000000");
        const std::string verdict = path + (trusted ? ": " : ": not ") + "trusted by Windows\n";
        std::string listed;
        if (row.catalogTag) {
            WriteCatalog(catalog, {std::wstring(row.catalogTag, row.catalogTag + 64)}, signer, MemberFormat::kBinary);
            listed = "  catalog " + catalog.string() + " lists " + row.catalogTag + "\n  catalog 0: 0x00000000 key=(test leaf) subject=C=US, S=Washington, "
                     "L=Redmond, O=Kestrel Test, OU=Release, CN=Kestrel Test leaf\n";
            // Only the catalog folder given counts.
            EXPECT_EQ(verify({"--roots", roots, "--catalogs", corpus.string(), path}).out, verdict + lines(row));
        }
        const ProcessResult verified = verify({"--roots", roots, "--catalogs", catalogs, path});
        // The test leaf's key is made for the run.
        EXPECT_EQ(std::regex_replace(verified.out, std::regex("key=[0-9a-f]{64}( subject=.*Kestrel Test leaf)"), "key=(test leaf)$1"), verdict + listed + lines(row));
        EXPECT_EQ(verified.exitStatus, trusted ? 0 : 1) << row.file;
        fs::remove(catalog);

        // osslsigncode with the same roots: valid means code 0 here.
        const ProcessResult reference =
            RunProcess("/usr/bin/env", {"osslsigncode", "verify", "-ignore-crl", "-CAfile", roots, "-TSA-CAfile", roots, "-in", path});
        EXPECT_EQ(reference.exitStatus == 0, row.osslsigncode) << row.file << "\n" << reference.out;
        // Each signature's digest algorithm and timestamp time, as osslsigncode reads them.
        std::string expected, given;
        const std::regex read("Message digest algorithm  : (\\S+)|Timestamp time: (.*)");
        for (std::sregex_iterator it(reference.out.begin(), reference.out.end(), read), end; row.osslsigncode && it != end; ++it) {
            expected += (*it)[1].matched ? "\n" + (*it)[1].str() : " " + (*it)[2].str();
        }
        const nlohmann::json report = nlohmann::json::parse(verify({"--roots", roots, "--json", path}).out);
        for (const auto& signature : report["signatures"]) {
            const std::string digest = signature["digest_algorithm"], time = signature["timestamp"].is_null() ? "" : signature["timestamp"]["time"];
            given += "\n" + std::regex_replace(digest, std::regex("sha"), "SHA");
            const int month = time.empty() ? 0 : std::stoi(time.substr(5, 2)), day = time.empty() ? 0 : std::stoi(time.substr(8, 2));
            if (month > 0) given += " " + std::string("JanFebMarAprMayJunJulAugSepOctNovDec").substr(static_cast<std::size_t>(3 * month - 3), 3) + (day < 10 ? "  " : " ") + std::to_string(day) + " " + time.substr(11, 8) + " " + time.substr(0, 4) + " GMT";
        }
        EXPECT_TRUE(!row.osslsigncode || given == expected) << row.file << given << "\nosslsigncode:" << expected;

        // One byte in the middle of the image flipped: every signature's digest is wrong.
        std::string bytes = ReadFileBytes(corpus / row.file);
        bytes[bytes.size() / 2] = static_cast<char>(~bytes[bytes.size() / 2]);
        const std::string flipped = (directory / "flipped").string();
        WriteFileBytes(flipped, bytes);
        EXPECT_EQ(verify({"--roots", roots, flipped}).out, flipped + ": not trusted by Windows\n" + lines(row, "0x80096010")) << row.file;

        // No trusted root: none of these signatures carries its root, so no chain.
        EXPECT_EQ(verify({path}).out, path + ": not trusted by Windows\n" + lines(row, "0x800B010A")) << row.file;
    }
}

} // namespace
