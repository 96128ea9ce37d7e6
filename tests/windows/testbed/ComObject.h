#pragma once

#include <windows.h>
#include <unknwn.h>

#include <atomic>

namespace KestrelTestBed {

// One interface's reference count; the last Release (never delete) deletes.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor"
template <typename Interface>
class Object : public Interface {
public:
    virtual ~Object() = default;
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** out) override
    {
        if (out == nullptr) return E_POINTER;
        *out = iid == IID_IUnknown || iid == __uuidof(Interface) ? static_cast<Interface*>(this) : nullptr;
        if (*out == nullptr) return E_NOINTERFACE;
        return AddRef(), S_OK;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return ++references_; }
    ULONG STDMETHODCALLTYPE Release() override
    {
        const ULONG left = --references_;
        if (left == 0) delete this;
        return left;
    }

private:
    std::atomic<ULONG> references_{1};
};
#pragma GCC diagnostic pop

} // namespace KestrelTestBed
