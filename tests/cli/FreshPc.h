#pragma once

#include "emulated/EmulatedTestSupport.h"
#include "platform/MouseSettings.h"
#include "platform/RegistryAndServices.h"
#include "support/ProcessRunner.h"
#include "support/TempDirectory.h"

#include <string>
#include <vector>

namespace KestrelTest {

// A PC as it comes out of the box, for one test: on the host a new emulated
// PC; under Wine the test run's freshly booted prefix (shared by its tests,
// which run in it too) with its test beds installed, whose mouse buttons are
// put back as they were found, and notifications on, when the object goes.
class FreshPc {
public:
    FreshPc() = default;
    ~FreshPc()
    {
        if (emulated_) return;
        Tessel::Bridge::Platform::CreateMouseSettings()->SetSwapState(swapped_);
        const auto key = Tessel::Bridge::Platform::CreateRegistryAndServices()->OpenCurrentUserKey(
            L"Software\\Microsoft\\Windows\\CurrentVersion\\PushNotifications", 0xF003F);
        if (key) key->SetDwordValue(L"ToastEnabled", 1);
    }
    FreshPc(const FreshPc&) = delete;
    FreshPc& operator=(const FreshPc&) = delete;

    // What a program started for this test needs in its environment.
    std::vector<EnvironmentChange> Environment() const
    {
        return emulated_ ? std::vector<EnvironmentChange>{{"KESTREL_EMULATED_PC", StateFile().string()}} : std::vector<EnvironmentChange>{};
    }

    // The PC's stored state as bytes (empty when there is none), and a way to
    // start from given bytes. Under Wine the state lives in the prefix's
    // registry and is not snapshotted: both do nothing there.
    void SetStoredState(const std::string& bytes) const
    {
        if (emulated_) WriteFileBytes(StateFile(), bytes);
    }
    std::string StoredState() const { return std::filesystem::exists(StateFile()) ? ReadFileBytes(StateFile()) : std::string(); }

private:
    std::filesystem::path StateFile() const { return directory_ / "pc.json"; }

    const bool emulated_ = kLineEnd == "\n";
    const bool swapped_ = !emulated_ && Tessel::Bridge::Platform::CreateMouseSettings()->GetSwapState() != 0;
    TempDirectory directory_;
};

} // namespace KestrelTest
