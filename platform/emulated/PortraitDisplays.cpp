#include "platform/PortraitDisplays.h"

#include "platform/common/Utf8.h"
#include "platform/emulated/EmulatedDisplays.h"

#include <algorithm>
#include <filesystem>
#include <system_error>

#include <dlfcn.h>

namespace Tessel::Bridge::Platform {
namespace {

using Emulated::EmulatedPc;
using Emulated::EqualIgnoringCase;

// The emulated PC's Windows paths.
constexpr std::size_t kPathCapacity = 260;
constexpr const wchar_t* kVendorServiceFile = L"C:\\Program Files\\Portrait Displays\\Tessel Panel Service\\Vantor.exe";
struct Variable {
    const wchar_t* name;
    const wchar_t* value;
};
constexpr Variable kEnvironment[] = {
    {L"PROGRAMFILES", L"C:\\Program Files"},
    {L"SYSTEMROOT", L"C:\\Windows"},
    {L"WINDIR", L"C:\\Windows"},
};

// Windows' expansion: %NAME% of a set variable becomes its value; anything
// else, an unknown name or a lone %, stays as written.
std::wstring Expand(const std::wstring& text)
{
    std::wstring expanded;
    std::size_t at = 0;
    while (at < text.size()) {
        const std::size_t open = text.find(L'%', at);
        const std::size_t close = open == std::wstring::npos ? open : text.find(L'%', open + 1);
        if (close == std::wstring::npos) break;
        expanded.append(text, at, open - at);
        const std::wstring_view name(text.data() + open + 1, close - open - 1);
        const auto known = std::find_if(std::begin(kEnvironment), std::end(kEnvironment),
                                        [&](const Variable& variable) { return EqualIgnoringCase(name, variable.name); });
        if (known != std::end(kEnvironment)) {
            expanded += known->value;
            at = close + 1;
        } else {
            expanded.append(text, open, close - open + 1);
            at = close + 1;
        }
    }
    expanded.append(text, at);
    return expanded;
}

// Files, the working directory and the plug-in are the host's own; the
// vendor's service and which exports the plug-in lacks are the emulated PC's.
class HostPortraitPlatform final : public IPortraitPlatform {
public:
    explicit HostPortraitPlatform(EmulatedPc pc) : pc_(std::move(pc)) {}

    std::wstring ExpandEnvironment(const std::wstring& text) override
    {
        std::wstring expanded = Expand(text);
        return expanded.size() < kPathCapacity ? expanded : std::wstring();
    }

    std::optional<FileVersion> ReadFileVersion(const std::wstring& path) override
    {
        const Emulated::EmulatedPortraitDisplays portrait = Emulated::ReadPortraitDisplays(pc_, pc_.Read());
        if (!portrait.serviceInstalled || !EqualIgnoringCase(path, kVendorServiceFile)) return std::nullopt;
        return portrait.serviceVersion;
    }

    std::wstring ExecutablePath() override
    {
        std::error_code error;
        const std::filesystem::path path = std::filesystem::read_symlink("/proc/self/exe", error);
        return error ? std::wstring() : Utf8::Decode(path.native());
    }

    bool RemoveFileSpec(std::wstring& path) override
    {
        const std::size_t slash = path.find_last_of(L'/');
        if (slash == std::wstring::npos) return false;
        path.erase(slash == 0 ? 1 : slash);
        return true;
    }

    bool FileExists(const std::wstring& path) override
    {
        std::error_code error;
        return std::filesystem::exists(Utf8::Encode(path), error);
    }

    std::wstring CurrentDirectory() override
    {
        std::error_code error;
        const std::filesystem::path path = std::filesystem::current_path(error);
        return error ? std::wstring() : Utf8::Decode(path.native());
    }

    wchar_t PathSeparator() const override { return L'/'; }

    ModuleHandle LoadModule(const std::wstring& path) override
    {
        return ::dlopen(Utf8::Encode(path).c_str(), RTLD_NOW | RTLD_LOCAL);
    }

    ExportAddress FindExport(ModuleHandle module, const char* name) override
    {
        const Emulated::EmulatedPortraitDisplays portrait = Emulated::ReadPortraitDisplays(pc_, pc_.Read());
        const auto& missing = portrait.panel.missingExports;
        if (std::find(missing.begin(), missing.end(), name) != missing.end()) return nullptr;
        return reinterpret_cast<ExportAddress>(::dlsym(module, name));
    }

private:
    EmulatedPc pc_;
};

} // namespace

const wchar_t* const kPortraitPluginFileName = L"libTesselVNT.so";

std::unique_ptr<IPortraitPlatform> CreatePortraitPlatform()
{
    return std::make_unique<HostPortraitPlatform>(EmulatedPc::FromEnvironment());
}

} // namespace Tessel::Bridge::Platform
