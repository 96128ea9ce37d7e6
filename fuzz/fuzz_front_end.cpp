// The whole front end: fuzz input split at zero bytes into command-line words,
// run on a scratch emulated PC. One result line and 0, or -1 for too few
// words, or one of the documented abnormal ends; the state file stays whole.
#include "FuzzSupport.h"

#include "FrontEnd.h"
#include "platform/emulated/EmulatedPc.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

using KestrelFuzz::Require;
using Tessel::Bridge::Platform::Emulated::EmulatedPc;
using Tessel::Bridge::Server::Services::Kestrel::RunKestrelTool;

namespace {

bool IsDocumentedEnd(const std::exception& e)
{
    const std::string message = e.what();
    if (dynamic_cast<const std::invalid_argument*>(&e) != nullptr) return message == "invalid stoi argument";
    if (dynamic_cast<const std::out_of_range*>(&e) != nullptr) return message == "stoi argument out of range";
    return false;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::filesystem::path& stateFile = KestrelFuzz::EmulatedPcStateFile();
    std::vector<std::string> words{"KestrelTool"};
    const char* begin = reinterpret_cast<const char*>(data);
    const char* end = begin + size;
    while (begin < end && words.size() < 8) {
        const char* zero = static_cast<const char*>(std::memchr(begin, '\0', static_cast<std::size_t>(end - begin)));
        const char* wordEnd = zero != nullptr ? zero : end;
        words.emplace_back(begin, wordEnd);
        begin = wordEnd + 1;
    }
    std::vector<const char*> argv;
    for (const std::string& word : words) argv.push_back(word.c_str());
    argv.push_back(nullptr);

    std::wostringstream out;
    try {
        const int status = RunKestrelTool(static_cast<int>(words.size()), argv.data(), out);
        const std::wstring text = out.str();
        if (words.size() < 3) {
            Require(status == -1 && text.empty(), "too few words: -1 and nothing printed");
        } else {
            Require(status == 0, "a completed run returns 0");
            Require(!text.empty() && text.find(L'\n') == text.size() - 1, "exactly one result line");
        }
    } catch (const std::exception& e) {
        Require(IsDocumentedEnd(e), "only the documented errors end a run");
        Require(out.str().empty(), "an abnormal end prints no result");
    }
    KestrelFuzz::RequireReadable<EmulatedPc>(stateFile);
    return 0;
}
