#include "FileVerifier.h"
#include "KestrelVerify.h"
#include "platform/StandardOutput.h"

#include <iostream>

int main(int argc, char* argv[])
{
    namespace Kestrel = Tessel::Bridge::Server::Services::Kestrel;
    const Tessel::Bridge::Platform::WideStandardOutput output;
    return Kestrel::RunKestrelVerify(argc, argv, Kestrel::CreateFileVerifier, std::wcout, std::wcerr);
}
