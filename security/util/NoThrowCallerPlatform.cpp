#include "security/util/NoThrowCallerPlatform.h"

#include <utility>

namespace Tessel::Bridge::Security {
namespace {

using Platform::NativeHandle;

class NoThrowCallerPlatform final : public Platform::ICallerPlatform {
public:
    explicit NoThrowCallerPlatform(std::shared_ptr<Platform::ICallerPlatform> inner) : inner_(std::move(inner)) {}

    std::int32_t QueryCallClientProcessId(std::uint32_t& processId) override
    {
        return Guard(static_cast<std::int32_t>(kPlatformThrew), [&] { return inner_->QueryCallClientProcessId(processId); });
    }
    NativeHandle OpenProcessById(std::uint32_t access, std::uint32_t processId) override
    {
        return Guard(NativeHandle{}, [&] { return inner_->OpenProcessById(access, processId); });
    }
    NativeHandle DuplicateIntoThisProcess(NativeHandle source, std::uint32_t access) override
    {
        return Guard(NativeHandle{}, [&] { return inner_->DuplicateIntoThisProcess(source, access); });
    }
    void CloseNativeHandle(NativeHandle handle) override
    {
        Guard(0, [&] { return inner_->CloseNativeHandle(handle), 0; });
    }
    std::int32_t ImpersonateCaller() override
    {
        return Guard(static_cast<std::int32_t>(kPlatformThrew), [&] { return inner_->ImpersonateCaller(); });
    }
    std::int32_t RevertImpersonation() override
    {
        return Guard(static_cast<std::int32_t>(kPlatformThrew), [&] { return inner_->RevertImpersonation(); });
    }
    std::int32_t PackageFamilyName(NativeHandle process, std::uint32_t& length, wchar_t* name) override
    {
        return Guard(static_cast<std::int32_t>(kPlatformThrew), [&] { return inner_->PackageFamilyName(process, length, name); });
    }
    NativeHandle OpenToken(NativeHandle process, std::uint32_t access) override
    {
        return Guard(NativeHandle{}, [&] { return inner_->OpenToken(process, access); });
    }
    bool ExpandForUser(NativeHandle token, const wchar_t* source, wchar_t* destination, std::uint32_t size) override
    {
        return Guard(false, [&] { return inner_->ExpandForUser(token, source, destination, size); });
    }
    std::uint32_t ExpandInProcess(const wchar_t* source, wchar_t* destination, std::uint32_t size) override
    {
        return Guard(std::uint32_t{0}, [&] { return inner_->ExpandInProcess(source, destination, size); });
    }
    std::uint32_t FullPath(const wchar_t* path, std::uint32_t size, wchar_t* buffer) override
    {
        return Guard(std::uint32_t{0}, [&] { return inner_->FullPath(path, size, buffer); });
    }
    std::uint32_t LastError() override
    {
        if (threw_) return kPlatformThrew;
        return Guard(kPlatformThrew, [&] { return inner_->LastError(); });
    }

private:
    // The last call of this thread threw; its last error is ours to give.
    static thread_local bool threw_;

    template <typename Result, typename Call>
    static Result Guard(Result failed, Call&& call) noexcept
    {
        threw_ = false;
        try {
            return call();
        } catch (...) {
            threw_ = true;
            return failed;
        }
    }

    std::shared_ptr<Platform::ICallerPlatform> inner_;
};

thread_local bool NoThrowCallerPlatform::threw_ = false;

} // namespace

std::shared_ptr<Platform::ICallerPlatform> NoThrow(std::shared_ptr<Platform::ICallerPlatform> platform)
{
    return std::make_shared<NoThrowCallerPlatform>(std::move(platform));
}

} // namespace Tessel::Bridge::Security
