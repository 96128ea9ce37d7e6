// Authenticode SignedData: any bytes are refused or read into signatures that
// a verifier trusting no root never accepts.
#include "FuzzSupport.h"

#include "AuthenticodeSignature.h"


using KestrelFuzz::Require;
using namespace Kestrel::Authenticode;
using namespace Kestrel::Authenticode::Signatures;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    // libFuzzer hands over a heap copy of exactly `size` bytes, so a read past the end is caught.
    const std::span<const std::uint8_t> bytes(data, size);

    const auto set = SignatureSet::Parse(bytes);
    if (!set) return 0;
    Require(set->Count() >= 1 && set->Count() <= 64, "one signature and at most 64 nested");
    static X509_STORE* const noRoots = X509_STORE_new();
    for (std::size_t index = 0; index <= set->Count(); ++index) {
        const auto content = set->SignedContent(index);
        Require(index < set->Count() || content.empty(), "no content past the last signature");
        for (const bool matches : {true, false}) {
            const Signature check =
                set->Judge(index, "1.3.6.1.4.1.311.2.1.4", [&] { return matches; }, Judgement{noRoots, std::time(nullptr)});
            Require(check.result != Result::kTrusted && check.result != Result::kExpired, "no root, no trust");
            Require(matches || check.result != Result::kUntrustedRoot, "a wrong digest is never a good signature");
            Require(check.secondarySignatures + 1 == set->Count(), "the count of secondary signatures");
        }
    }
    return 0;
}
