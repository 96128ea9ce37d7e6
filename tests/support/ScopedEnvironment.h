#pragma once

#include "support/ProcessRunner.h"

#include <cstdlib>
#include <optional>
#include <string>

namespace KestrelTest {

// Sets (or with nothing, removes) an environment variable of this process
// until the object goes.
class ScopedEnvironment {
public:
    ScopedEnvironment(const char* name, const std::optional<std::string>& value) : name_(name)
    {
        if (const char* old = std::getenv(name)) old_ = old;
        SetOwnEnvironment({name_, value});
    }
    ~ScopedEnvironment() { SetOwnEnvironment({name_, old_}); }
    ScopedEnvironment(const ScopedEnvironment&) = delete;
    ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;

private:
    std::string name_;
    std::optional<std::string> old_;
};

} // namespace KestrelTest
