#include "FreshPc.h"

#include "emulated/EmulatedTestSupport.h"
#include "support/TempDirectory.h"

namespace KestrelTest {

struct FreshPc::Storage {
    TempDirectory directory;
    std::filesystem::path StateFile() const { return directory / "pc.json"; }
};

FreshPc::FreshPc() : storage_(std::make_unique<Storage>()) {}
FreshPc::~FreshPc() = default;

std::vector<EnvironmentChange> FreshPc::Environment() const
{
    return {{"KESTREL_EMULATED_PC", storage_->StateFile().string()}};
}

void FreshPc::SetStoredState(const std::string& bytes)
{
    WriteFileBytes(storage_->StateFile(), bytes);
}

std::string FreshPc::StoredState() const
{
    return std::filesystem::exists(storage_->StateFile()) ? ReadFileBytes(storage_->StateFile()) : std::string();
}

} // namespace KestrelTest
