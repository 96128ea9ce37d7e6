#include "platform/CommandLine.h"

#include "platform/windows/UniqueHandle.h"

#include <windows.h>

#include <shellapi.h>

namespace Tessel::Bridge::Platform {
namespace {

// CommandLineToArgvW hands out the pointers and the strings as one block, freed
// with one LocalFree.
struct ArgumentArrayTraits {
    using Type = LPWSTR*;
    static Type Empty() noexcept { return nullptr; }
    static bool IsValid(Type array) noexcept { return array != nullptr; }
    static void Close(Type array) noexcept { ::LocalFree(array); }
};

using UniqueArgumentArray = Windows::UniqueResource<ArgumentArrayTraits>;

} // namespace

std::vector<std::wstring> SplitCommandLine(const std::wstring& commandLine)
{
    int count = 0;
    const UniqueArgumentArray array(::CommandLineToArgvW(commandLine.c_str(), &count));
    if (!array || count < 0) return {};
    return std::vector<std::wstring>(array.Get(), array.Get() + count);
}

} // namespace Tessel::Bridge::Platform
