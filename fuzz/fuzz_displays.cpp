// Arbitrary emulated PC state (displays, the vendor's service and the panel
// behind the real plug-in library) and one DisplayHDR or DisplayPortrait
// command: a result of the documented shape, or one of the documented abnormal
// ends; a malformed file is left byte-identical, a written one stays readable.
#include "FuzzSupport.h"

#include "DisplayHdrCommand.h"
#include "DisplayPortraitCommand.h"
#include "platform/emulated/EmulatedPc.h"

#include <cstdint>
#include <cwctype>
#include <string>

using KestrelFuzz::Require;
using namespace Tessel::Bridge;
using namespace Tessel::Bridge::Server::Services::Kestrel;
using Platform::Emulated::EmulatedPc;
using Platform::Emulated::EmulatedPcError;

namespace {

bool IsNumber(const std::wstring& text)
{
    std::size_t digits = text.size() > 1 && text[0] == L'-' ? 1 : 0;
    if (digits == text.size()) return false;
    for (; digits < text.size(); ++digits) {
        if (!std::iswdigit(static_cast<wint_t>(text[digits]))) return false;
    }
    return true;
}

} // namespace

// Input: state file bytes, a zero byte, the category, a zero byte, the
// function word, a zero byte, the value.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::filesystem::path& stateFile = KestrelFuzz::EmulatedPcStateFile();
    KestrelFuzz::InputParts parts(data, size);
    const std::string state = parts.Next();
    const std::string category = parts.Next();
    const std::string functionBytes = parts.Next();
    const std::string valueBytes = parts.Next();
    const std::wstring function(functionBytes.begin(), functionBytes.end());
    const std::wstring value(valueBytes.begin(), valueBytes.end());
    KestrelFuzz::UseState(stateFile, state);
    const bool hdr = category == "DisplayHDR";
    std::wstring result = L"untouched";
    const bool ended = KestrelFuzz::RunCommand<EmulatedPc, EmulatedPcError>(stateFile, state, [&] {
        if (hdr) {
            HandleDisplayHdrCommand(*Platform::CreateDisplayConfiguration(), function, value, result);
        } else {
            // A new object each time: every input loads and vets the plug-in.
            PortraitDisplayPlugin plugin(Platform::CreatePortraitPlatform());
            HandleDisplayPortraitCommand(plugin, function, value, result);
        }
    });
    if (!ended || result == L"untouched") return 0;
    if (hdr) {
        Require(result == L"1" || result == L"0" || result == L"-1", "HDR answers 1, 0 or -1");
    } else {
        std::size_t separators = 0;
        for (std::size_t at = result.find(L", "); at != std::wstring::npos; at = result.find(L", ", at + 1)) ++separators;
        const bool list = !result.empty() && result.front() == L'[' && result.back() == L']' && separators == 39;
        Require(IsNumber(result) || list, "a mode, -1 or the list of forty");
    }
    return 0;
}
