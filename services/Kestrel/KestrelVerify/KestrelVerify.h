#pragma once

#include "platform/SignatureVerification.h"

#include <functional>
#include <iosfwd>
#include <memory>

namespace Tessel::Bridge::Server::Services::Kestrel {

using VerifierFactory =
    std::function<std::unique_ptr<Platform::ISignatureVerifier>(const Platform::TrustSources& sources)>;

// KestrelVerify [OPTIONS] [--] PATH...   (docs/kestrelverify.md)
// Prints each file's signatures, catalog ones first, and whether Windows
// would trust the file: as text for people, or with --json one JSON object per
// file. Files are verified on several threads, each with a verifier of its own
// from `createVerifier` (called on this thread before any work starts), and
// reported in the order named, directories' files in sorted order.
// 0 when every file would be trusted, 1 when one would not, 2 on bad usage or
// when a file cannot be read.
int RunKestrelVerify(int argc, const char* const argv[], const VerifierFactory& createVerifier, std::wostream& out,
                     std::wostream& err);

} // namespace Tessel::Bridge::Server::Services::Kestrel
