#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace Tessel::Bridge::Platform {

// The C functions a portrait display vendor's plug-in library exports.
namespace PortraitExports {
using IsPlatformSupported = std::int32_t (*)();       // 1: the panel is supported
using Start = std::int32_t (*)();                     // result not used
using GetSupportedDisplayModes = std::int32_t (*)(std::int32_t* modes, std::int32_t capacity); // > 0: success
using GetCurrentDisplayMode = std::int32_t (*)();
using SetDisplayMode = std::int32_t (*)(std::int32_t mode); // result not used
} // namespace PortraitExports

// A loaded library; null for none.
using ModuleHandle = void*;
// An export's address, to be cast to its real function type; null when absent.
using ExportAddress = void (*)();

// The fixed file version of a version resource: major.minor in the most
// significant word, build.revision in the least.
struct FileVersion {
    std::uint32_t mostSignificant = 0;
    std::uint32_t leastSignificant = 0;
};

// What finding, vetting and loading the vendor's plug-in needs of the system.
class IPortraitPlatform {
public:
    virtual ~IPortraitPlatform() = default;

    // The text with environment variables expanded; empty when the expansion
    // fails or does not fit a path (260 characters).
    virtual std::wstring ExpandEnvironment(const std::wstring& text) = 0;

    // The file's fixed file version; nothing when the file is missing, has no
    // version resource or it cannot be read.
    virtual std::optional<FileVersion> ReadFileVersion(const std::wstring& path) = 0;

    // The running program's full path; empty when it cannot be read.
    virtual std::wstring ExecutablePath() = 0;
    // Removes the last element of a path; false when there is none to remove.
    virtual bool RemoveFileSpec(std::wstring& path) = 0;
    virtual bool FileExists(const std::wstring& path) = 0;
    // The working directory; empty when it cannot be read.
    virtual std::wstring CurrentDirectory() = 0;
    virtual wchar_t PathSeparator() const = 0;

    // Loads a library for good (it is never unloaded); null when that fails.
    virtual ModuleHandle LoadModule(const std::wstring& path) = 0;
    // Looks an export up by name, every time it is asked.
    virtual ExportAddress FindExport(ModuleHandle module, const char* name) = 0;
};

// The vendor plug-in's file name on this platform.
extern const wchar_t* const kPortraitPluginFileName;

std::unique_ptr<IPortraitPlatform> CreatePortraitPlatform();

} // namespace Tessel::Bridge::Platform
