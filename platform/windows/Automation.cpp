#include "platform/ShellAndAutomation.h"

#include "platform/common/StdioFile.h"
#include "platform/windows/ComPtr.h"

#include <windows.h>

#include <oaidl.h>
#include <oleauto.h>
#include <share.h>
#include <shellapi.h>

#include <memory>

namespace Tessel::Bridge::Platform {
namespace {

using Windows::ComPtr;

static_assert(IAutomationObject::kUnknownMember == DISPID_UNKNOWN);
static_assert(CLSCTX_SERVER == 0x15);
static_assert(LOCALE_USER_DEFAULT == 0x400);
static_assert(DISPID_PROPERTYPUT == -3);

// A VARIANT cleared when it goes.
struct ClearedVariant {
    VARIANT value;
    ClearedVariant() { VariantInit(&value); }
    ClearedVariant(const ClearedVariant&) = delete;
    ClearedVariant& operator=(const ClearedVariant&) = delete;
    ~ClearedVariant() { VariantClear(&value); }
};

struct BstrFree {
    void operator()(BSTR text) const { SysFreeString(text); }
};
using UniqueBstr = std::unique_ptr<OLECHAR, BstrFree>;

class DispatchObject final : public IAutomationObject {
public:
    explicit DispatchObject(ComPtr<IDispatch> object) : object_(std::move(object)) {}

    std::int32_t MemberId(const std::wstring& name) override
    {
        LPOLESTR names[] = {const_cast<LPOLESTR>(name.c_str())};
        DISPID member = DISPID_UNKNOWN;
        if (FAILED(object_->GetIDsOfNames(IID_NULL, names, 1, LOCALE_USER_DEFAULT, &member))) member = DISPID_UNKNOWN;
        return member;
    }

    std::unique_ptr<IAutomationObject> GetObjectProperty(std::int32_t member) override
    {
        ClearedVariant result;
        Invoke(member, DISPATCH_PROPERTYGET, nullptr, result.value);
        return TakeObject(result.value);
    }

    std::int32_t GetIntegerProperty(std::int32_t member) override
    {
        ClearedVariant result;
        Invoke(member, DISPATCH_PROPERTYGET, nullptr, result.value);
        ClearedVariant integer;
        if (FAILED(VariantChangeType(&integer.value, &result.value, 0, VT_I4))) return 0;
        return V_I4(&integer.value);
    }

    std::unique_ptr<IAutomationObject> CallMethod(std::int32_t member, const std::optional<std::wstring>& text) override
    {
        ClearedVariant result;
        if (!text) {
            Invoke(member, DISPATCH_METHOD, nullptr, result.value);
            return TakeObject(result.value);
        }
        // SysAllocString: the text up to its first zero character.
        const UniqueBstr argument(SysAllocString(text->c_str()));
        VARIANT arguments[1];
        VariantInit(&arguments[0]);
        V_VT(&arguments[0]) = VT_BSTR;
        V_BSTR(&arguments[0]) = argument.get();
        DISPPARAMS parameters{arguments, nullptr, 1, 0};
        Invoke(member, DISPATCH_METHOD, &parameters, result.value);
        return TakeObject(result.value);
    }

    void PutBooleanProperty(std::int32_t member, bool value) override
    {
        VARIANT arguments[1];
        VariantInit(&arguments[0]);
        V_VT(&arguments[0]) = VT_BOOL;
        V_BOOL(&arguments[0]) = value ? VARIANT_TRUE : VARIANT_FALSE;
        DISPID named[] = {DISPID_PROPERTYPUT};
        DISPPARAMS parameters{arguments, named, 1, 1};
        object_->Invoke(member, IID_NULL, LOCALE_USER_DEFAULT, DISPATCH_PROPERTYPUT, &parameters, nullptr, nullptr, nullptr);
    }

private:
    void Invoke(DISPID member, WORD flags, DISPPARAMS* parameters, VARIANT& result)
    {
        DISPPARAMS none{nullptr, nullptr, 0, 0};
        object_->Invoke(member, IID_NULL, LOCALE_USER_DEFAULT, flags, parameters ? parameters : &none, &result, nullptr,
                        nullptr);
    }

    static std::unique_ptr<IAutomationObject> TakeObject(VARIANT& result)
    {
        if (V_VT(&result) != VT_DISPATCH || V_DISPATCH(&result) == nullptr) return nullptr;
        // The reference moves from the result to the new object.
        ComPtr<IDispatch> object(V_DISPATCH(&result));
        V_VT(&result) = VT_EMPTY;
        return std::make_unique<DispatchObject>(std::move(object));
    }

    ComPtr<IDispatch> object_;
};

class ComAutomation final : public IAutomation {
public:
    void InitializeCom() override { CoInitialize(nullptr); }
    void UninitializeCom() override { CoUninitialize(); }

    std::unique_ptr<IAutomationObject> CreateApplication(const std::wstring& programId) override
    {
        // An unknown id leaves the null class, which the creation then refuses.
        CLSID type{};
        CLSIDFromProgID(programId.c_str(), &type);
        ComPtr<IDispatch> application;
        if (FAILED(CoCreateInstance(type, nullptr, CLSCTX_SERVER, IID_IDispatch, application.PutVoid())) || !application) {
            return nullptr;
        }
        return std::make_unique<DispatchObject>(std::move(application));
    }
};

class Win32Desktop final : public IDesktop {
public:
    std::optional<std::string> ReadTextFile(const std::wstring& path) override
    {
        const UniqueStdioFile file(_wfsopen(path.c_str(), L"rt", _SH_DENYNO));
        if (!file) return std::nullopt;
        return ReadRemaining(file.get());
    }

    void SetForeground(std::intptr_t window) override { SetForegroundWindow(reinterpret_cast<HWND>(window)); }
    void Show(std::intptr_t window, int command) override { ShowWindow(reinterpret_cast<HWND>(window), command); }

    std::intptr_t Execute(const std::wstring& verb, const std::wstring& file, const std::wstring& parameters,
                          int showCommand) override
    {
        return reinterpret_cast<std::intptr_t>(
            ShellExecuteW(nullptr, verb.c_str(), file.c_str(), parameters.c_str(), nullptr, showCommand));
    }
};

} // namespace

std::unique_ptr<IAutomation> CreateAutomation()
{
    return std::make_unique<ComAutomation>();
}

std::unique_ptr<IDesktop> CreateDesktopShell()
{
    return std::make_unique<Win32Desktop>();
}

} // namespace Tessel::Bridge::Platform
