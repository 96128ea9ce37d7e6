// COM objects of the test beds: reference counting for one interface.
#pragma once

#include <windows.h>
#include <unknwn.h>

#include <atomic>

namespace KestrelTestBed {

// Reference counting for one interface; the last Release deletes the object.
// Objects go through Release only, never through an interface pointer's delete.
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
        AddRef();
        return S_OK;
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
