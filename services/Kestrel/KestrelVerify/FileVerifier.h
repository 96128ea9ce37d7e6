#pragma once

#include "platform/SignatureVerification.h"

#include <memory>

namespace Tessel::Bridge::Server::Services::Kestrel {

// The verifier of the files KestrelVerify is given, trusting the sources
// given: WinTrust with the system's stores on Windows (which refuses other
// sources), the Authenticode engine on the host's files elsewhere. The build
// links one of the two.
std::unique_ptr<Platform::ISignatureVerifier> CreateFileVerifier(const Platform::TrustSources& sources);

} // namespace Tessel::Bridge::Server::Services::Kestrel
