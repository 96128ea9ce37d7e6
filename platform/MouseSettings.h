#pragma once

#include <memory>

namespace Tessel::Bridge::Platform {

// The signed-in user's mouse: pointer speed and primary button.
class IMouseSettings {
public:
    virtual ~IMouseSettings() = default;

    // Reads the pointer speed (1 slowest .. 20 fastest). Returns false when the
    // platform cannot read it; speed is then left as it was.
    virtual bool GetSpeed(int& speed) = 0;

    // Stores the pointer speed in the user's profile and tells running programs.
    // The platform is the judge of the value: false when it refuses.
    virtual bool SetSpeed(int speed) = 0;

    // The platform's swapped-buttons metric as it reports it: 0 when the left
    // button is primary, non-zero when the buttons are swapped.
    virtual int GetSwapState() = 0;

    // Makes the right (true) or the left (false) button primary. Returns whether
    // the buttons were swapped before the call.
    virtual bool SetSwapState(bool swapped) = 0;
};

// The mouse of the PC this program runs on.
std::unique_ptr<IMouseSettings> CreateMouseSettings();

} // namespace Tessel::Bridge::Platform
