// The command-line splitter on arbitrary text (Latin-1, split up to its first
// zero). What it splits a line into is the table of Windows' answers; here,
// that any line is split without a fault and always into a program name.
#include "FuzzSupport.h"

#include "platform/CommandLine.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::wstring input(data, data + size);
    const std::vector<std::wstring> split = Tessel::Bridge::Platform::SplitCommandLine(input);
    // input[0] of an empty line is its terminating zero.
    KestrelFuzz::Require(!split.empty() && (input[0] != L'\0' || (split.size() == 1 && !split[0].empty())),
                         "a program name; an empty line is the program's own path");
    return 0;
}
