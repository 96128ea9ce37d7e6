// Arbitrary emulated PC state (the cameras and their saved defaults) and one
// Camera command: a result, or one of the documented abnormal ends; a
// malformed file is left byte-identical, a written one stays readable.
#include "FuzzSupport.h"

#include "CameraCommand.h"
#include "platform/emulated/EmulatedPc.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>

using KestrelFuzz::Require;
using namespace Tessel::Bridge;
using Platform::Emulated::EmulatedPc;
using Platform::Emulated::EmulatedPcError;

namespace {

// Input: state file bytes, a zero byte, the function word, a zero byte, the value.
std::string Part(const char*& at, const char* end)
{
    const char* zero = static_cast<const char*>(std::memchr(at, '\0', static_cast<std::size_t>(end - at)));
    const char* stop = zero != nullptr ? zero : end;
    std::string part(at, stop);
    at = zero != nullptr ? zero + 1 : end;
    return part;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::filesystem::path& stateFile = KestrelFuzz::EmulatedPcStateFile();
    const char* at = reinterpret_cast<const char*>(data);
    const char* end = at + size;
    const std::string state = Part(at, end);
    const std::string function = Part(at, end);
    const std::string value = Part(at, end);
    {
        std::ofstream out(stateFile, std::ios::binary | std::ios::trunc);
        out << state;
    }
    try {
        Server::Services::Kestrel::CameraSession session(Platform::CreateCameraRuntime(),
                                                         Platform::CreateCameraDefaultsPlatform());
        std::wstring result = L"untouched";
        Server::Services::Kestrel::HandleCameraCommand(session, std::wstring(function.begin(), function.end()),
                                                       std::wstring(value.begin(), value.end()), result);
        Require(result.find(L'\n') == std::wstring::npos, "a result is one line");
    } catch (const EmulatedPcError& e) {
        Require(std::string(e.what()).find("is malformed") != std::string::npos, "only the malformed-file error");
        Require(KestrelFuzz::FileBytes(stateFile) == state, "a malformed file is left byte-identical");
        return 0;
    } catch (const Platform::ResultException&) {
        // A platform failure or an empty zoom range: the documented abnormal end.
    } catch (const std::invalid_argument& e) {
        Require(std::strcmp(e.what(), "invalid stoi argument") == 0, "the invalid-argument message");
    } catch (const std::out_of_range& e) {
        Require(std::strcmp(e.what(), "stoi argument out of range") == 0, "the out-of-range message");
    }
    KestrelFuzz::RequireReadable<EmulatedPc>(stateFile);
    return 0;
}
