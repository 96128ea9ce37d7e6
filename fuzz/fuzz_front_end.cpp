// The whole front end: fuzz input split at zero bytes into command-line words,
// run on a scratch emulated PC. One result line and 0, or -1 for too few
// words, or one of the documented abnormal ends; the state file stays whole.
#include "FuzzSupport.h"

#include "FrontEnd.h"

#include <vector>

using KestrelFuzz::Require;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    KestrelFuzz::StateFile();
    KestrelFuzz::InputParts parts(data, size);
    std::vector<std::string> words{"KestrelTool"};
    while (!parts.AtEnd() && words.size() < 8) words.push_back(parts.Next());
    std::vector<const char*> argv;
    for (const std::string& word : words) argv.push_back(word.c_str());
    argv.push_back(nullptr);

    std::wostringstream out;
    try {
        const int status = Tessel::Bridge::Server::Services::Kestrel::RunKestrelTool(static_cast<int>(words.size()), argv.data(), out);
        const std::wstring text = out.str();
        if (words.size() < 3) {
            Require(status == -1 && text.empty(), "too few words: -1 and nothing printed");
        } else {
            Require(status == 0, "a completed run returns 0");
            Require(!text.empty() && text.find(L'\n') == text.size() - 1, "exactly one result line");
        }
    } catch (const std::exception& e) {
        Require(KestrelFuzz::IsDocumentedEnd(e), "only the documented errors end a run");
        Require(out.str().empty(), "an abnormal end prints no result");
    }
    KestrelFuzz::RequireReadable();
    return 0;
}
