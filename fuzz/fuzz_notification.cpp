// Arbitrary emulated PC state (the user's registry and the service list with
// its virtual clock) and one Notification command: a result of 1, 0 or -1, or
// one of the documented abnormal ends; a malformed file is left byte-identical,
// a written one stays readable.
#include "FuzzSupport.h"

#include "NotificationCommand.h"
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
    std::wstring result = L"untouched";
    KestrelFuzz::RunCommand<EmulatedPc, EmulatedPcError>(stateFile, state, [&] {
        const auto system = Platform::CreateRegistryAndServices();
        Server::Services::Kestrel::HandleNotificationCommand(*system, *system, *system,
                                                             std::wstring(function.begin(), function.end()),
                                                             std::wstring(value.begin(), value.end()), result);
        system->SaveChanges();
    });
    Require(result == L"untouched" || result == L"1" || result == L"0" || result == L"-1", "1, 0 or -1");
    return 0;
}
