// The program on arbitrary emulated PC state: a state file, up to three command
// words, then the bytes of the text file WriteToDoc types (its value names
// that file). One result line and 0, or -1 and nothing for too few words, or a
// documented abnormal end; the state file stays whole. Camera and
// DisplayPortrait get fresh objects each time (the program keeps one for the
// process), so that every input loads and vets the camera or the plug-in.
#include "FuzzSupport.h"

#include "CameraCommand.h"
#include "DisplayPortraitCommand.h"
#include "FrontEnd.h"
#include "platform/common/Utf8.h"

#include <vector>

using namespace KestrelFuzz;
using namespace Tessel::Bridge;
using namespace Tessel::Bridge::Server::Services::Kestrel;
using Platform::Emulated::Member;
using Platform::Emulated::State;

namespace {

int Run(const std::vector<std::string>& words, std::wostringstream& out)
{
    std::vector<const char*> argv;
    for (const std::string& word : words) argv.push_back(word.c_str());
    const auto read = ReadCommandWords(static_cast<int>(argv.size()), argv.data());
    std::wstring result;
    if (read && read->category == L"Camera") {
        try {
            CameraSession session(Platform::CreateCameraRuntime(), Platform::CreateCameraDefaultsPlatform());
            HandleCameraCommand(session, read->function, read->value, result);
        } catch (const Platform::ResultException&) {
            return kAbnormalEndStatus; // a platform failure or an empty zoom range: the documented abnormal end
        }
    } else if (read && read->category == L"DisplayPortrait") {
        PortraitDisplayPlugin plugin(Platform::CreatePortraitPlatform());
        HandleDisplayPortraitCommand(plugin, read->function, read->value, result);
    } else {
        return RunKestrelTool(static_cast<int>(argv.size()), argv.data(), out);
    }
    out << result << L'\n';
    return 0;
}

const State& Documents(const State& state)
{
    return Member(Member(state, "wordProcessor"), "documents");
}

bool IsUtf8(const std::string& text)
{
    return Platform::Utf8::Encode(Platform::Utf8::Decode(text)) == text;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const std::string textFile = (StateFile().parent_path() / "text.txt").string();
    InputParts parts(data, size);
    const std::string state = parts.Next();
    std::vector<std::string> words{"KestrelTool"};
    while (!parts.AtEnd() && words.size() < 4) words.push_back(parts.Next());
    const bool typing = words.size() == 4 && words[2] == "WriteToDoc";
    if (typing) words[3] = textFile;
    const std::string bytes = parts.Rest();
    std::ofstream(textFile, std::ios::binary | std::ios::trunc) << bytes;

    std::wostringstream out;
    int status = 0;
    State before;
    std::size_t documents = 0;
    const auto run = [&] {
        status = kAbnormalEndStatus; // unless Run returns
        before = EmulatedPc(StateFile()).Read();
        if (typing) documents = Documents(before).size();
        status = Run(words, out);
    };
    if (!RunOnPc(state, run)) return 0;
    const std::wstring text = out.str();
    if (status == kAbnormalEndStatus) {
        Require(text.empty(), "an abnormal end prints no result");
        return 0;
    }
    if (words.size() < 3) {
        Require(status == -1 && text.empty(), "too few words: -1 and nothing printed");
        return 0;
    }
    Require(status == 0 && !text.empty() && text.find(L'\n') == text.size() - 1, "0 and exactly one result line");
    const State after = EmulatedPc(StateFile()).Read();
    if (words[1] == "Accessory" && words[2] == "SetMouseSpeed" && text == L"1\n") {
        before["mouse"]["speed"] = after["mouse"]["speed"];
        Require(after == before, "setting the speed changes nothing else");
    }
    // A new document holds the file as text mode reads it, up to its first
    // zero byte, as valid UTF-8.
    if (!typing || Documents(after).size() != documents + 1) return 0;
    Require(text == L"1\n", "a typed document ends with 1");
    const std::string typed = Documents(after).back()["text"].get<std::string>();
    const std::string read = Platform::Emulated::FromTextMode(bytes);
    const std::string beforeZero = read.substr(0, read.find('\0'));
    Require(IsUtf8(typed), "the typed text is valid UTF-8");
    if (IsUtf8(beforeZero)) Require(typed == beforeZero, "valid text is typed unchanged");
    return 0;
}
