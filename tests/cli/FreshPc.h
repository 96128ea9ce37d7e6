#pragma once

#include "support/ProcessRunner.h"

#include <memory>
#include <string>
#include <vector>

namespace KestrelTest {

// A PC as it comes out of the box, for one test: on the host a new emulated
// PC; under Wine the test run's freshly booted prefix, whose mouse buttons are
// put back as they were found when the object goes, with camera defaults of its own.
class FreshPc {
public:
    FreshPc();
    ~FreshPc();
    FreshPc(const FreshPc&) = delete;
    FreshPc& operator=(const FreshPc&) = delete;

    // What a program started for this test needs in its environment.
    std::vector<EnvironmentChange> Environment() const;

    // The PC's stored state as bytes, and a way to start from given bytes. On
    // the host that is the state file (empty when there is none); under Wine
    // the state lives in the prefix's registry and is not snapshotted, so both
    // do nothing there.
    void SetStoredState(const std::string& bytes);
    std::string StoredState() const;

private:
    struct Storage;
    std::unique_ptr<Storage> storage_;
};

} // namespace KestrelTest
