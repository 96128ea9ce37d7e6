#include "platform/MouseSettings.h"

#include "platform/emulated/EmulatedPc.h"

namespace Tessel::Bridge::Platform {
namespace {

using Emulated::EmulatedPc;
using Emulated::State;

// Windows keeps pointer speeds from 1 to 20 and refuses the rest.
constexpr int kSlowestSpeed = 1;
constexpr int kFastestSpeed = 20;

struct MouseState {
    int speed;
    bool buttonsSwapped;
};

MouseState ReadMouse(const EmulatedPc& pc, const State& state)
{
    return {pc.IntegerAt(state, "/mouse/speed"), pc.BooleanAt(state, "/mouse/buttonsSwapped")};
}

void WriteMouse(State& state, const MouseState& mouse)
{
    state["mouse"]["speed"] = mouse.speed;
    state["mouse"]["buttonsSwapped"] = mouse.buttonsSwapped;
}

class EmulatedMouseSettings final : public IMouseSettings {
public:
    explicit EmulatedMouseSettings(EmulatedPc pc) : pc_(std::move(pc)) {}

    bool GetSpeed(int& speed) override
    {
        speed = ReadMouse(pc_, pc_.Read()).speed;
        return true;
    }

    bool SetSpeed(int speed) override
    {
        if (speed < kSlowestSpeed || speed > kFastestSpeed) return false;
        pc_.Update([&](State& state) {
            MouseState mouse = ReadMouse(pc_, state);
            mouse.speed = speed;
            WriteMouse(state, mouse);
        });
        return true;
    }

    int GetSwapState() override { return ReadMouse(pc_, pc_.Read()).buttonsSwapped ? 1 : 0; }

    bool SetSwapState(bool swapped) override
    {
        bool before = false;
        pc_.Update([&](State& state) {
            MouseState mouse = ReadMouse(pc_, state);
            before = mouse.buttonsSwapped;
            mouse.buttonsSwapped = swapped;
            WriteMouse(state, mouse);
        });
        return before;
    }

private:
    EmulatedPc pc_;
};

} // namespace

std::unique_ptr<IMouseSettings> CreateMouseSettings()
{
    return std::make_unique<EmulatedMouseSettings>(EmulatedPc::FromEnvironment());
}

} // namespace Tessel::Bridge::Platform
