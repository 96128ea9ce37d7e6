#include "FreshPc.h"

#include "support/TempDirectory.h"

namespace KestrelTest {

struct FreshPc::Storage {
    TempDirectory directory;
};

FreshPc::FreshPc() : storage_(std::make_unique<Storage>()) {}
FreshPc::~FreshPc() = default;

std::vector<EnvironmentChange> FreshPc::Environment() const
{
    return {{"KESTREL_EMULATED_PC", (storage_->directory / "pc.json").string()}};
}

} // namespace KestrelTest
