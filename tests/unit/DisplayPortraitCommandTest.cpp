#include "DisplayPortraitCommand.h"

#include <gtest/gtest.h>

#include <map>
#include <set>
#include <stdexcept>

using namespace Tessel::Bridge::Platform;
using namespace Tessel::Bridge::Server::Services::Kestrel;

namespace {

// The panel behind the fake plug-in's exports (C functions cannot carry state).
struct FakePanel {
    std::int32_t supportedAnswer = 1;
    std::vector<std::int32_t> modes{0, 1, 2};
    std::int32_t modesAnswer = 3;
    std::int32_t current = 0;
    bool refusesSets = false;
    int starts = 0;
    std::int32_t capacitySeen = 0;
};
FakePanel* panel = nullptr;

std::int32_t IsPlatformSupported() { return panel->supportedAnswer; }
std::int32_t Start() { return ++panel->starts; }
std::int32_t GetSupportedDisplayModes(std::int32_t* modes, std::int32_t capacity)
{
    panel->capacitySeen = capacity;
    std::copy(panel->modes.begin(), panel->modes.end(), modes);
    return panel->modesAnswer;
}
std::int32_t GetCurrentDisplayMode() { return panel->current; }
std::int32_t SetDisplayMode(std::int32_t mode)
{
    if (!panel->refusesSets) panel->current = mode;
    return 0;
}

template <typename Function>
ExportAddress Address(Function function)
{
    return reinterpret_cast<ExportAddress>(function);
}

const std::map<std::string, ExportAddress> kAllExports = {
    {"IsPlatformSupported", Address(&IsPlatformSupported)},
    {"Start", Address(&Start)},
    {"GetSupportedDisplayModes", Address(&GetSupportedDisplayModes)},
    {"GetCurrentDisplayMode", Address(&GetCurrentDisplayMode)},
    {"SetDisplayMode", Address(&SetDisplayMode)},
};

// A Windows-like system: the program in C:\Tool, working in D:\Work.
class FakePortraitPlatform final : public IPortraitPlatform {
public:
    std::wstring ExpandEnvironment(const std::wstring& text) override
    {
        expanded.push_back(text);
        return L"<expanded>";
    }
    std::optional<FileVersion> ReadFileVersion(const std::wstring& path) override
    {
        return path == L"<expanded>" ? version : std::nullopt;
    }
    std::wstring ExecutablePath() override { return executable; }
    bool RemoveFileSpec(std::wstring& path) override
    {
        const std::size_t slash = path.rfind(L'\\');
        if (slash == std::wstring::npos) return false;
        path.erase(slash);
        return true;
    }
    bool FileExists(const std::wstring& path) override { return files.count(path) != 0; }
    std::wstring CurrentDirectory() override { return L"D:\\Work"; }
    wchar_t PathSeparator() const override { return L'\\'; }
    ModuleHandle LoadModule(const std::wstring& path) override
    {
        loaded.push_back(path);
        return loads ? &loaded : nullptr;
    }
    ExportAddress FindExport(ModuleHandle module, const char* name) override
    {
        EXPECT_EQ(module, &loaded);
        const auto found = exports.find(name);
        return found != exports.end() ? found->second : nullptr;
    }

    std::optional<FileVersion> version = FileVersion{0x00050000, 0x00010002};
    std::wstring executable = L"C:\\Tool\\KestrelTool.exe";
    std::set<std::wstring> files;
    bool loads = true;
    std::map<std::string, ExportAddress> exports = kAllExports;
    std::vector<std::wstring> expanded;
    std::vector<std::wstring> loaded;
};

class DisplayPortrait : public ::testing::Test {
protected:
    DisplayPortrait() { panel = &fakePanel; }
    ~DisplayPortrait() override { panel = nullptr; }

    // The plug-in object as the front end makes it, on first use.
    PortraitDisplayPlugin& Plugin()
    {
        if (!plugin) {
            auto owned = std::make_unique<FakePortraitPlatform>(setUp);
            platform = owned.get();
            plugin = std::make_unique<PortraitDisplayPlugin>(std::move(owned));
        }
        return *plugin;
    }

