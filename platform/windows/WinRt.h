#pragma once

// Plumbing for calling Windows Runtime classes through their ABI: HSTRING
// ownership, activation, and waiting for asynchronous operations. Everything
// here answers HRESULTs; callers decide how failures are reported.

#include "platform/ResultException.h"
#include "platform/windows/ComPtr.h"
#include "platform/windows/UniqueHandle.h"
#include "platform/windows/WinRtCapture.h"

#include <objbase.h>
#include <objidl.h>
#include <roapi.h>
#include <winstring.h>

#include <cstdint>
#include <mutex>
#include <new>
#include <string>
#include <string_view>

namespace Tessel::Bridge::Platform::Windows::WinRt {

struct HStringTraits {
    using Type = HSTRING;
    static Type Empty() noexcept { return nullptr; }
    // Null is the empty string; there is nothing to delete.
    static bool IsValid(Type text) noexcept { return text != nullptr; }
    static void Close(Type text) noexcept { ::WindowsDeleteString(text); }
};

using UniqueHString = UniqueResource<HStringTraits>;

namespace Detail {

// GetLastError as an HRESULT that never reads as success.
inline HRESULT LastErrorResult() noexcept
{
    const DWORD error = ::GetLastError();
    return error != ERROR_SUCCESS ? HRESULT_FROM_WIN32(error) : E_FAIL;
}

inline HRESULT StatusOf(::IUnknown& operation, ComPtr<::IAsyncInfo>& info, AsyncStatus& status) noexcept
{
    const HRESULT hr = operation.QueryInterface(__uuidof(::IAsyncInfo), info.PutVoid());
    if (FAILED(hr)) return hr;
    return info->get_Status(&status);
}

inline HRESULT OutcomeOf(::IAsyncInfo& info) noexcept
{
    AsyncStatus status{};
    HRESULT hr = info.get_Status(&status);
    if (FAILED(hr)) return hr;
    switch (status) {
    case AsyncStatus::Completed:
        return S_OK;
    case AsyncStatus::Canceled:
        return kCanceled;
    case AsyncStatus::Error: {
        HRESULT error = S_OK;
        hr = info.get_ErrorCode(&error);
        if (FAILED(hr)) return hr;
        // An operation that ended in error must not read as a success.
        return FAILED(error) ? error : E_FAIL;
    }
    default:
        // Signalled while still running.
        return kUnexpected;
    }
}

// The completion delegate of one operation: signals an event when invoked.
// Agile, because operations may complete on any thread. Released through
// Release like any COM object, never deleted through its interface.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor"
template <typename Operation, typename Handler>
class CompletionSignal final : public Handler {
public:
    explicit CompletionSignal(UniqueHandle event) noexcept : event_(std::move(event)) {}

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** out) override
    {
        if (iid == __uuidof(::IUnknown) || iid == __uuidof(Handler) || iid == __uuidof(::IAgileObject)) {
            *out = static_cast<Handler*>(this);
            AddRef();
            return S_OK;
        }
        *out = nullptr;
        return E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return static_cast<ULONG>(::InterlockedIncrement(&references_)); }
    ULONG STDMETHODCALLTYPE Release() override
    {
        const auto left = static_cast<ULONG>(::InterlockedDecrement(&references_));
        if (left == 0) delete this;
        return left;
    }
    HRESULT STDMETHODCALLTYPE Invoke(Operation*, AsyncStatus) override
    {
        return ::SetEvent(event_.Get()) ? S_OK : LastErrorResult();
    }

    HANDLE Event() const noexcept { return event_.Get(); }

private:
    ~CompletionSignal() = default;

