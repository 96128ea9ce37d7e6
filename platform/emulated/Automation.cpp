#include "platform/ShellAndAutomation.h"

#include "platform/common/StdioFile.h"
#include "platform/common/Utf8.h"
#include "platform/emulated/EmulatedPc.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <utility>

namespace Tessel::Bridge::Platform {
namespace {

using Emulated::EmulatedPc;
using Emulated::EqualIgnoringCase;
using Emulated::Member;
using Emulated::State;

// The word processor's members, each with its own id.
enum class Name : std::int32_t { Documents = 1, Add, Selection, TypeText, TypeParagraph, ActiveDocument, Visible, ActiveWindow, Hwnd };
constexpr std::array<std::pair<const wchar_t*, Name>, 9> kNames{{
    {L"Documents", Name::Documents},
    {L"Add", Name::Add},
    {L"Selection", Name::Selection},
    {L"TypeText", Name::TypeText},
    {L"TypeParagraph", Name::TypeParagraph},
    {L"ActiveDocument", Name::ActiveDocument},
    {L"Visible", Name::Visible},
    {L"ActiveWindow", Name::ActiveWindow},
    {L"Hwnd", Name::Hwnd},
}};

// The first window handle the word processor gives out; each document's is 0x10 more.
constexpr std::int32_t kFirstWindow = 0x000A0010;

// The "wordProcessor" area, checked before anything uses it.
State& WordProcessor(const EmulatedPc& pc, State& state)
{
    State& area = state["wordProcessor"];
    pc.BooleanAt(state, "/wordProcessor/installed");
    pc.BooleanAt(state, "/wordProcessor/startable");
    pc.BooleanAt(state, "/wordProcessor/visible");
    if (!area["documents"].is_array()) pc.ThrowMalformed("/wordProcessor/documents is not an array");
    for (std::size_t i = 0; i < area["documents"].size(); ++i) {
        const std::string at = "/wordProcessor/documents/" + std::to_string(i);
        if (!Member(area["documents"][i], "text").is_string()) pc.ThrowMalformed(at + "/text is not a text");
        pc.IntegerAt(state, (at + "/paragraphMarks").c_str());
        pc.IntegerAt(state, (at + "/window").c_str());
        pc.BooleanAt(state, (at + "/foreground").c_str());
        pc.BooleanAt(state, (at + "/minimized").c_str());
    }
    return area;
}

// Objects of one started word processor, over the PC's state.
class WordObject final : public IAutomationObject {
public:
    enum class Kind { Application, Documents, Document, Selection, Window };

    // document: the index of the document a document, selection or window
    // object belongs to.
    WordObject(std::shared_ptr<const EmulatedPc> pc, Kind kind, std::size_t document = 0)
        : pc_(std::move(pc)), kind_(kind), document_(document) {}

    std::int32_t MemberId(const std::wstring& name) override
    {
        for (const auto& [text, id] : kNames) {
            if (EqualIgnoringCase(text, name)) return static_cast<std::int32_t>(id);
        }
        return kUnknownMember;
    }

    std::unique_ptr<IAutomationObject> GetObjectProperty(std::int32_t member) override
    {
        const auto name = static_cast<Name>(member);
        if (kind_ == Kind::Application && name == Name::Documents) return Make(Kind::Documents);
        if (kind_ == Kind::Application && (name == Name::Selection || name == Name::ActiveDocument)) {
            // Both belong to the newest document; there is none without one.
            State state = pc_->Read();
            const std::size_t count = WordProcessor(*pc_, state)["documents"].size();
            if (count == 0) return nullptr;
            return Make(name == Name::Selection ? Kind::Selection : Kind::Document, count - 1);
        }
        if (kind_ == Kind::Document && name == Name::ActiveWindow) return Make(Kind::Window, document_);
        return nullptr;
    }

    std::int32_t GetIntegerProperty(std::int32_t member) override
    {
        if (kind_ != Kind::Window || static_cast<Name>(member) != Name::Hwnd) return 0;
        State state = pc_->Read();
        return Document(state)["window"].get<std::int32_t>();
    }

    std::unique_ptr<IAutomationObject> CallMethod(std::int32_t member, const std::optional<std::wstring>& text) override
    {
        const auto name = static_cast<Name>(member);
        if (kind_ == Kind::Documents && name == Name::Add && !text) {
            std::size_t added = 0;
            pc_->Update([&](State& state) {
                State& documents = WordProcessor(*pc_, state)["documents"];
                std::int32_t window = kFirstWindow;
                // Handles are 32 bits: past the largest, they wrap.
                for (const State& document : documents) {
                    const auto next = static_cast<std::uint32_t>(document["window"].get<std::int32_t>()) + 0x10u;
                    window = std::max(window, static_cast<std::int32_t>(next));
                }
                added = documents.size();
                documents.push_back({{"text", ""}, {"paragraphMarks", 0}, {"window", window}, {"foreground", false}, {"minimized", false}});
            });
            return Make(Kind::Document, added);
        }
        if (kind_ == Kind::Selection && name == Name::TypeText && text) {
            pc_->Update([&](State& state) {
                State& typed = Document(state)["text"];
                typed = typed.get<std::string>() + Utf8::Encode(*text);
            });
        } else if (kind_ == Kind::Selection && name == Name::TypeParagraph && !text) {
            pc_->Update([&](State& state) {
                State& marks = Document(state)["paragraphMarks"];
                if (marks.get<std::int32_t>() < INT32_MAX) marks = marks.get<std::int32_t>() + 1;
            });
        }
        return nullptr;
    }

