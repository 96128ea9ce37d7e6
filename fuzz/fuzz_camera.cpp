// Arbitrary emulated PC state (the cameras and their saved defaults) and one
// Camera command: a result, or one of the documented abnormal ends; a
// malformed file is left byte-identical, a written one stays readable.
#include "FuzzSupport.h"

#include "CameraCommand.h"
#include "platform/emulated/EmulatedPc.h"

#include <cstdint>
#include <string>

using KestrelFuzz::Require;
using namespace Tessel::Bridge;
using Platform::Emulated::EmulatedPc;
using Platform::Emulated::EmulatedPcError;

// Input: state file bytes, a zero byte, the function word, a zero byte, the value.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::filesystem::path& stateFile = KestrelFuzz::EmulatedPcStateFile();
    KestrelFuzz::InputParts parts(data, size);
    const std::string state = parts.Next();
    const std::string function = parts.Next();
    const std::string value = parts.Next();
    KestrelFuzz::UseState(stateFile, state);
    KestrelFuzz::RunCommand<EmulatedPc, EmulatedPcError>(stateFile, state, [&] {
        try {
            Server::Services::Kestrel::CameraSession session(Platform::CreateCameraRuntime(),
                                                             Platform::CreateCameraDefaultsPlatform());
            std::wstring result = L"untouched";
            Server::Services::Kestrel::HandleCameraCommand(session, std::wstring(function.begin(), function.end()),
                                                           std::wstring(value.begin(), value.end()), result);
            Require(result.find(L'\n') == std::wstring::npos, "a result is one line");
        } catch (const Platform::ResultException&) {
            // A platform failure or an empty zoom range: the documented abnormal end.
        }
    });
    return 0;
}
