#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace Tessel::Bridge::Platform {

// The property store of one application in the applications folder.
class IApplicationProperties {
public:
    virtual ~IApplicationProperties() = default;
    virtual std::uint32_t Count() = 0;
    // The canonical name of the property at index ("System.Link.TargetParsingPath");
    // nothing when its key or name cannot be read.
    virtual std::optional<std::wstring> CanonicalName(std::uint32_t index) = 0;
    // The value as text, cut to 1023 characters as the platform's conversion
    // into 1024 characters does; nothing when the value cannot be read.
    virtual std::optional<std::wstring> ValueText(std::uint32_t index) = 0;
};

// One installed application, as the applications folder lists it.
class IApplicationItem {
public:
    virtual ~IApplicationItem() = default;
    // The name the user sees; nothing when it cannot be read.
    virtual std::optional<std::wstring> DisplayName() = 0;
    // Null when the item's property store cannot be opened.
    virtual std::unique_ptr<IApplicationProperties> OpenProperties() = 0;
};

// The shell's applications folder, walked in its own order.
class IApplicationsEnumeration {
public:
    virtual ~IApplicationsEnumeration() = default;
    // The next item; null at the end of the folder or at an error.
    virtual std::unique_ptr<IApplicationItem> Next() = 0;
};

// The shell of the signed-in user.
class IShell {
public:
    virtual ~IShell() = default;
    // COM for the calling thread; the shell's objects need it.
    virtual void InitializeCom() = 0;
    virtual void UninitializeCom() = 0;
    // The items of the applications folder; null when the folder or its
    // enumerator is unavailable.
    virtual std::unique_ptr<IApplicationsEnumeration> EnumerateApplications() = 0;
};

std::unique_ptr<IShell> CreateShell();

// An object of an automation server (IDispatch), reached by member names.
class IAutomationObject {
public:
    // The member id a failed lookup leaves (DISPID_UNKNOWN).
    static constexpr std::int32_t kUnknownMember = -1;

    virtual ~IAutomationObject() = default;
    // The member id of name; kUnknownMember when the object does not know it.
    virtual std::int32_t MemberId(const std::wstring& name) = 0;
    // A property read; null when the result is not an object.
    virtual std::unique_ptr<IAutomationObject> GetObjectProperty(std::int32_t member) = 0;
    // A property read as a 32-bit integer; 0 when the result is none.
    virtual std::int32_t GetIntegerProperty(std::int32_t member) = 0;
    // A method call with no argument or with one text argument; the result
    // when it is an object, else null.
    virtual std::unique_ptr<IAutomationObject> CallMethod(std::int32_t member, const std::optional<std::wstring>& text) = 0;
    // A property write of a boolean, named as the written value.
    virtual void PutBooleanProperty(std::int32_t member, bool value) = 0;
};

// COM automation: starting a server application by its programmatic id.
class IAutomation {
public:
    virtual ~IAutomation() = default;
    virtual void InitializeCom() = 0;
    virtual void UninitializeCom() = 0;
    // The application object of a new server instance (any server context);
    // null when the class is unknown or cannot be started.
    virtual std::unique_ptr<IAutomationObject> CreateApplication(const std::wstring& programId) = 0;
};

// Files, windows and the shell's program starting, as the desktop offers them.
class IDesktop {
public:
    virtual ~IDesktop() = default;
    // The file's bytes read in text mode (CR LF arrives as LF), others allowed
    // to read and write it meanwhile; nothing when it cannot be opened.
    virtual std::optional<std::string> ReadTextFile(const std::wstring& path) = 0;
    virtual void SetForeground(std::intptr_t window) = 0;
    virtual void Show(std::intptr_t window, int command) = 0;
    // Starts file with parameters as the shell does; the shell's answer, more
    // than 32 when the program was started.
    virtual std::intptr_t Execute(const std::wstring& verb, const std::wstring& file, const std::wstring& parameters,
                                  int showCommand) = 0;
};

std::unique_ptr<IAutomation> CreateAutomation();
std::unique_ptr<IDesktop> CreateDesktopShell();

} // namespace Tessel::Bridge::Platform
