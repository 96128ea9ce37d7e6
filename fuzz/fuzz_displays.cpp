// Arbitrary emulated PC state (displays, the vendor's service and the panel
// behind the real plug-in library) and one DisplayHDR or DisplayPortrait
// command: a result of the documented shape, or one of the documented abnormal
// ends; a malformed file is left byte-identical, a written one stays readable.
#include "FuzzSupport.h"

#include "DisplayHdrCommand.h"
#include "DisplayPortraitCommand.h"
#include "platform/emulated/EmulatedPc.h"

#include <cstdint>
#include <cstring>
#include <cwctype>
#include <fstream>
#include <stdexcept>
#include <string>

using KestrelFuzz::Require;
using namespace Tessel::Bridge;
using namespace Tessel::Bridge::Server::Services::Kestrel;
using Platform::Emulated::EmulatedPc;
using Platform::Emulated::EmulatedPcError;

namespace {

std::string Part(const char*& at, const char* end)
{
    const char* zero = static_cast<const char*>(std::memchr(at, '\0', static_cast<std::size_t>(end - at)));
    const char* stop = zero != nullptr ? zero : end;
    std::string part(at, stop);
    at = zero != nullptr ? zero + 1 : end;
    return part;
}

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
    const char* at = reinterpret_cast<const char*>(data);
    const char* end = at + size;
    const std::string state = Part(at, end);
    const std::string category = Part(at, end);
    const std::string functionBytes = Part(at, end);
    const std::string valueBytes = Part(at, end);
    const std::wstring function(functionBytes.begin(), functionBytes.end());
    const std::wstring value(valueBytes.begin(), valueBytes.end());
    if (state.empty()) {
        std::filesystem::remove(stateFile); // the default PC
    } else {
        std::ofstream out(stateFile, std::ios::binary | std::ios::trunc);
        out << state;
    }
    const bool hdr = category == "DisplayHDR";
    std::wstring result = L"untouched";
    try {
        if (hdr) {
            HandleDisplayHdrCommand(*Platform::CreateDisplayConfiguration(), function, value, result);
        } else {
            // A new object each time: every input loads and vets the plug-in.
            PortraitDisplayPlugin plugin(Platform::CreatePortraitPlatform());
            HandleDisplayPortraitCommand(plugin, function, value, result);
        }
    } catch (const EmulatedPcError& e) {
        Require(std::string(e.what()).find("is malformed") != std::string::npos, "only the malformed-file error");
        Require(KestrelFuzz::FileBytes(stateFile) == state, "a malformed file is left byte-identical");
        return 0;
    } catch (const std::invalid_argument& e) {
        Require(std::strcmp(e.what(), "invalid stoi argument") == 0, "the invalid-argument message");
    } catch (const std::out_of_range& e) {
        Require(std::strcmp(e.what(), "stoi argument out of range") == 0, "the out-of-range message");
    }
    if (hdr) {
        Require(result == L"untouched" || result == L"1" || result == L"0" || result == L"-1", "HDR answers 1, 0 or -1");
    } else {
        std::size_t separators = 0;
        for (std::size_t at = result.find(L", "); at != std::wstring::npos; at = result.find(L", ", at + 1)) ++separators;
        const bool list = !result.empty() && result.front() == L'[' && result.back() == L']' && separators == 39;
        Require(IsNumber(result) || list, "a mode, -1 or the list of forty");
    }
    // A file the run did not touch may be anything; one it wrote must read back.
    if (std::filesystem::exists(stateFile) && KestrelFuzz::FileBytes(stateFile) != state) {
        KestrelFuzz::RequireReadable<EmulatedPc>(stateFile);
    }
    return 0;
}
