// Arbitrary emulated PC state and one command of any category: one line of
// the documented shape, or one of the documented abnormal ends. Camera and
// DisplayPortrait get a fresh object each time (the program keeps one for the
// process), so every input loads and vets the camera or the plug-in.
#include "FuzzSupport.h"

#include "CameraCommand.h"
#include "DisplayPortraitCommand.h"
#include "FrontEnd.h"

#include <algorithm>
#include <cwctype>

using KestrelFuzz::Require;
using namespace Tessel::Bridge;
using namespace Tessel::Bridge::Server::Services::Kestrel;

namespace {

bool IsNumber(const std::wstring& text)
{
    const std::size_t sign = text.size() > 1 && text[0] == L'-' ? 1 : 0;
    return text.size() > sign && std::all_of(text.begin() + static_cast<std::ptrdiff_t>(sign), text.end(),
                                             [](wchar_t ch) { return std::iswdigit(static_cast<wint_t>(ch)) != 0; });
}

void Run(const CommandWords& words, std::wstring& result)
{
    if (words.category == L"Camera") {
        try {
            CameraSession session(Platform::CreateCameraRuntime(), Platform::CreateCameraDefaultsPlatform());
            HandleCameraCommand(session, words.function, words.value, result);
        } catch (const Platform::ResultException&) {
            // A platform failure or an empty zoom range: the documented abnormal end.
        }
    } else if (words.category == L"DisplayPortrait") {
        PortraitDisplayPlugin plugin(Platform::CreatePortraitPlatform());
        HandleDisplayPortraitCommand(plugin, words.function, words.value, result);
    } else {
        DispatchCommand(words, result);
    }
}

} // namespace

// Input: state file bytes, then the category, the function word and the
// value, each after a zero byte.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    KestrelFuzz::InputParts parts(data, size);
    const std::string state = parts.Next();
    CommandWords words;
    for (std::wstring* word : {&words.category, &words.function, &words.value}) *word = KestrelFuzz::Wide(parts.Next());
    std::wstring result;
    if (!KestrelFuzz::RunOnPc(state, [&] { Run(words, result); })) return 0;
    Require(result.find(L'\n') == std::wstring::npos, "a result is one line");
    if (result.empty()) return 0;
    if (words.category == L"Notification" || words.category == L"DisplayHDR") {
        Require(result == L"1" || result == L"0" || result == L"-1", "1, 0 or -1");
    } else if (words.category == L"DisplayPortrait") {
        std::size_t separators = 0;
        for (std::size_t at = result.find(L", "); at != std::wstring::npos; at = result.find(L", ", at + 1)) ++separators;
        const bool list = result.front() == L'[' && result.back() == L']' && separators == 39;
        Require(IsNumber(result) || list, "a mode, -1 or the list of forty");
    }
    return 0;
}
