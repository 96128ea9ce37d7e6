// KestrelVerify on Windows: WinTrust itself.
#include "FileVerifier.h"

namespace Tessel::Bridge::Server::Services::Kestrel {

std::unique_ptr<Platform::ISignatureVerifier> CreateFileVerifier(const Platform::TrustSources& sources)
{
    return Platform::CreateSignatureVerifier(sources);
}

} // namespace Tessel::Bridge::Server::Services::Kestrel