    void PutBooleanProperty(std::int32_t member, bool value) override
    {
        if (kind_ != Kind::Application || static_cast<Name>(member) != Name::Visible) return;
        pc_->Update([&](State& state) { WordProcessor(*pc_, state)["visible"] = value; });
    }

private:
    std::unique_ptr<IAutomationObject> Make(Kind kind, std::size_t document = 0) const
    {
        return std::make_unique<WordObject>(pc_, kind, document);
    }

    // This object's document; one closed meanwhile by another run is an error.
    State& Document(State& state) const
    {
        State& documents = WordProcessor(*pc_, state)["documents"];
        if (document_ >= documents.size()) throw Emulated::EmulatedPcError("emulated PC: the word processor's document is gone");
        return documents[document_];
    }

    std::shared_ptr<const EmulatedPc> pc_;
    Kind kind_;
    std::size_t document_;
};

class EmulatedAutomation final : public IAutomation {
public:
    explicit EmulatedAutomation(EmulatedPc pc) : pc_(std::make_shared<const EmulatedPc>(std::move(pc))) {}
    void InitializeCom() override {}
    void UninitializeCom() override {}

    std::unique_ptr<IAutomationObject> CreateApplication(const std::wstring& programId) override
    {
        if (!EqualIgnoringCase(programId, L"Word.Application")) return nullptr;
        State state = pc_->Read();
        const State& area = WordProcessor(*pc_, state);
        if (!area["installed"].get<bool>() || !area["startable"].get<bool>()) return nullptr;
        return std::make_unique<WordObject>(pc_, WordObject::Kind::Application);
    }

private:
    std::shared_ptr<const EmulatedPc> pc_;
};

class EmulatedDesktop final : public IDesktop {
public:
    explicit EmulatedDesktop(EmulatedPc pc) : pc_(std::move(pc)) {}

    // The emulated PC's files are the host's.
    std::optional<std::string> ReadTextFile(const std::wstring& path) override
    {
        const std::filesystem::path file = Utf8::Encode(path);
        std::error_code error;
        if (path.empty() || std::filesystem::is_directory(file, error)) return std::nullopt;
        const UniqueStdioFile stream(std::fopen(file.c_str(), "rb"));
        if (!stream) return std::nullopt;
        return Emulated::FromTextMode(ReadRemaining(stream.get()));
    }

    void SetForeground(std::intptr_t window) override
    {
        pc_.Update([&](State& state) {
            State& documents = WordProcessor(pc_, state)["documents"];
            // A handle of no window changes nothing.
            const auto isWindow = [&](const State& document) { return document["window"].get<std::int32_t>() == window; };
            if (std::none_of(documents.begin(), documents.end(), isWindow)) return;
            for (State& document : documents) document["foreground"] = isWindow(document);
        });
    }

    void Show(std::intptr_t window, int command) override
    {
        constexpr int kRestore = 9;
        if (command != kRestore) return;
        pc_.Update([&](State& state) {
            for (State& document : WordProcessor(pc_, state)["documents"]) {
                if (document["window"].get<std::int32_t>() == window) document["minimized"] = false;
            }
        });
    }

    std::intptr_t Execute(const std::wstring& verb, const std::wstring& file, const std::wstring& parameters,
                          int /*showCommand*/) override
    {
        constexpr std::intptr_t kStarted = 42;
        constexpr std::intptr_t kFileNotFound = 2;  // SE_ERR_FNF
        constexpr std::intptr_t kOutOfMemory = 8;   // SE_ERR_OOM
        // A process's command line holds at most 32767 characters with its end.
        constexpr std::size_t kCommandLine = 32767;
        if (!EqualIgnoringCase(verb, L"open") || !EqualIgnoringCase(file, L"notepad.exe")) return kFileNotFound;
        if (file.size() + 1 + parameters.size() + 1 > kCommandLine) return kOutOfMemory;
        bool started = false;
        pc_.Update([&](State& state) {
            started = pc_.BooleanAt(state, "/editor/startable");
            State& opened = state["editor"]["openedPaths"];
            if (!opened.is_array()) pc_.ThrowMalformed("/editor/openedPaths is not an array");
            if (started) opened.push_back(Utf8::Encode(parameters));
        });
        return started ? kStarted : kFileNotFound;
    }

private:
    EmulatedPc pc_;
};

} // namespace

std::unique_ptr<IAutomation> CreateAutomation()
{
    return std::make_unique<EmulatedAutomation>(EmulatedPc::FromEnvironment());
}

std::unique_ptr<IDesktop> CreateDesktopShell()
{
    return std::make_unique<EmulatedDesktop>(EmulatedPc::FromEnvironment());
}

namespace Emulated {

State BuiltInWordProcessor()
{
    return {{"installed", true}, {"startable", true}, {"visible", false}, {"documents", State::array()}};
}

State BuiltInEditor()
{
    return {{"startable", true}, {"openedPaths", State::array()}};
}

std::string FromTextMode(std::string_view bytes)
{
    std::string text;
    text.reserve(bytes.size());
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        // Ctrl+Z ends a file read in text mode.
        if (bytes[i] == '\x1a') break;
        if (bytes[i] == '\r' && i + 1 < bytes.size() && bytes[i + 1] == '\n') continue;
        text.push_back(bytes[i]);
    }
    return text;
}

} // namespace Emulated
} // namespace Tessel::Bridge::Platform
