#include "ApplicationCommand.h"

#include <gtest/gtest.h>

#include <algorithm>
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

// The process runs show which namesake decides and which property wins; here,
// what is opened and read on the way, and COM's start and end.
TEST_F(ApplicationLocation, OnlyTheFirstNamesakesStoreIsOpenedAndOnlyItsLocationValuesRead)
{
    shell.items = {{L"Paint", {{{kTarget, L"C:\\paint.exe"}}}},
                   {std::nullopt, {{{kTarget, L"C:\\unnamed.exe"}}}},
                   {L"NotePad", {{{kPackage, L"C:\\Apps\\Notepad"}, {L"System.ItemNameDisplay", L"x"},
                                  {kTarget, L"C:\\Windows\\notepad.exe"}, {std::nullopt, L"y"}}}},
                   {L"notepad", {{{kTarget, L"C:\\second.exe"}}}}};
    EXPECT_EQ(Find(L"nOTEPAD"), L"C:\\Windows\\notepad.exe");
    EXPECT_EQ(shell.log, "init item0 item1 item2 store value0 value2 uninit");
    shell.folderAvailable = false;
    EXPECT_EQ(Find(L"Notepad"), L"-1");
    EXPECT_EQ(shell.log, "init "); // COM stays initialised
}

TEST_F(ApplicationLocation, UnreadableStoresAndValuesAndTextPastAZero)
{
    const std::pair<std::optional<std::vector<FakeProperty>>, const wchar_t*> rows[] = {
        {std::nullopt, L"-1"},
        {std::vector<FakeProperty>{{kTarget, L"C:\\tool.exe"}, {kPackage, std::nullopt}}, L"C:\\tool.exe"},
        {std::vector<FakeProperty>{{kPackage, std::nullopt}}, L"-1"},
        {std::vector<FakeProperty>{{kTarget, std::wstring(L"C:\\a\0b", 6)}}, L"C:\\a"},
        {std::vector<FakeProperty>{{kTarget, L""}}, L""}, // found, though empty
    };
    for (const auto& [store, location] : rows) {
        shell.items = {{L"Tool", store}, {L"Tool", {{{kTarget, L"C:\\second.exe"}}}}};
        EXPECT_EQ(Find(L"tool"), location);
    }
}

} // namespace

namespace {

using Tessel::Bridge::Server::Services::Kestrel::WriteToDoc;

std::string Narrow(const std::wstring& text)
{
    std::string out;
    for (const wchar_t c : text) out += c < 0x80 ? static_cast<char>(c) : '?';
    return out;
}

// Records every call of the document writer, one line each, in order.
struct Recorder : IAutomation, IDesktop {
    std::vector<std::string> calls;
    std::vector<std::string> missing;     // objects whose property reads yield none
    std::optional<std::string> file = ""; // nothing: the file cannot be opened
    bool startable = true;
    std::intptr_t shellAnswer = 33;
    std::int32_t window = -2;

    struct Object : IAutomationObject {
        Recorder& recorder;
        std::string name;
        Object(Recorder& r, std::string n) : recorder(r), name(std::move(n)) {}
        ~Object() override { recorder.calls.push_back("release " + name); }
        // Member ids: the place in this list; "ActiveDocument" is unknown.
        std::int32_t MemberId(const std::wstring& member) override
        {
            recorder.calls.push_back(name + " lookup " + Narrow(member));
            const std::vector<std::wstring> known{L"Documents", L"Add", L"Selection", L"TypeText", L"TypeParagraph",
                                                  L"Visible", L"ActiveWindow", L"Hwnd"};
            const auto found = std::find(known.begin(), known.end(), member);
            return found == known.end() ? kUnknownMember : static_cast<std::int32_t>(found - known.begin()) + 1;
        }
        std::unique_ptr<IAutomationObject> Make(const char* made)
        {
            if (std::find(recorder.missing.begin(), recorder.missing.end(), made) != recorder.missing.end()) return nullptr;
            return std::make_unique<Object>(recorder, made);
        }
        std::unique_ptr<IAutomationObject> GetObjectProperty(std::int32_t member) override
        {
            recorder.calls.push_back(name + " get " + std::to_string(member));
            const char* made = name == "application" ? (member == 1 ? "documents" : member == 3 ? "selection" : "active document")
                                                     : "window";
            return Make(made);
        }
        std::int32_t GetIntegerProperty(std::int32_t member) override
        {
            recorder.calls.push_back(name + " get integer " + std::to_string(member));
            return recorder.window;
        }
        std::unique_ptr<IAutomationObject> CallMethod(std::int32_t member, const std::optional<std::wstring>& text) override
        {
            recorder.calls.push_back(name + " call " + std::to_string(member) + (text ? " \"" + Narrow(*text) + "\"" : ""));
            return name == "documents" ? Make("new document") : nullptr;
        }
        void PutBooleanProperty(std::int32_t member, bool value) override
        {
            recorder.calls.push_back(name + " put " + std::to_string(member) + (value ? " true" : " false"));
        }
    };

