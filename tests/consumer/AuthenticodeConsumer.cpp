// A program built against the installed Authenticode package: one file signed
// by a real publisher (ARGV[2], node.exe 20 for ARM64 from the real-world
// corpus) checked against real roots (ARGV[1]). Each failed check is printed.
#include <kestrel/Authenticode.h>

#include <cstdio>

using namespace Kestrel::Authenticode;

namespace {

constexpr std::int64_t kTimestampTime = 1774312442; // 2026-03-24T00:34:02Z

int failures = 0;

void Check(bool holds, const char* what)
{
    if (!holds) {
        std::fprintf(stderr, "failed: %s\n", what);
        ++failures;
    }
}

} // namespace

int main(int argc, char* argv[])
{
    if (argc != 3) {
        std::fprintf(stderr, "usage: kestrel_authenticode_consumer ROOTS.pem FILE\n");
        return 2;
    }
    Verifier verifier(TrustSources(Roots::FromPemFile(argv[1])));
    const FileReport report = verifier.Verify(argv[2]);
    Check(report.TrustedByWindows() && !report.catalog && report.embedded.size() == 1, "one trusted embedded signature");
    const Signature& signature = report.embedded.at(0);
    Check(signature.result == Result::kTrusted && signature.digestAlgorithm == "sha256", "code 0, SHA-256");
    Check(signature.signer && signature.signer->subject.ends_with("\r\nO=OpenJS Foundation\r\nOU=Nodejs\r\nCN=OpenJS Foundation") &&
              signature.signer->publicKey.size() > 256,
          "the OpenJS Foundation's subject and key");
    // osslsigncode reads the same token: "Timestamp time: Mar 24 00:34:02 2026 GMT".
    Check(signature.timestamp && signature.timestamp->kind == Timestamp::Kind::Rfc3161 && signature.timestamp->time == kTimestampTime,
          "DigiCert's RFC 3161 timestamp");

    Check(Verifier().VerifyEmbedded(argv[2]).result == Result::kChaining, "no roots, no chain");

    if (failures == 0) std::printf("authenticode consumer: all checks held\n");
    return failures == 0 ? 0 : 1;
}
