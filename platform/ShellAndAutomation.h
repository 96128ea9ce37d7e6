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

} // namespace Tessel::Bridge::Platform
