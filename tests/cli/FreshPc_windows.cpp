#include "FreshPc.h"

namespace KestrelTest {

// The prefix is made fresh for each test run; the tests that change the
// mouse put it back as they found it.
struct FreshPc::Storage {};

FreshPc::FreshPc() = default;
FreshPc::~FreshPc() = default;

std::vector<EnvironmentChange> FreshPc::Environment() const
{
    return {};
}

} // namespace KestrelTest
