#include "DisplayPortraitCommand.h"

#include "NumberParsing.h"

namespace Tessel::Bridge::Server::Services::Kestrel {
namespace {

namespace Exports = Platform::PortraitExports;

constexpr const wchar_t* kVendorServicePath = L"%PROGRAMFILES%\\Portrait Displays\\Tessel Panel Service\\Vantor.exe";
constexpr std::uint32_t kFirstSupportedMajorVersion = 5;
constexpr std::int32_t kModeListSize = 40;

// Looked up at each use: the library decides what it exports.
template <typename Function>
Function Export(const PortraitDisplayPlugin& plugin, const char* name)
{
    return reinterpret_cast<Function>(plugin.platform->FindExport(plugin.module, name));
}

bool Ready(const PortraitDisplayPlugin& plugin)
{
    return plugin.supported && plugin.module != nullptr;
}

std::int32_t CurrentMode(const PortraitDisplayPlugin& plugin)
{
    if (!Ready(plugin)) return -1;
    const auto getCurrent = Export<Exports::GetCurrentDisplayMode>(plugin, "GetCurrentDisplayMode");
    return getCurrent != nullptr ? getCurrent() : -1;
}

std::wstring ModeListText(const std::vector<std::int32_t>& modes)
{
    std::wstring text = L"[";
    for (std::size_t i = 0; i < modes.size(); ++i) {
        if (i != 0) text += L", ";
        text += std::to_wstring(modes[i]);
    }
    return text + L"]";
}

} // namespace

PortraitDisplayPlugin::PortraitDisplayPlugin(std::unique_ptr<Platform::IPortraitPlatform> system)
    : platform(std::move(system))
{
    InitializePortraitPlugin(*this);
}

bool InitializePortraitPlugin(PortraitDisplayPlugin& plugin)
{
    Platform::IPortraitPlatform& platform = *plugin.platform;
    const std::optional<Platform::FileVersion> version =
        platform.ReadFileVersion(platform.ExpandEnvironment(kVendorServicePath));
    if (!version || (version->mostSignificant >> 16) < kFirstSupportedMajorVersion) return false;

    plugin.module = platform.LoadModule(ResolveModulePath(platform, Platform::kPortraitPluginFileName));
    if (plugin.module == nullptr) return false;

    // A library without these two cannot be driven: it counts as unsupported.
    const auto isSupported = Export<Exports::IsPlatformSupported>(plugin, "IsPlatformSupported");
    const auto start = Export<Exports::Start>(plugin, "Start");
    plugin.supported = isSupported != nullptr && isSupported() == 1 && start != nullptr;
    if (plugin.supported) start();
    return plugin.supported;
}

std::wstring ResolveModulePath(Platform::IPortraitPlatform& platform, const std::wstring& fileName)
{
    const wchar_t separator = platform.PathSeparator();
    if (std::wstring directory = platform.ExecutablePath();
        !directory.empty() && platform.RemoveFileSpec(directory)) {
        std::wstring candidate = directory + separator + fileName;
        if (platform.FileExists(candidate)) return candidate;
    }
    // The vendor's own folder is never searched.
    return platform.CurrentDirectory() + separator + fileName;
}

bool ReadSupportedDisplayModes(PortraitDisplayPlugin& plugin, std::vector<std::int32_t>& modes)
{
    if (!Ready(plugin)) return false;
    const auto getModes = Export<Exports::GetSupportedDisplayModes>(plugin, "GetSupportedDisplayModes");
    if (getModes == nullptr) return false;
    // The answer is not a count: entries the plug-in leaves alone stay -1.
    modes.assign(kModeListSize, -1);
    return getModes(modes.data(), kModeListSize) > 0;
}

void HandleDisplayPortraitCommand(PortraitDisplayPlugin& plugin, std::wstring function, std::wstring value,
                                  std::wstring& result)
{
    if (function == L"IsPortraitSupported") {
        // The one function that tries again to load and start the plug-in.
        const bool supported = Ready(plugin) ? plugin.supported : InitializePortraitPlugin(plugin);
        result = supported ? L"1" : L"0";
    } else if (function == L"GetSupportedDisplayModes") {
        std::vector<std::int32_t> modes;
        result = ReadSupportedDisplayModes(plugin, modes) ? ModeListText(modes) : L"-1";
    } else if (function == L"GetDisplayMode") {
        result = std::to_wstring(CurrentMode(plugin));
    } else if (function == L"SetDisplayMode") {
        const std::int32_t mode = StringToInt(value);
        if (Ready(plugin)) {
            if (const auto setMode = Export<Exports::SetDisplayMode>(plugin, "SetDisplayMode")) setMode(mode);
        }
        // Only what the plug-in reports afterwards counts.
        result = CurrentMode(plugin) == mode ? std::to_wstring(mode) : L"-1";
    } else {
        result = L"-1";
    }
}

} // namespace Tessel::Bridge::Server::Services::Kestrel
