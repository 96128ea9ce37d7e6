// Arbitrary bytes as the emulated PC's state file, then a reading and a change
// through the mouse: either the malformed-file error with the file untouched,
// or a valid file that reads back as exactly the state that was meant.
#include "FuzzSupport.h"

#include "platform/MouseSettings.h"

using KestrelFuzz::Require;
using KestrelFuzz::EmulatedPc;
using Tessel::Bridge::Platform::Emulated::State;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    State meant;
    const bool ran = KestrelFuzz::RunOnPc(bytes, [&] {
        meant = EmulatedPc(KestrelFuzz::StateFile()).Read();
        const auto mouse = Tessel::Bridge::Platform::CreateMouseSettings();
        int speed = 0;
        Require(mouse->GetSpeed(speed), "a readable PC has a speed");
        const int newSpeed = (speed % 20 + 20) % 20 + 1;
        Require(mouse->SetSpeed(newSpeed), "a speed from 1 to 20 is kept");
        meant["mouse"]["speed"] = newSpeed;
    });
    if (!ran || !std::filesystem::exists(KestrelFuzz::StateFile())) return 0;
    Require(State::accept(KestrelFuzz::FileBytes(KestrelFuzz::StateFile())), "the written file is JSON");
    Require(EmulatedPc(KestrelFuzz::StateFile()).Read() == meant, "the written file reads back as the state meant");
    return 0;
}
