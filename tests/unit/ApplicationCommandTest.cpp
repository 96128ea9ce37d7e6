#include "ApplicationCommand.h"

#include <gtest/gtest.h>

#include <vector>

using namespace Tessel::Bridge::Platform;
using Tessel::Bridge::Server::Services::Kestrel::GetApplicationLocation;

namespace {

constexpr const wchar_t* kTarget = L"System.Link.TargetParsingPath";
constexpr const wchar_t* kPackage = L"System.AppUserModel.PackageInstallPath";

// A property: its name and value, either of which may fail to be read.
struct FakeProperty {
    std::optional<std::wstring> name;
    std::optional<std::wstring> value;
};
struct FakeItem {
    std::optional<std::wstring> name;
    std::optional<std::vector<FakeProperty>> store; // nothing: the store cannot be opened
};

class FakeShell final : public IShell {
public:
    struct Properties : IApplicationProperties {
        FakeShell& shell;
        std::vector<FakeProperty> list;
        Properties(FakeShell& s, std::vector<FakeProperty> l) : shell(s), list(std::move(l)) {}
        std::uint32_t Count() override { return static_cast<std::uint32_t>(list.size()); }
        std::optional<std::wstring> CanonicalName(std::uint32_t index) override { return list.at(index).name; }
        std::optional<std::wstring> ValueText(std::uint32_t index) override
        {
            shell.log += "value" + std::to_string(index) + " ";
            return list.at(index).value;
        }
    };
    struct Item : IApplicationItem {
        FakeShell& shell;
        FakeItem item;
        Item(FakeShell& s, FakeItem i) : shell(s), item(std::move(i)) {}
        std::optional<std::wstring> DisplayName() override { return item.name; }
        std::unique_ptr<IApplicationProperties> OpenProperties() override
        {
            shell.log += "store ";
            if (!item.store) return nullptr;
            return std::make_unique<Properties>(shell, *item.store);
        }
    };
    struct Items : IApplicationsEnumeration {
        FakeShell& shell;
        std::size_t next = 0;
        explicit Items(FakeShell& s) : shell(s) {}
        std::unique_ptr<IApplicationItem> Next() override
        {
            if (next == shell.items.size()) return nullptr;
            shell.log += "item" + std::to_string(next) + " ";
            return std::make_unique<Item>(shell, shell.items[next++]);
        }
    };

    void InitializeCom() override { log += "init "; }
    void UninitializeCom() override { log += "uninit"; }
    std::unique_ptr<IApplicationsEnumeration> EnumerateApplications() override
    {
        if (!folderAvailable) return nullptr;
        return std::make_unique<Items>(*this);
    }

    bool folderAvailable = true;
    std::vector<FakeItem> items;
    std::string log;
};

class ApplicationLocation : public ::testing::Test {
protected:
    std::wstring Find(const std::wstring& name)
    {
        shell.log.clear();
        return GetApplicationLocation(shell, name);
    }
    FakeShell shell;
};

TEST_F(ApplicationLocation, TheFirstItemOfTheNameIgnoringCaseDecidesAndItsLastPropertyWins)
{
    shell.items = {{L"Paint", {{{kTarget, L"C:\\paint.exe"}}}},
                   {std::nullopt, {{{kTarget, L"C:\\unnamed.exe"}}}},
                   {L"NotePad", {{{kPackage, L"C:\\Apps\\Notepad"}, {L"System.ItemNameDisplay", L"x"},
                                  {kTarget, L"C:\\Windows\\notepad.exe"}, {std::nullopt, L"y"}}}},
                   {L"notepad", {{{kTarget, L"C:\\second.exe"}}}}};
    EXPECT_EQ(Find(L"nOTEPAD"), L"C:\\Windows\\notepad.exe");
    EXPECT_EQ(shell.log, "init item0 item1 item2 store value0 value2 uninit");
    EXPECT_EQ(Find(L"Paint"), L"C:\\paint.exe");
    EXPECT_EQ(Find(L""), L"-1");
    EXPECT_EQ(Find(L"Paint "), L"-1");
}

TEST_F(ApplicationLocation, AFirstItemWithoutUsableLocationEndsTheSearchWithMinusOne)
{
    shell.items = {{L"Tool", {{{L"System.ItemNameDisplay", L"Tool"}}}}, {L"Tool", {{{kTarget, L"C:\\tool.exe"}}}}};
    EXPECT_EQ(Find(L"tool"), L"-1");
    EXPECT_EQ(shell.log, "init item0 store uninit");

    shell.items = {{L"Tool", std::nullopt}, {L"Tool", {{{kTarget, L"C:\\tool.exe"}}}}};
    EXPECT_EQ(Find(L"tool"), L"-1");

    // A value that cannot be read is skipped; an earlier one stays.
    shell.items = {{L"Tool", {{{kTarget, L"C:\\tool.exe"}, {kPackage, std::nullopt}}}}};
    EXPECT_EQ(Find(L"tool"), L"C:\\tool.exe");
    shell.items = {{L"Tool", {{{kPackage, std::nullopt}}}}};
    EXPECT_EQ(Find(L"tool"), L"-1");
}

TEST_F(ApplicationLocation, TheTextEndsAtItsFirstZeroCharacter)
{
    shell.items = {{L"Tool", {{{kTarget, std::wstring(L"C:\\a\0b", 6)}}}}};
    EXPECT_EQ(Find(L"Tool"), L"C:\\a");
    shell.items = {{L"Tool", {{{kTarget, L""}}}}};
    EXPECT_EQ(Find(L"Tool"), L""); // found, though empty
}

TEST_F(ApplicationLocation, WithoutTheFolderComStaysInitialised)
{
    shell.folderAvailable = false;
    EXPECT_EQ(Find(L"Notepad"), L"-1");
    EXPECT_EQ(shell.log, "init ");
}

} // namespace
