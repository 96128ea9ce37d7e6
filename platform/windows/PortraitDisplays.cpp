#include "platform/PortraitDisplays.h"

#include <windows.h>

#include <pathcch.h>
#include <shlwapi.h>

#include <algorithm>
#include <vector>

namespace Tessel::Bridge::Platform {
namespace {

// The buffers the vendor's installation paths are read into.
constexpr DWORD kPathCapacity = MAX_PATH;

class Win32PortraitPlatform final : public IPortraitPlatform {
public:
    std::wstring ExpandEnvironment(const std::wstring& text) override
    {
        wchar_t buffer[kPathCapacity] = {};
        // The answer counts the final zero; a larger one did not fit.
        const DWORD length = ExpandEnvironmentStringsW(text.c_str(), buffer, kPathCapacity);
        if (length == 0 || length > kPathCapacity) return {};
        return buffer;
    }

    std::optional<FileVersion> ReadFileVersion(const std::wstring& path) override
    {
        DWORD ignored = 0;
        const DWORD size = GetFileVersionInfoSizeW(path.c_str(), &ignored);
        if (size == 0) return std::nullopt;
        std::vector<unsigned char> block(size);
        if (!GetFileVersionInfoW(path.c_str(), 0, size, block.data())) return std::nullopt;
        void* value = nullptr;
        UINT valueSize = 0;
        if (!VerQueryValueW(block.data(), L"\\", &value, &valueSize) || value == nullptr ||
            valueSize < sizeof(VS_FIXEDFILEINFO)) {
            return std::nullopt;
        }
        const auto* info = static_cast<const VS_FIXEDFILEINFO*>(value);
        return FileVersion{info->dwFileVersionMS, info->dwFileVersionLS};
    }

    std::wstring ExecutablePath() override
    {
        wchar_t buffer[kPathCapacity] = {};
        const DWORD length = GetModuleFileNameW(nullptr, buffer, kPathCapacity);
        // A path cut to the buffer is no path.
        if (length == 0 || length >= kPathCapacity) return {};
        return buffer;
    }

    bool RemoveFileSpec(std::wstring& path) override
    {
        std::vector<wchar_t> buffer(path.begin(), path.end());
        buffer.resize(std::max<std::size_t>(buffer.size() + 1, kPathCapacity), L'\0');
        if (FAILED(PathCchRemoveFileSpec(buffer.data(), buffer.size()))) return false;
        path = buffer.data();
        return true;
    }

    bool FileExists(const std::wstring& path) override { return PathFileExistsW(path.c_str()) != FALSE; }

    std::wstring CurrentDirectory() override
    {
        wchar_t buffer[kPathCapacity] = {};
        const DWORD length = GetCurrentDirectoryW(kPathCapacity, buffer);
        if (length == 0 || length >= kPathCapacity) return {};
        return buffer;
    }

    wchar_t PathSeparator() const override { return L'\\'; }

    ModuleHandle LoadModule(const std::wstring& path) override { return LoadLibraryW(path.c_str()); }

    ExportAddress FindExport(ModuleHandle module, const char* name) override
    {
        return reinterpret_cast<ExportAddress>(GetProcAddress(static_cast<HMODULE>(module), name));
    }
};

} // namespace

const wchar_t* const kPortraitPluginFileName = L"TesselVNT.dll";

std::unique_ptr<IPortraitPlatform> CreatePortraitPlatform()
{
    return std::make_unique<Win32PortraitPlatform>();
}

} // namespace Tessel::Bridge::Platform
