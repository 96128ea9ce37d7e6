// A word processor's automation server for the Wine prefix: the objects the
// document writer reaches (Application, Documents, Document, Selection,
// Window), each an IDispatch that knows its members by name. Every lookup, call
// and final release is appended as one line to WordAutomationServer.log beside
// the DLL:
//   <object> lookup <name> <lcid> <riid null?>
//   <object> invoke <name|id> flags=<n> lcid=<hex> args=[<type>:<value>,...] named=[...] <out-pointers>
//   <object> released
// Text arguments are written with every character outside printable ASCII as \uXXXX.
#include "ComObject.h"

#include <windows.h>

#include <oaidl.h>
#include <oleauto.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

namespace {

using KestrelTestBed::Object;

// {5B7E6D0C-94A1-4C3E-8F2B-6A1D0E9C7B31}, registered by the tests.
constexpr CLSID kClassId{0x5b7e6d0c, 0x94a1, 0x4c3e, {0x8f, 0x2b, 0x6a, 0x1d, 0x0e, 0x9c, 0x7b, 0x31}};
constexpr LONG kWindowHandle = 0x00230C4E;
constexpr const wchar_t* kNames[] = {L"Documents", L"Add", L"Selection", L"TypeText", L"TypeParagraph",
                                     L"ActiveDocument", L"Visible", L"ActiveWindow", L"Hwnd"};

HMODULE self = nullptr;

void Log(const std::string& line)
{
    wchar_t path[MAX_PATH] = {};
    GetModuleFileNameW(self, path, MAX_PATH);
    std::ofstream(std::filesystem::path(path).replace_extension(L".log"), std::ios::app | std::ios::binary) << line << "\n";
}

std::string Hex(unsigned long value)
{
    char text[16];
    std::snprintf(text, sizeof text, "%lx", value);
    return text;
}

std::string Narrow(const wchar_t* text, std::size_t length)
{
    std::string out;
    for (std::size_t i = 0; i < length; ++i) {
        char escaped[8];
        if (text[i] >= 0x20 && text[i] < 0x7f) {
            out += static_cast<char>(text[i]);
        } else {
            std::snprintf(escaped, sizeof escaped, "\\u%04x", static_cast<unsigned>(text[i]));
            out += escaped;
        }
    }
    return out;
}

std::string Describe(const VARIANT& value)
{
    switch (V_VT(&value)) {
    case VT_BSTR: return "BSTR:\"" + Narrow(V_BSTR(&value), SysStringLen(V_BSTR(&value))) + "\"";
    case VT_BOOL: return "BOOL:" + std::to_string(V_BOOL(&value));
    default: return "vt" + std::to_string(V_VT(&value));
    }
}

class Dispatch final : public Object<IDispatch> {
public:
    explicit Dispatch(const char* kind) : kind_(kind) {}
    ~Dispatch() override { Log(kind_ + " released"); }

    HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT* count) override
    {
        *count = 0;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT, LCID, ITypeInfo**) override { return E_NOTIMPL; }

    HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID iid, LPOLESTR* names, UINT count, LCID locale, DISPID* ids) override
    {
        HRESULT result = S_OK;
        for (UINT i = 0; i < count; ++i) {
            Log(kind_ + " lookup " + Narrow(names[i], wcslen(names[i])) + " lcid=" + Hex(locale) +
                (iid == IID_NULL ? "" : " iid-not-null"));
            ids[i] = DISPID_UNKNOWN;
            for (DISPID id = 0; id < static_cast<DISPID>(std::size(kNames)); ++id) {
                if (_wcsicmp(names[i], kNames[id]) == 0) ids[i] = id + 1;
            }
            if (ids[i] == DISPID_UNKNOWN) result = DISP_E_UNKNOWNNAME;
        }
        return result;
    }

    HRESULT STDMETHODCALLTYPE Invoke(DISPID member, REFIID iid, LCID locale, WORD flags, DISPPARAMS* parameters,
                                     VARIANT* result, EXCEPINFO* exception, UINT* argumentError) override
    {
        const bool known = member >= 1 && member <= static_cast<DISPID>(std::size(kNames));
        const std::string name = known ? Narrow(kNames[member - 1], wcslen(kNames[member - 1])) : std::to_string(member);
        std::string line = kind_ + " invoke " + name + " flags=" + std::to_string(flags) + " lcid=" + Hex(locale) + " args=[";
        for (UINT i = 0; parameters != nullptr && i < parameters->cArgs; ++i) {
            line += i ? "," : "";
            line += Describe(parameters->rgvarg[i]);
        }
        line += "] named=[";
        for (UINT i = 0; parameters != nullptr && i < parameters->cNamedArgs; ++i) {
            line += i ? "," : "";
            line += std::to_string(parameters->rgdispidNamedArgs[i]);
        }
        line += "]";
        if (iid != IID_NULL) line += " iid-not-null";
        if (exception != nullptr || argumentError != nullptr) line += " error-outputs";
        Log(line);
        if (!known) return DISP_E_MEMBERNOTFOUND;

        const char* made = nullptr;
        if (kind_ == "Application" && name == "Documents") made = "Documents";
        if (kind_ == "Application" && name == "Selection") made = "Selection";
        if ((kind_ == "Application" && name == "ActiveDocument") || (kind_ == "Documents" && name == "Add")) made = "Document";
        if (kind_ == "Document" && name == "ActiveWindow") made = "Window";
        if (result != nullptr && made != nullptr) {
            V_VT(result) = VT_DISPATCH;
            V_DISPATCH(result) = new Dispatch(made);
        } else if (result != nullptr && kind_ == "Window" && name == "Hwnd") {
            V_VT(result) = VT_I4;
            V_I4(result) = kWindowHandle;
        }
        return S_OK;
    }

private:
    std::string kind_;
};

class Factory final : public Object<IClassFactory> {
public:
    HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* outer, REFIID iid, void** object) override
    {
        if (outer != nullptr) return CLASS_E_NOAGGREGATION;
        IDispatch* application = new Dispatch("Application");
        const HRESULT result = application->QueryInterface(iid, object);
        application->Release();
        return result;
    }
    HRESULT STDMETHODCALLTYPE LockServer(BOOL) override { return S_OK; }
};

} // namespace

BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID)
{
    if (reason == DLL_PROCESS_ATTACH) self = instance;
    return TRUE;
}

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
