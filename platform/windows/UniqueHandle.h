#pragma once

#include <windows.h>

#include <utility>

namespace Tessel::Bridge::Platform::Windows {

// Owns one platform handle and closes it exactly once. Traits give the handle
// type, its empty values and how it is closed.
template <typename Traits>
class UniqueResource {
public:
    using Type = typename Traits::Type;

    UniqueResource() noexcept = default;
    explicit UniqueResource(Type value) noexcept : value_(value) {}
    ~UniqueResource() { Reset(); }
    UniqueResource(UniqueResource&& other) noexcept : value_(other.Release()) {}
    UniqueResource& operator=(UniqueResource&& other) noexcept
    {
        if (this != &other) Reset(other.Release());
        return *this;
    }
    UniqueResource(const UniqueResource&) = delete;
    UniqueResource& operator=(const UniqueResource&) = delete;

    Type Get() const noexcept { return value_; }
    explicit operator bool() const noexcept { return Traits::IsValid(value_); }

    // For functions that hand out a new handle through a pointer.
    Type* Put() noexcept
    {
        Reset();
        return &value_;
    }

    Type Release() noexcept { return std::exchange(value_, Traits::Empty()); }

    void Reset(Type value = Traits::Empty()) noexcept
    {
        const Type old = std::exchange(value_, value);
        if (Traits::IsValid(old)) Traits::Close(old);
    }

private:
    Type value_ = Traits::Empty();
};

struct KernelHandleTraits {
    using Type = HANDLE;
    static Type Empty() noexcept { return nullptr; }
    // Some functions answer INVALID_HANDLE_VALUE, others null, for "none".
    static bool IsValid(Type handle) noexcept { return handle != nullptr && handle != INVALID_HANDLE_VALUE; }
    static void Close(Type handle) noexcept { ::CloseHandle(handle); }
};

using UniqueHandle = UniqueResource<KernelHandleTraits>;

struct RegistryKeyTraits {
    using Type = HKEY;
    static Type Empty() noexcept { return nullptr; }
    static bool IsValid(Type key) noexcept { return key != nullptr; }
    static void Close(Type key) noexcept { ::RegCloseKey(key); }
};

using UniqueRegistryKey = UniqueResource<RegistryKeyTraits>;

// A service control manager or a service.
struct ServiceHandleTraits {
    using Type = SC_HANDLE;
    static Type Empty() noexcept { return nullptr; }
    static bool IsValid(Type handle) noexcept { return handle != nullptr; }
    static void Close(Type handle) noexcept { ::CloseServiceHandle(handle); }
};

using UniqueServiceHandle = UniqueResource<ServiceHandleTraits>;

} // namespace Tessel::Bridge::Platform::Windows
