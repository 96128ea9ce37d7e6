#include "KestrelVerify.h"
#include "platform/StandardOutput.h"

#include <iostream>

int main(int argc, char* argv[])
{
    namespace Platform = Tessel::Bridge::Platform;
    const Platform::WideStandardOutput output;
    return Tessel::Bridge::Server::Services::Kestrel::RunKestrelVerify(
        argc, argv,
        [](Platform::TrustSources sources) {
            sources.hostPaths = true; // files named on the command line
            return Platform::CreateSignatureVerifier(sources);
        },
        std::wcout, std::wcerr);
}
