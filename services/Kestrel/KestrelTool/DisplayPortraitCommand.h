#pragma once

#include "platform/PortraitDisplays.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace Tessel::Bridge::Server::Services::Kestrel {

// The display vendor's plug-in, one per process. Construction runs
// InitializePortraitPlugin; the library, once loaded, is never unloaded.
struct PortraitDisplayPlugin {
    explicit PortraitDisplayPlugin(std::unique_ptr<Platform::IPortraitPlatform> system);

    std::unique_ptr<Platform::IPortraitPlatform> platform;
    Platform::ModuleHandle module = nullptr;
    bool supported = false; // "IsPlatformSupported" answered exactly 1
};

// Loads the plug-in when the vendor's service is installed at major version 5
// or later, asks whether it supports this PC and, if so, starts it. Returns the
// supported state; false, with the object left as it was, when it stops early.
bool InitializePortraitPlugin(PortraitDisplayPlugin& plugin);

// The file beside the running program when it exists there, else the file in
// the working directory (which is not checked).
std::wstring ResolveModulePath(Platform::IPortraitPlatform& platform, const std::wstring& fileName);

// The plug-in's mode list: always 40 entries, -1 where the plug-in wrote none.
bool ReadSupportedDisplayModes(PortraitDisplayPlugin& plugin, std::vector<std::int32_t>& modes);

// The "DisplayPortrait" category. Always replaces result; an unknown function
// is "-1". A mode that is not a decimal number throws (see StringToInt).
void HandleDisplayPortraitCommand(PortraitDisplayPlugin& plugin, std::wstring function, std::wstring value,
                                  std::wstring& result);

} // namespace Tessel::Bridge::Server::Services::Kestrel