    std::string Run(const std::wstring& function, const std::wstring& value = L"")
    {
        std::wstring result = L"untouched";
        HandleDisplayPortraitCommand(Plugin(), function, value, result);
        return std::string(result.begin(), result.end());
    }

    FakePanel fakePanel;
    FakePortraitPlatform setUp; // the system before the plug-in object exists
    FakePortraitPlatform* platform = nullptr;
    std::unique_ptr<PortraitDisplayPlugin> plugin;
};

TEST_F(DisplayPortrait, ASupportedPanelIsLoadedOnceAndStartedOnce)
{
    EXPECT_EQ(Run(L"IsPortraitSupported"), "1");
    EXPECT_EQ(Run(L"IsPortraitSupported"), "1");
    EXPECT_EQ(platform->expanded, std::vector<std::wstring>{L"%PROGRAMFILES%\\Portrait Displays\\Tessel Panel Service\\Vantor.exe"});
    EXPECT_EQ(platform->loaded, std::vector<std::wstring>{std::wstring(L"D:\\Work\\") + kPortraitPluginFileName});
    EXPECT_EQ(fakePanel.starts, 1);
    EXPECT_EQ(Run(L"GetDisplayMode"), "0");
}

TEST_F(DisplayPortrait, AServiceOlderThanVersionFiveLoadsNothingAndEachAskRetries)
{
    for (const std::optional<FileVersion>& version :
         {std::optional<FileVersion>(FileVersion{0x00040009, 0xFFFFFFFF}), std::optional<FileVersion>()}) {
        plugin.reset();
        setUp.version = version;
        EXPECT_EQ(Run(L"IsPortraitSupported"), "0");
        EXPECT_EQ(Run(L"IsPortraitSupported"), "0");
        EXPECT_EQ(platform->expanded.size(), 3u); // the construction and two retries
        EXPECT_EQ(Run(L"GetSupportedDisplayModes"), "-1");
        EXPECT_EQ(Run(L"GetDisplayMode"), "-1");
        EXPECT_EQ(Run(L"SetDisplayMode", L"1"), "-1");
        EXPECT_TRUE(platform->loaded.empty());
        EXPECT_EQ(fakePanel.current, 0);
    }
    plugin.reset();
    setUp.version = FileVersion{0x00050000, 0};
    EXPECT_EQ(Run(L"IsPortraitSupported"), "1");
}

TEST_F(DisplayPortrait, APanelThatAnswersTwoStaysLoadedButUnstartedAndIsReloadedOnAsk)
{
    fakePanel.supportedAnswer = 2;
    EXPECT_EQ(Run(L"GetDisplayMode"), "-1");
    EXPECT_EQ(Run(L"SetDisplayMode", L"0"), "-1");
    EXPECT_EQ(platform->loaded.size(), 1u);
    EXPECT_EQ(Run(L"IsPortraitSupported"), "0");
    EXPECT_EQ(platform->loaded.size(), 2u);
    EXPECT_EQ(fakePanel.starts, 0);

    fakePanel.supportedAnswer = 1;
    EXPECT_EQ(Run(L"IsPortraitSupported"), "1");
    EXPECT_EQ(fakePanel.starts, 1);
    EXPECT_EQ(Run(L"GetDisplayMode"), "0");
}

TEST_F(DisplayPortrait, APluginThatFailsToLoadOrLacksItsEntryPointsIsUnsupported)
{
    setUp.loads = false;
    EXPECT_EQ(Run(L"IsPortraitSupported"), "0");
    for (const char* entry : {"IsPlatformSupported", "Start"}) {
        plugin.reset();
        setUp.loads = true;
        setUp.exports = kAllExports;
        setUp.exports.erase(entry);
        EXPECT_EQ(Run(L"IsPortraitSupported"), "0") << entry;
        EXPECT_EQ(Run(L"GetDisplayMode"), "-1") << entry;
    }
    EXPECT_EQ(fakePanel.starts, 0);
}

TEST_F(DisplayPortrait, TheModeListHasFortyEntriesWhateverThePluginWrote)
{
    std::string expected = "[0, 1, 2";
    for (int i = 0; i < 37; ++i) expected += ", -1";
    EXPECT_EQ(Run(L"GetSupportedDisplayModes"), expected + "]");
    EXPECT_EQ(fakePanel.capacitySeen, 40);

    fakePanel.modes = {-7, 2147483647};
    fakePanel.modesAnswer = 1; // not a count
    EXPECT_EQ(Run(L"GetSupportedDisplayModes").substr(0, 26), "[-7, 2147483647, -1, -1, -");

    for (const std::int32_t answer : {0, -1}) {
        fakePanel.modesAnswer = answer;
        EXPECT_EQ(Run(L"GetSupportedDisplayModes"), "-1");
    }
}

TEST_F(DisplayPortrait, ExportsAreLookedUpAtEachUse)
{
    EXPECT_EQ(Run(L"GetDisplayMode"), "0");
    platform->exports.erase("GetCurrentDisplayMode");
    platform->exports.erase("GetSupportedDisplayModes");
    EXPECT_EQ(Run(L"GetDisplayMode"), "-1");
    EXPECT_EQ(Run(L"GetSupportedDisplayModes"), "-1");
    EXPECT_EQ(Run(L"SetDisplayMode", L"-1"), "-1");
    EXPECT_EQ(Run(L"SetDisplayMode", L"2"), "-1");
    EXPECT_EQ(fakePanel.current, 2); // set, but it cannot be read back
}

TEST_F(DisplayPortrait, ASetCountsOnlyWhenThePanelReportsTheModeAfterwards)
{
    EXPECT_EQ(Run(L"SetDisplayMode", L" +2xyz"), "2");
    EXPECT_EQ(fakePanel.current, 2);
    fakePanel.refusesSets = true;
    EXPECT_EQ(Run(L"SetDisplayMode", L"1"), "-1");
    // Without a SetDisplayMode export a mode already current still reads back.
    platform->exports.erase("SetDisplayMode");
    EXPECT_EQ(Run(L"SetDisplayMode", L"2"), "2");
    EXPECT_EQ(Run(L"SetDisplayMode", L"0"), "-1");
}

TEST_F(DisplayPortrait, ABadModeThrowsBeforeThePanelIsTouched)
{
    EXPECT_THROW(Run(L"SetDisplayMode", L"two"), std::invalid_argument);
    EXPECT_THROW(Run(L"SetDisplayMode", L"-2147483649"), std::out_of_range);
    EXPECT_EQ(fakePanel.current, 0);
}

TEST_F(DisplayPortrait, AnUnknownFunctionIsMinusOne)
{
    for (const wchar_t* function : {L"GetDisplayModes", L"isPortraitSupported", L""}) {
        EXPECT_EQ(Run(function), "-1");
    }
}

TEST(ResolveModulePath, PrefersTheProgramsFolderThenTakesTheWorkingDirectoryUnchecked)
{
    FakePortraitPlatform platform;
    platform.files = {L"C:\\Tool\\x.dll", L"D:\\Work\\x.dll"};
    EXPECT_EQ(ResolveModulePath(platform, L"x.dll"), L"C:\\Tool\\x.dll");
    EXPECT_EQ(ResolveModulePath(platform, L"y.dll"), L"D:\\Work\\y.dll");
    platform.executable = L"";
    EXPECT_EQ(ResolveModulePath(platform, L"x.dll"), L"D:\\Work\\x.dll");
    platform.executable = L"KestrelTool.exe"; // no folder to strip
    EXPECT_EQ(ResolveModulePath(platform, L"x.dll"), L"D:\\Work\\x.dll");
}

} // namespace
