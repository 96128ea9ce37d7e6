#pragma once

#include "platform/SignatureVerification.h"

#include <functional>
#include <iosfwd>
#include <memory>

namespace Tessel::Bridge::Server::Services::Kestrel {

using VerifierFactory =
    std::function<std::unique_ptr<Platform::ISignatureVerifier>(const Platform::TrustSources& sources)>;

// KestrelVerify [--roots FILE] [--catalogs DIR] [--] FILE...
// Prints each file's signatures, catalog ones first, and whether Windows
// would trust the file. 0 when every file would be trusted, 1 when one would
// not, 2 on bad usage.
int RunKestrelVerify(int argc, const char* const argv[], const VerifierFactory& createVerifier, std::wostream& out,
                     std::wostream& err);

} // namespace Tessel::Bridge::Server::Services::Kestrel
