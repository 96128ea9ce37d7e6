// TesselVNT.dll for the Wine prefix: a panel kept in TesselVNT.panel beside
// the DLL, one line "<IsPlatformSupported answer> <current mode> <modes...>".
// A mode the panel does not list is refused.
#include "platform/PortraitDisplays.h"

#include <windows.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <type_traits>
#include <vector>

namespace {

HMODULE self = nullptr;

struct Panel {
    std::int32_t supported = 0;
    std::int32_t current = -1;
    std::vector<std::int32_t> modes;
};

std::filesystem::path PanelFile()
{
    wchar_t path[MAX_PATH] = {};
    GetModuleFileNameW(self, path, MAX_PATH);
    return std::filesystem::path(path).replace_filename(L"TesselVNT.panel");
}

Panel Read()
{
    Panel panel;
    std::ifstream in(PanelFile());
    in >> panel.supported >> panel.current;
    for (std::int32_t mode = 0; in >> mode;) panel.modes.push_back(mode);
    return panel;
}

} // namespace

BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID)
{
    if (reason == DLL_PROCESS_ATTACH) self = instance;
    return TRUE;
}

extern "C" {

std::int32_t IsPlatformSupported() { return Read().supported; }

std::int32_t Start() { return 0; }

std::int32_t GetSupportedDisplayModes(std::int32_t* modes, std::int32_t capacity)
{
    const Panel panel = Read();
    const auto count = std::min<std::size_t>(panel.modes.size(), static_cast<std::size_t>(std::max(capacity, 0)));
    std::copy_n(panel.modes.begin(), count, modes);
    return static_cast<std::int32_t>(count);
}

std::int32_t GetCurrentDisplayMode() { return Read().current; }

std::int32_t SetDisplayMode(std::int32_t mode)
{
    const Panel panel = Read();
    if (std::find(panel.modes.begin(), panel.modes.end(), mode) == panel.modes.end()) return 0;
    std::ofstream out(PanelFile(), std::ios::trunc);
    out << panel.supported << ' ' << mode;
    for (const std::int32_t listed : panel.modes) out << ' ' << listed;
    return 1;
}

} // extern "C"

using namespace Tessel::Bridge::Platform;
static_assert(std::is_same_v<decltype(&IsPlatformSupported), PortraitExports::IsPlatformSupported>);
static_assert(std::is_same_v<decltype(&GetSupportedDisplayModes), PortraitExports::GetSupportedDisplayModes>);
static_assert(std::is_same_v<decltype(&SetDisplayMode), PortraitExports::SetDisplayMode>);
