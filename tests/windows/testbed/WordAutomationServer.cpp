// The word processor's automation server of the Wine prefix: the objects the
// document writer reaches, each an IDispatch knowing its members by name. When
// the application is let go it writes the calls it got to standard output, as
// "Object.Property", "Object.Method(arguments)" or "Object.Property=value",
// marking a wrong locale or named arguments, and objects still held.
#include "ComObject.h"

#include <windows.h>

#include <oaidl.h>
#include <oleauto.h>

#include <algorithm>
#include <iterator>
#include <string>

namespace {

using KestrelTestBed::Object;

// {5B7E6D0C-94A1-4C3E-8F2B-6A1D0E9C7B31}, registered as Word.Application.
constexpr CLSID kClassId{0x5b7e6d0c, 0x94a1, 0x4c3e, {0x8f, 0x2b, 0x6a, 0x1d, 0x0e, 0x9c, 0x7b, 0x31}};
constexpr const wchar_t* kNames[] = {L"Documents", L"Add", L"Selection", L"TypeText", L"TypeParagraph",
                                     L"ActiveDocument", L"Visible", L"ActiveWindow", L"Hwnd"};
// The object each member hands out.
constexpr const wchar_t* kMade[] = {L"Documents", L"Document", L"Selection", nullptr, nullptr,
                                    L"Document", nullptr, L"Window", nullptr};

std::wstring calls;
int live = 0;

std::wstring Describe(const VARIANT& value)
{
    if (V_VT(&value) == VT_BOOL) return std::to_wstring(V_BOOL(&value));
    if (V_VT(&value) != VT_BSTR) return L"vt" + std::to_wstring(V_VT(&value));
    return L"\"" + std::wstring(V_BSTR(&value), SysStringLen(V_BSTR(&value))) + L"\"";
}

void WriteCalls()
{
    const std::wstring line = calls + (live != 0 ? L" live=" + std::to_wstring(live) : L"") + L"\r\n";
    char bytes[4096];
    const int size = WideCharToMultiByte(CP_UTF8, 0, line.c_str(), static_cast<int>(line.size()), bytes, sizeof bytes, nullptr, nullptr);
    DWORD written = 0;
    WriteFile(GetStdHandle(STD_OUTPUT_HANDLE), bytes, static_cast<DWORD>(size), &written, nullptr);
}

class Dispatch final : public Object<IDispatch> {
public:
    explicit Dispatch(std::wstring kind) : kind_(std::move(kind)) { ++live; }
    ~Dispatch() override
    {
        --live;
        if (kind_ == L"Application") WriteCalls();
    }

    HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT* count) override { return *count = 0, S_OK; }
    HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT, LCID, ITypeInfo**) override { return E_NOTIMPL; }

    HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID, LPOLESTR* names, UINT count, LCID, DISPID* ids) override
    {
        // One name at a time, as the document writer asks.
        const auto found = std::find_if(std::begin(kNames), std::end(kNames), [&](const wchar_t* name) { return _wcsicmp(name, names[0]) == 0; });
        *ids = found == std::end(kNames) ? DISPID_UNKNOWN : static_cast<DISPID>(found - std::begin(kNames)) + 1;
        return count != 1 || *ids == DISPID_UNKNOWN ? DISP_E_UNKNOWNNAME : S_OK;
    }

    HRESULT STDMETHODCALLTYPE Invoke(DISPID member, REFIID iid, LCID locale, WORD flags, DISPPARAMS* parameters,
                                     VARIANT* result, EXCEPINFO*, UINT*) override
    {
        if (member < 1 || member > static_cast<DISPID>(std::size(kNames))) return DISP_E_MEMBERNOTFOUND;
        const std::wstring name = kNames[member - 1];
        std::wstring arguments;
        for (UINT i = parameters->cArgs; i > 0; --i) arguments += (i < parameters->cArgs ? L"," : L"") + Describe(parameters->rgvarg[i - 1]);
        calls += (calls.empty() ? L"" : L" ") + kind_ + L"." + name;
        if (flags == DISPATCH_METHOD) calls += L"(" + arguments + L")";
        if (flags == DISPATCH_PROPERTYPUT) calls += L"=" + arguments;
        if (flags != DISPATCH_PROPERTYGET && flags != DISPATCH_METHOD && flags != DISPATCH_PROPERTYPUT) calls += L"?" + std::to_wstring(flags);
        const bool put = flags == DISPATCH_PROPERTYPUT;
        if (parameters->cNamedArgs != (put ? 1u : 0u) || (put && parameters->rgdispidNamedArgs[0] != DISPID_PROPERTYPUT)) calls += L"!named";
        if (locale != LOCALE_USER_DEFAULT || iid != IID_NULL) calls += L"!lcid";
        if (result == nullptr) return S_OK;

        if (kMade[member - 1] != nullptr) {
            V_VT(result) = VT_DISPATCH, V_DISPATCH(result) = new Dispatch(kMade[member - 1]);
        } else if (name == L"Hwnd") {
            V_VT(result) = VT_I4, V_I4(result) = 0x00230C4E;
        }
        return S_OK;
    }

private:
    std::wstring kind_;
};

class Factory final : public Object<IClassFactory> {
public:
    HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* outer, REFIID iid, void** object) override
    {
        if (outer != nullptr) return CLASS_E_NOAGGREGATION;
        IDispatch* application = new Dispatch(L"Application");
        const HRESULT result = application->QueryInterface(iid, object);
        application->Release();
        return result;
    }
    HRESULT STDMETHODCALLTYPE LockServer(BOOL) override { return S_OK; }
};

} // namespace

STDAPI DllGetClassObject(REFCLSID clsid, REFIID iid, void** object)
{
    if (clsid != kClassId) return CLASS_E_CLASSNOTAVAILABLE;
    IClassFactory* factory = new Factory;
    const HRESULT result = factory->QueryInterface(iid, object);
    factory->Release();
    return result;
}

STDAPI DllCanUnloadNow()
{
    return S_FALSE;
}
