// Arbitrary emulated PC state and arbitrary text-file bytes for the document
// writer: the run ends with "1" or "0" or the malformed-file error. A typed
// text is the file as text mode reads it (no CR LF, nothing from Ctrl+Z on) up
// to its first zero byte, and valid UTF-8 once stored.
#include "FuzzSupport.h"

#include "FrontEnd.h"
#include "platform/common/Utf8.h"

using KestrelFuzz::EmulatedPc;
using KestrelFuzz::Require;
using namespace Tessel::Bridge;
using Platform::Emulated::Member;
using Platform::Emulated::State;

namespace {

std::size_t DocumentCount()
{
    try {
        return Member(Member(EmulatedPc(KestrelFuzz::StateFile()).Read(), "wordProcessor"), "documents").size();
    } catch (const KestrelFuzz::EmulatedPcError&) {
        return 0;
    }
}

bool IsUtf8(const std::string& text)
{
    return Platform::Utf8::Encode(Platform::Utf8::Decode(text)) == text;
}

} // namespace

// Input: state file bytes, a zero byte, then the file's bytes.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const std::filesystem::path textFile = KestrelFuzz::StateFile().parent_path() / "text.txt";
    KestrelFuzz::InputParts parts(data, size);
    const std::string state = parts.Next();
    const std::string bytes = parts.Rest();
    std::ofstream(textFile, std::ios::binary | std::ios::trunc) << bytes;

    // Text mode ends at Ctrl+Z and drops exactly the CRs right before an LF.
    const std::string text = Platform::Emulated::FromTextMode(bytes);
    const std::string read = bytes.substr(0, bytes.find('\x1a'));
    std::size_t pairs = 0;
    for (std::size_t at = read.find("\r\n"); at != std::string::npos; at = read.find("\r\n", at + 2)) ++pairs;
    const auto withoutCr = [](std::string t) { return std::erase(t, '\r'), t; };
    Require(text.size() + pairs == read.size() && withoutCr(text) == withoutCr(read), "text mode");

    std::size_t before = 0;
    std::wstring result;
    const Server::Services::Kestrel::CommandWords words{L"Application", L"WriteToDoc", textFile.wstring()};
    const bool ran = KestrelFuzz::RunOnPc(state, [&] {
        before = DocumentCount();
        Server::Services::Kestrel::DispatchCommand(words, result);
    });
    if (!ran) return 0;
    Require(result == L"1" || result == L"0", "1 or 0");
    const State after = EmulatedPc(KestrelFuzz::StateFile()).Read();
    const State& documents = Member(Member(after, "wordProcessor"), "documents");
    if (documents.size() != before + 1) return 0;
    Require(result == L"1", "a typed document ends with 1");
    const std::string typed = documents.back()["text"].get<std::string>();
    Require(IsUtf8(typed), "the typed text is valid UTF-8");
    // Valid text is typed as it is, up to its first zero byte.
    const std::string beforeZero = text.substr(0, text.find('\0'));
    if (IsUtf8(beforeZero)) Require(typed == beforeZero, "the text before the zero byte is typed unchanged");
    return 0;
}
