// Prints its command words as the front end reads them, joined by '|', through
// the same wide output as the tool: a test of the UTF-8 path end to end.
#include "FrontEnd.h"
#include "platform/StandardOutput.h"

#include <iostream>

int main(int argc, char* argv[])
{
    using namespace Tessel::Bridge::Server::Services::Kestrel;
    const Tessel::Bridge::Platform::WideStandardOutput output;
    const auto words = ReadCommandWords(argc, argv);
    if (!words) return -1;
    std::wcout << words->category << L'|' << words->function << L'|' << words->value << std::endl;
    return 0;
}
