// KestrelVerify on files signed by real publishers through real CAs
// (tests/realworld/corpus.txt), judged against Debian's CA bundle and Wine's
// Microsoft roots as WinVerifyTrust judges them, and against osslsigncode.
#include "cli/EmulatedPcCli.h"
#include "support/CatalogBuilder.h"
#include "support/TrustMaterial.h"

#include "platform/SignatureVerification.h"
#include "platform/common/Hex.h"

using namespace KestrelTest;
namespace fs = std::filesystem;
using Tessel::Bridge::Platform::HexDigits;

namespace {

struct Signature {
    const char* code;
    const char* key;     // SHA-256 of the signer's public key
    const char* subject; // CertNameToStrW, X.500 keys, CR LF shown as ", "
};

struct Row {
    const char* file;
    std::vector<Signature> signatures; // embedded, by index
    bool osslsigncode;                 // whether `osslsigncode verify` accepts it with the same roots
    const char* catalogTag = nullptr;  // listed by this tag in a CATALOG_LIST_MEMBER2 catalog
};

const Row kCorpus[] = {
    // SHA-1 signature with a PKCS #9 countersignature, nested SHA-256 one with
    // an RFC 3161 timestamp; both signers expired since.
    {"signtool-2017.exe",
     {{"0x00000000", "ebf85c3f1daf764369c993129bb282bda7258e1784729b43693ebeb2a9efb996", "C=US, S=Washington, L=Redmond, O=Microsoft Corporation, OU=MOPR, CN=Microsoft Corporation"},
      {"0x00000000", "7040dbec85a3c707334c6983d24d05438860fb3d0cc34033dd8cedd71c6a5d98", "C=US, S=Washington, L=Redmond, O=Microsoft Corporation, OU=MOPR, CN=Microsoft Corporation"}},
     true},
    // Expired signer; the timestamp's genTime has milliseconds and the token
    // carries an attribute certificate.
    {"signtool-2021.exe", {{"0x00000000", "e12f6d25bf216556e10d31a590fe899d6599c1013233ead8e6ba7dbb416b1260", "C=US, S=Washington, L=Redmond, O=Microsoft Corporation, CN=Microsoft Corporation"}}, true,
     "6F40D40F80257F00B0C632ABF8E0175A811A5DEE84D4EFA2DB4CC2B50A5DC816"},
    {"signtool-2024.exe", {{"0x00000000", "dd4b5ffb3e7b26a49226961f331a300d948d7378835c828a9063b317457ff2a3", "C=US, S=Washington, L=Redmond, O=Microsoft Corporation, CN=Microsoft Corporation"}}, true},
    // DigiCert signer, SHA-1 file digest, GlobalSign countersignature.
    {"node-7-x64.exe",
     {{"0x00000000", "3c751ee1e81615112e6252cf30f4f608990c93d3e0933ecce0bc5aae973ab2c1",
       "C=US, S=CA, L=San Francisco, O=Node.js Foundation, CN=Node.js Foundation"}},
     true},
    // ARM64, extended validation subject, DigiCert G4 chain and timestamp.
    {"node-20-arm64.exe",
     {{"0x00000000", "78cf18859bc533cef4452e07c8528696c340d01a149267a850ae75ec8ee97d12",
       "OID.1.3.6.1.4.1.311.60.2.1.3=US, OID.1.3.6.1.4.1.311.60.2.1.2=Delaware, OID.2.5.4.15=Private Organization, SERIALNUMBER=5579593, "
       "C=US, S=California, L=San Francisco, O=OpenJS Foundation, OU=Nodejs, CN=OpenJS Foundation"}},
     true},
    // Signer and timestamp chain up to the 1997 Microsoft Root Authority, which
    // has no extensions, through an OIW sha1WithRSA (1.3.14.3.2.29) CA.
    {"winusbcoinstaller2.dll",
     {{"0x00000000", "0dc2218e71dc1c2f2852b17dc1adc8dd3a85ca803ffadeb7d321cda17fd92147", "C=US, S=Washington, L=Redmond, O=Microsoft Corporation, OU=MOPR, CN=Microsoft Windows Component Publisher"}},
     true},
    {"WdfCoInstaller01011.dll", {{"0x00000000", "9d981ec530419fc0ec26486faae37ee36015078dcd516980242bfc7b57c72321", "C=US, S=Washington, L=Redmond, O=Microsoft Corporation, OU=MOPR, CN=Microsoft Windows"}}, true},
    // Two WIN_CERTIFICATE entries; Windows reads the first, whose chain ends
    // at the UEFI CA 2011 under the Third Party Marketplace Root, a root no
    // Windows store holds: no chain (offline; fetched, it is an untrusted root).
    // osslsigncode cannot read a table of two entries.
    {"shimx64.efi", {{"0x800B010A", nullptr, nullptr}}, false},
};

std::string Lines(const Row& row, const char* code = nullptr)
{
    std::string lines;
    for (std::size_t i = 0; i < row.signatures.size(); ++i) {
        const Signature& s = row.signatures[i];
        lines += "  embedded " + std::to_string(i) + ": " + (code ? code : s.code);
        if (s.key && !code) lines += std::string(" key=") + s.key + " subject=" + s.subject;
        lines += "\n";
    }
    return lines;
}

class RealWorldCorpus : public EmulatedPcCli {};

TEST_F(RealWorldCorpus, GivesWindowsAnswersForRealSignedFiles)
{
    const char* corpusFolder = std::getenv("KESTREL_REALWORLD");
    ASSERT_TRUE(corpusFolder != nullptr && *corpusFolder != '\0') << "KESTREL_REALWORLD is not set";
    const fs::path corpus = fs::absolute(corpusFolder), material = TrustMaterial();
    // The roots, with the test root that signs the member-2 catalog.
    const fs::path roots = directory / "roots.pem";
    WriteFileBytes(roots, ReadFileBytes(corpus / "roots.pem") + ReadFileBytes(material / "root.crt"));
    const CatalogSigner signer = SignerFromPem(material / "leaf.crt", material / "leaf.key", material / "intermediate.crt");
    const ASN1_BIT_STRING* leafKey = X509_get0_pubkey_bitstr(signer.certificate.get());
    const std::string catalogLine = " key=" + HexDigits<char>(Tessel::Bridge::Platform::Sha256Of({leafKey->data, static_cast<std::size_t>(leafKey->length)}), false) +
                                    " subject=C=US, S=Washington, L=Redmond, O=Kestrel Test, OU=Release, CN=Kestrel Test leaf\n";
    fs::create_directories(directory / "catalogs");
    const nlohmann::json drives = {{"C:", corpus.string()}, {"D:", directory.Path().string()}};

    for (const Row& row : kCorpus) {
        const std::string path = "C:\\" + std::string(row.file);
        if (row.catalogTag) WriteCatalog(directory / "catalogs" / "member2.cat", {std::wstring(row.catalogTag, row.catalogTag + 64)}, signer, MemberFormat::kBinary);
        UseState({{"drives", drives}, {"trust", {{"roots", roots.string()}, {"catalogs", (directory / "catalogs").string()}}}});
        const bool trusted = std::string(row.signatures[0].code) == "0x00000000";
        std::string expected = path + (trusted ? ": trusted by Windows\n" : ": not trusted by Windows\n");
        if (row.catalogTag) {
            expected += "  catalog " + (directory / "catalogs" / "member2.cat").string() + " lists " + row.catalogTag + "\n  catalog 0: 0x00000000" + catalogLine;
        }
        const ProcessResult verified = Run({path}, BuiltProgram("KestrelVerify"));
        EXPECT_EQ(verified.out, expected + Lines(row)) << verified.err;
        EXPECT_EQ(verified.exitStatus, trusted ? 0 : 1) << row.file;
        fs::remove(directory / "catalogs" / "member2.cat");

        // osslsigncode with the same roots: valid means code 0 here.
        const ProcessResult reference = RunProcess("/usr/bin/env", {"osslsigncode", "verify", "-ignore-crl", "-CAfile", roots.string(), "-TSA-CAfile",
                                                                    roots.string(), "-in", (corpus / row.file).string()});
        EXPECT_EQ(reference.exitStatus == 0, row.osslsigncode) << row.file << "\n" << reference.out;

        // One byte in the middle of the image flipped: every signature's digest is wrong.
        std::string bytes = ReadFileBytes(corpus / row.file);
        bytes[bytes.size() / 2] = static_cast<char>(~bytes[bytes.size() / 2]);
        WriteFileBytes(directory / "flipped", bytes);
        EXPECT_EQ(Run({"D:\\flipped"}, BuiltProgram("KestrelVerify")).out, "D:\\flipped: not trusted by Windows\n" + Lines(row, "0x80096010")) << row.file;

        // No trusted root: none of these signatures carries its root, so no chain.
        UseState({{"drives", drives}});
        EXPECT_EQ(Run({path}, BuiltProgram("KestrelVerify")).out, path + ": not trusted by Windows\n" + Lines(row, "0x800B010A")) << row.file;
    }
}

} // namespace
