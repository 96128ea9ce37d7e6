// Arbitrary bytes as the emulated PC's state file, then a reading and a change
// through the mouse: either the malformed-file error with the file untouched,
// or a valid file that reads back as the state that was meant.
#include "FuzzSupport.h"

#include "platform/MouseSettings.h"
#include "platform/emulated/EmulatedPc.h"

#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

using KestrelFuzz::Require;
using Tessel::Bridge::Platform::Emulated::EmulatedPc;
using Tessel::Bridge::Platform::Emulated::EmulatedPcError;
using Tessel::Bridge::Platform::Emulated::State;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::filesystem::path& stateFile = KestrelFuzz::EmulatedPcStateFile();
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    {
        std::ofstream out(stateFile, std::ios::binary | std::ios::trunc);
        out << bytes;
    }
    const EmulatedPc pc(stateFile);
    State before;
    try {
        before = pc.Read();
        const auto mouse = Tessel::Bridge::Platform::CreateMouseSettings();
        int speed = 0;
        Require(mouse->GetSpeed(speed), "a readable PC has a speed");
        const int newSpeed = speed % 20 + 1 + (speed % 20 < 0 ? 20 : 0);
        Require(mouse->SetSpeed(newSpeed), "a speed from 1 to 20 is kept");
        before["mouse"]["speed"] = newSpeed;
    } catch (const EmulatedPcError& e) {
        Require(std::string(e.what()).find("is malformed") != std::string::npos, "the malformed-file error");
        Require(KestrelFuzz::FileBytes(stateFile) == bytes, "a malformed file is left byte-identical");
        return 0;
    }
    const std::string written = KestrelFuzz::FileBytes(stateFile);
    Require(State::accept(written), "the written file is JSON");
    Require(pc.Read() == before, "the written file reads back as the state meant");
    return 0;
}
