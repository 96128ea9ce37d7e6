// What runs of the real plug-in cannot show: how often the plug-in is loaded
// and started within one process, and what its list answer means.
#include "DisplayPortraitCommand.h"

#include <gtest/gtest.h>

#include <map>

using namespace Tessel::Bridge::Platform;
using namespace Tessel::Bridge::Server::Services::Kestrel;

namespace {

// The fake plug-in's panel (its exports are plain functions).
std::int32_t supportedAnswer = 1;
std::int32_t modesAnswer = 3;
int starts = 0;

std::int32_t IsPlatformSupported() { return supportedAnswer; }
std::int32_t Start() { return ++starts; }
std::int32_t GetSupportedDisplayModes(std::int32_t* modes, std::int32_t capacity)
{
    modes[0] = 7;
    modes[1] = -3;
    return capacity == 40 ? modesAnswer : 0;
}
std::int32_t GetCurrentDisplayMode() { return 1; }

// A Windows-like system: the program in C:\Tool, working in D:\Work.
class FakePortraitPlatform final : public IPortraitPlatform {
public:
    std::wstring ExpandEnvironment(const std::wstring& text) override { return L"<" + text + L">"; }
    std::optional<FileVersion> ReadFileVersion(const std::wstring& path) override
    {
        return path == L"<%PROGRAMFILES%\\Portrait Displays\\Tessel Panel Service\\Vantor.exe>" ? version : std::nullopt;
    }
    std::wstring ExecutablePath() override { return executable; }
    bool RemoveFileSpec(std::wstring& path) override
    {
        const std::size_t slash = path.rfind(L'\\');
        if (slash == std::wstring::npos) return false;
        path.erase(slash);
        return true;
    }
    bool FileExists(const std::wstring& path) override { return path == L"C:\\Tool\\x.dll"; }
    std::wstring CurrentDirectory() override { return L"D:\\Work"; }
    wchar_t PathSeparator() const override { return L'\\'; }
    ModuleHandle LoadModule(const std::wstring& path) override
    {
        loaded.push_back(path);
        return &loaded;
    }
    ExportAddress FindExport(ModuleHandle module, const char* name) override
    {
        EXPECT_EQ(module, &loaded);
        const auto found = exports.find(name);
        return found != exports.end() ? found->second : nullptr;
    }

    std::optional<FileVersion> version = FileVersion{0x00050000, 0};
    std::wstring executable = L"C:\\Tool\\KestrelTool.exe";
    std::map<std::string, ExportAddress> exports = {
        {"IsPlatformSupported", reinterpret_cast<ExportAddress>(&IsPlatformSupported)},
        {"Start", reinterpret_cast<ExportAddress>(&Start)},
        {"GetSupportedDisplayModes", reinterpret_cast<ExportAddress>(&GetSupportedDisplayModes)},
        {"GetCurrentDisplayMode", reinterpret_cast<ExportAddress>(&GetCurrentDisplayMode)},
    };
    std::vector<std::wstring> loaded;
};

bool ResetPanel()
{
    supportedAnswer = 1;
    modesAnswer = 3;
    starts = 0;
    return true;
}

class DisplayPortrait : public ::testing::Test {
protected:
    std::string Run(const std::wstring& function, const std::wstring& value = L"")
    {
        std::wstring result = L"untouched";
        HandleDisplayPortraitCommand(plugin, function, value, result);
        return std::string(result.begin(), result.end());
    }

    bool reset = ResetPanel(); // before the plug-in object starts the panel
    PortraitDisplayPlugin plugin{std::make_unique<FakePortraitPlatform>()};
    FakePortraitPlatform& platform = static_cast<FakePortraitPlatform&>(*plugin.platform);
};

TEST_F(DisplayPortrait, ASupportedPanelIsLoadedAndStartedOnceForTheProcess)
{
    EXPECT_EQ(Run(L"IsPortraitSupported"), "1");
    EXPECT_EQ(Run(L"IsPortraitSupported"), "1");
    EXPECT_EQ(platform.loaded, std::vector<std::wstring>{std::wstring(L"D:\\Work\\") + kPortraitPluginFileName});
    EXPECT_EQ(starts, 1);
}

TEST_F(DisplayPortrait, AnUnsupportedPanelIsLoadedAgainAtEachAskAndStartedOnlyOnceSupported)
{
    supportedAnswer = 2;
    starts = 0;
    PortraitDisplayPlugin unsupported{std::make_unique<FakePortraitPlatform>()};
    std::wstring result;
    HandleDisplayPortraitCommand(unsupported, L"GetDisplayMode", L"", result);
    EXPECT_EQ(result, L"-1");
    HandleDisplayPortraitCommand(unsupported, L"IsPortraitSupported", L"", result);
    EXPECT_EQ(result, L"0");
    supportedAnswer = 1;
    HandleDisplayPortraitCommand(unsupported, L"IsPortraitSupported", L"", result);
    EXPECT_EQ(result, L"1");
    EXPECT_EQ(static_cast<FakePortraitPlatform&>(*unsupported.platform).loaded.size(), 3u);
    EXPECT_EQ(starts, 1);
}

TEST_F(DisplayPortrait, TheListAnswerIsASuccessFlagNotACount)
{
    modesAnswer = 1;
    std::string expected = "[7, -3";
    for (int i = 2; i < 40; ++i) expected += ", -1";
    EXPECT_EQ(Run(L"GetSupportedDisplayModes"), expected + "]");
    for (const std::int32_t answer : {0, -1}) {
        modesAnswer = answer;
        EXPECT_EQ(Run(L"GetSupportedDisplayModes"), "-1");
    }
}

} // namespace
