#pragma once

#include "support/ProcessRunner.h"

#include <memory>
#include <vector>

namespace KestrelTest {

// A PC as it comes out of the box, for one test: on the host a new emulated
// PC; under Wine the test run's freshly booted prefix.
class FreshPc {
public:
    FreshPc();
    ~FreshPc();
    FreshPc(const FreshPc&) = delete;
    FreshPc& operator=(const FreshPc&) = delete;

    // What a program started for this test needs in its environment.
    std::vector<EnvironmentChange> Environment() const;

private:
    struct Storage;
    std::unique_ptr<Storage> storage_;
};

} // namespace KestrelTest
