#include "FrontEnd.h"
#include "platform/StandardOutput.h"

#include <iostream>

int main(int argc, char* argv[])
{
    using namespace Tessel::Bridge::Server::Services::Kestrel;
    InstallTerminationReport();
    const Tessel::Bridge::Platform::WideStandardOutput output;
    return RunKestrelTool(argc, argv, std::wcout);
}
