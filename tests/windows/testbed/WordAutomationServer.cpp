// The word processor's automation server for the Wine prefix: the objects the
// document writer reaches (Application, Documents, Document, Selection,
// Window), each an IDispatch that knows its members by name. When the
// application is let go, the calls it got are written, in order, as one line
// to standard output, ahead of the program's own line:
//   Object.Property  Object.Method(arguments)  Object.Property=value
// with "!lcid" or "!named" after a call made with the wrong locale or named
// arguments, and " live=N" when N objects are still held.
#include "ComObject.h"

#include <windows.h>

#include <oaidl.h>
#include <oleauto.h>

#include <cwchar>
#include <iterator>
#include <string>

namespace {

using KestrelTestBed::Object;

// {5B7E6D0C-94A1-4C3E-8F2B-6A1D0E9C7B31}, registered as Word.Application.
constexpr CLSID kClassId{0x5b7e6d0c, 0x94a1, 0x4c3e, {0x8f, 0x2b, 0x6a, 0x1d, 0x0e, 0x9c, 0x7b, 0x31}};
constexpr const wchar_t* kNames[] = {L"Documents", L"Add", L"Selection", L"TypeText", L"TypeParagraph",
                                     L"ActiveDocument", L"Visible", L"ActiveWindow", L"Hwnd"};

std::wstring calls;
int live = 0;

// Control characters as \xNN, so the line stays one line.
std::wstring Describe(const VARIANT& value)
{
    if (V_VT(&value) == VT_BOOL) return std::to_wstring(V_BOOL(&value));
    if (V_VT(&value) != VT_BSTR) return L"vt" + std::to_wstring(V_VT(&value));
    std::wstring text = L"\"";
    for (const wchar_t* c = V_BSTR(&value); c != V_BSTR(&value) + SysStringLen(V_BSTR(&value)); ++c) {
        wchar_t escaped[8];
        swprintf(escaped, 8, L"\\x%02x", static_cast<unsigned>(*c));
        text += *c < 0x20 ? escaped : std::wstring(1, *c);
    }
    return text + L"\"";
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

    HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT* count) override
    {
        *count = 0;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT, LCID, ITypeInfo**) override { return E_NOTIMPL; }

    HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID, LPOLESTR* names, UINT count, LCID, DISPID* ids) override
    {
        HRESULT result = S_OK;
        for (UINT i = 0; i < count; ++i) {
            ids[i] = DISPID_UNKNOWN;
            for (DISPID id = 0; id < static_cast<DISPID>(std::size(kNames)); ++id) {
                if (_wcsicmp(names[i], kNames[id]) == 0) ids[i] = id + 1;
            }
            if (ids[i] == DISPID_UNKNOWN) result = DISP_E_UNKNOWNNAME;
        }
        return result;
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

        const wchar_t* made = nullptr;
        if (kind_ == L"Application" && (name == L"Documents" || name == L"Selection")) made = name.c_str();
        if ((kind_ == L"Application" && name == L"ActiveDocument") || (kind_ == L"Documents" && name == L"Add")) made = L"Document";
        if (kind_ == L"Document" && name == L"ActiveWindow") made = L"Window";
        if (made != nullptr) {
            V_VT(result) = VT_DISPATCH;
            V_DISPATCH(result) = new Dispatch(made);
        } else if (kind_ == L"Window" && name == L"Hwnd") {
            V_VT(result) = VT_I4;
            V_I4(result) = 0x00230C4E;
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

// Never unloaded: it keeps no count of the objects it handed out.
STDAPI DllCanUnloadNow()
{
    return S_FALSE;
}