    void InitializeCom() override { calls.push_back("initialize"); }
    void UninitializeCom() override { calls.push_back("uninitialize"); }
    std::unique_ptr<IAutomationObject> CreateApplication(const std::wstring& programId) override
    {
        calls.push_back("create " + Narrow(programId));
        return startable ? std::make_unique<Object>(*this, "application") : nullptr;
    }
    std::optional<std::string> ReadTextFile(const std::wstring& path) override
    {
        calls.push_back("read " + Narrow(path));
        return file;
    }
    void SetForeground(std::intptr_t handle) override { calls.push_back("foreground " + std::to_string(handle)); }
    void Show(std::intptr_t handle, int command) override
    {
        calls.push_back("show " + std::to_string(handle) + " " + std::to_string(command));
    }
    std::intptr_t Execute(const std::wstring& verb, const std::wstring& program, const std::wstring& parameters, int show) override
    {
        calls.push_back("shell " + Narrow(verb) + " " + Narrow(program) + " " + Narrow(parameters) + " " + std::to_string(show));
        return shellAnswer;
    }

    std::wstring Run() { return WriteToDoc(*this, *this, L"C:\\notes.txt"); }
};

using Calls = std::vector<std::string>;

TEST(WriteToDoc, RunsTheStepsInOrderWithoutLookingAtAnyStatus)
{
    Recorder recorder;
    recorder.file = std::string("a\nb\0c", 5);
    EXPECT_EQ(recorder.Run(), L"1");
    // "ActiveDocument" is unknown: its read still goes ahead, with the unknown id.
    EXPECT_EQ(recorder.calls, (Calls{"read C:\\notes.txt", "initialize", "create Word.Application",
                                     "application lookup Documents", "application get 1",
                                     "documents lookup Add", "documents call 2", "release new document",
                                     "application lookup Selection", "application get 3",
                                     "selection lookup TypeText", "selection lookup TypeParagraph",
                                     "selection call 4 \"a\nb\"", "selection call 5",
                                     "application lookup ActiveDocument", "application get -1",
                                     "application lookup Visible", "application put 6 true",
                                     "active document lookup ActiveWindow", "active document get 7",
                                     "window lookup Hwnd", "window get integer 8",
                                     "foreground -2", "show -2 9",
                                     "release window", "release active document", "release selection",
                                     "release documents", "release application", "uninitialize"}));
}

TEST(WriteToDoc, AMissingObjectSkipsOnlyTheStepsMadeOnIt)
{
    Recorder recorder;
    recorder.missing = {"documents", "selection", "active document"};
    EXPECT_EQ(recorder.Run(), L"1");
    EXPECT_EQ(recorder.calls, (Calls{"read C:\\notes.txt", "initialize", "create Word.Application",
                                     "application lookup Documents", "application get 1",
                                     "application lookup Selection", "application get 3",
                                     "application lookup ActiveDocument", "application get -1",
                                     "application lookup Visible", "application put 6 true",
                                     "foreground 0", "show 0 9", "release application", "uninitialize"}));

    recorder.calls.clear();
    recorder.missing = {"window"};
    EXPECT_EQ(recorder.Run(), L"1");
    const Calls tail(recorder.calls.end() - 9, recorder.calls.end());
    EXPECT_EQ(tail, (Calls{"active document lookup ActiveWindow", "active document get 7", "foreground 0", "show 0 9",
                           "release active document", "release selection", "release documents",
                           "release application", "uninitialize"}));
}

TEST(WriteToDoc, FallsBackToTheEditorWithThePathAsGiven)
{
    Recorder unreadable;
    unreadable.file.reset();
    EXPECT_EQ(unreadable.Run(), L"1");
    // COM is not touched when the file cannot be read.
    EXPECT_EQ(unreadable.calls, (Calls{"read C:\\notes.txt", "shell open notepad.exe C:\\notes.txt 1"}));

    Recorder noWordProcessor;
    noWordProcessor.startable = false;
    noWordProcessor.shellAnswer = 32;
    EXPECT_EQ(noWordProcessor.Run(), L"0");
    // COM stays initialised on this way out.
    EXPECT_EQ(noWordProcessor.calls, (Calls{"read C:\\notes.txt", "initialize", "create Word.Application",
                                           "shell open notepad.exe C:\\notes.txt 1"}));
}

} // namespace