    LONG references_ = 1;
    UniqueHandle event_;
};
#pragma GCC diagnostic pop

// Joins the process's multithreaded apartment once; the cookie is never given
// back, so the apartment lasts as long as the process. Looked up at run time:
// it is only needed on threads nobody initialised.
inline HRESULT JoinMultithreadedApartment() noexcept
{
    static std::mutex lock;
    static CO_MTA_USAGE_COOKIE cookie = nullptr;
    const std::lock_guard<std::mutex> guard(lock);
    if (cookie != nullptr) return S_OK;

    HMODULE combase = ::GetModuleHandleW(L"combase.dll");
    if (combase == nullptr) combase = ::LoadLibraryW(L"combase.dll");
    const FARPROC found = combase != nullptr ? ::GetProcAddress(combase, "CoIncrementMTAUsage") : nullptr;
    if (found == nullptr) return CO_E_NOTINITIALIZED;
    using IncrementMtaUsage = HRESULT(WINAPI*)(CO_MTA_USAGE_COOKIE*);
    // Through void(*)(): the one function type any function pointer converts from without a warning.
    const auto increment = reinterpret_cast<IncrementMtaUsage>(reinterpret_cast<void (*)()>(found));
    return increment(&cookie);
}

template <typename Activation>
inline HRESULT InApartment(Activation activate) noexcept
{
    const HRESULT hr = activate();
    if (hr != CO_E_NOTINITIALIZED) return hr;
    const HRESULT joined = JoinMultithreadedApartment();
    return FAILED(joined) ? joined : activate();
}

} // namespace Detail

inline HRESULT CreateHString(std::wstring_view text, UniqueHString& out) noexcept
{
    if (text.size() > UINT32_MAX) return E_INVALIDARG;
    return ::WindowsCreateString(text.data(), static_cast<UINT32>(text.size()), out.Put());
}

inline std::wstring ToWString(HSTRING text)
{
    UINT32 length = 0;
    const wchar_t* characters = ::WindowsGetStringRawBuffer(text, &length);
    return std::wstring(characters, length);
}

// RoGetActivationFactory and RoActivateInstance. The process never initialises
// COM itself: on a thread outside any apartment (CO_E_NOTINITIALIZED) the
// process joins the multithreaded apartment for the rest of its life and the
// activation is tried once more.
inline HRESULT GetActivationFactory(const wchar_t* classId, REFIID iid, void** factory) noexcept
{
    UniqueHString name;
    const HRESULT hr = CreateHString(classId, name);
    if (FAILED(hr)) return hr;
    return Detail::InApartment([&] { return ::RoGetActivationFactory(name.Get(), iid, factory); });
}

inline HRESULT ActivateInstance(const wchar_t* classId, ComPtr<::IInspectable>& instance) noexcept
{
    UniqueHString name;
    const HRESULT hr = CreateHString(classId, name);
    if (FAILED(hr)) return hr;
    return Detail::InApartment([&] { return ::RoActivateInstance(name.Get(), instance.Put()); });
}

// Waits, without a time-out, until the operation has finished. S_OK when it
// completed; the canceled code or the operation's own error code otherwise.
// The results are still to be fetched with GetResults.
template <typename Handler, typename Operation>
HRESULT AwaitCompletion(Operation& operation) noexcept
{
    ComPtr<::IAsyncInfo> info;
    AsyncStatus status{};
    HRESULT hr = Detail::StatusOf(operation, info, status);
    if (FAILED(hr)) return hr;
    if (status != AsyncStatus::Completed) {
        UniqueHandle event(::CreateEventW(nullptr, TRUE, FALSE, nullptr));
        if (!event) return Detail::LastErrorResult();
        ComPtr<Detail::CompletionSignal<Operation, Handler>> signal(
            new (std::nothrow) Detail::CompletionSignal<Operation, Handler>(std::move(event)));
        if (!signal) return E_OUTOFMEMORY;
        hr = operation.put_Completed(signal.Get());
        if (FAILED(hr)) return hr;
        if (::WaitForSingleObject(signal->Event(), INFINITE) != WAIT_OBJECT_0) return Detail::LastErrorResult();
    }
    return Detail::OutcomeOf(*info.Get());
}

} // namespace Tessel::Bridge::Platform::Windows::WinRt
