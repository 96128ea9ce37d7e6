// Arbitrary emulated PC state and one command of a category without a
// process-wide object (the registry and services, the applications folder,
// displays, the mouse): one line, with 1, 0 or -1 from Notification; or one of
// the documented abnormal ends. A malformed file is left byte-identical, a
// written one stays readable.
#include "FuzzSupport.h"

#include "FrontEnd.h"
#include "platform/emulated/EmulatedPc.h"

#include <cstdint>
#include <string>

using KestrelFuzz::Require;
using namespace Tessel::Bridge;
using Platform::Emulated::EmulatedPc;
using Platform::Emulated::EmulatedPcError;

// Input: state file bytes, then the category, the function word and the
// value, each after a zero byte.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::filesystem::path& stateFile = KestrelFuzz::EmulatedPcStateFile();
    KestrelFuzz::InputParts parts(data, size);
    const std::string state = parts.Next();
    Server::Services::Kestrel::CommandWords words;
    for (std::wstring* word : {&words.category, &words.function, &words.value}) {
        const std::string bytes = parts.Next();
        word->assign(bytes.begin(), bytes.end());
    }
    // Those keep an object for the process, made from the first input's PC.
    if (words.category == L"Camera" || words.category == L"DisplayPortrait") return 0;
    KestrelFuzz::UseState(stateFile, state);
    std::wstring result;
    KestrelFuzz::RunCommand<EmulatedPc, EmulatedPcError>(stateFile, state,
                                                         [&] { Server::Services::Kestrel::DispatchCommand(words, result); });
    Require(result.find(L'\n') == std::wstring::npos, "a result is one line");
    if (words.category == L"Notification") {
        Require(result.empty() || result == L"1" || result == L"0" || result == L"-1", "1, 0 or -1");
    }
    return 0;
}
