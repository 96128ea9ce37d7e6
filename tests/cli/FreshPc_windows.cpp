#include "FreshPc.h"
#include "support/TempDirectory.h"

#include <windows.h>

namespace KestrelTest {

// The prefix is made fresh for each test run and shared by its tests, which
// run in this prefix too: the buttons are read and put back directly. The
// camera defaults stand-in keeps its store in a folder of the test's own.
struct FreshPc::Storage {
    bool swapped = GetSystemMetrics(SM_SWAPBUTTON) != 0;
    TempDirectory cameraDefaults;
};

FreshPc::FreshPc() : storage_(std::make_unique<Storage>()) {}

FreshPc::~FreshPc()
{
    SwapMouseButton(storage_->swapped ? TRUE : FALSE);
}

std::vector<EnvironmentChange> FreshPc::Environment() const
{
    return {{"KESTREL_TEST_CAMERA_DEFAULTS", storage_->cameraDefaults.Path().string()}};
}

void FreshPc::SetStoredState(const std::string&) {}

std::string FreshPc::StoredState() const
{
    return {};
}

} // namespace KestrelTest
