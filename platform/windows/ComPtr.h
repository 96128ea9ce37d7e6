#pragma once

#include <windows.h>
#include <unknwn.h>

#include <utility>

namespace Tessel::Bridge::Platform::Windows {

// Owns one reference to a COM (or Windows Runtime) object and releases it
// exactly once.
template <typename T>
class ComPtr {
public:
    ComPtr() noexcept = default;
    // Adopts a reference the caller already owns.
    explicit ComPtr(T* adopted) noexcept : ptr_(adopted) {}
    ComPtr(const ComPtr& other) noexcept : ptr_(other.ptr_)
    {
        if (ptr_ != nullptr) ptr_->AddRef();
    }
    ComPtr(ComPtr&& other) noexcept : ptr_(std::exchange(other.ptr_, nullptr)) {}
    ComPtr& operator=(ComPtr other) noexcept
    {
        std::swap(ptr_, other.ptr_);
        return *this;
    }
    ~ComPtr() { Reset(); }

    T* Get() const noexcept { return ptr_; }
    T* operator->() const noexcept { return ptr_; }
    explicit operator bool() const noexcept { return ptr_ != nullptr; }

    // For functions that hand out a new reference through a pointer.
    T** Put() noexcept
    {
        Reset();
        return &ptr_;
    }
    void** PutVoid() noexcept { return reinterpret_cast<void**>(Put()); }

    void Reset() noexcept
    {
        if (T* old = std::exchange(ptr_, nullptr)) old->Release();
    }

    // QueryInterface for another interface of the same object.
    template <typename U>
    HRESULT QueryTo(REFIID iid, ComPtr<U>& out) const noexcept
    {
        return ptr_->QueryInterface(iid, out.PutVoid());
    }

private:
    T* ptr_ = nullptr;
};

} // namespace Tessel::Bridge::Platform::Windows
