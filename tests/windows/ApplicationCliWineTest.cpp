// KestrelTool's document writer under Wine: it drives a test automation
// server registered as "Word.Application", which logs every call it gets;
// without the registration, Wine's notepad opens the file.
#include "platform/windows/UniqueHandle.h"
#include "support/ProcessRunner.h"
#include "support/TempDirectory.h"

#include <gtest/gtest.h>

#include <tlhelp32.h>

#include <cstdlib>
#include <fstream>
#include <sstream>

using namespace KestrelTest;
namespace fs = std::filesystem;

namespace {

using Tessel::Bridge::Platform::Windows::UniqueHandle;

constexpr const wchar_t* kClassId = L"{5B7E6D0C-94A1-4C3E-8F2B-6A1D0E9C7B31}";
constexpr const wchar_t* kClassKey = L"CLSID\\{5B7E6D0C-94A1-4C3E-8F2B-6A1D0E9C7B31}";
constexpr const wchar_t* kServerKey = L"CLSID\\{5B7E6D0C-94A1-4C3E-8F2B-6A1D0E9C7B31}\\InprocServer32";

// The size of a zero-terminated REG_SZ value.
DWORD Bytes(const std::wstring& text)
{
    return static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t));
}

const std::string kOne = std::string("1").append(kLineEnd);

class WriteToDocUnderWine : public ::testing::Test {
protected:
    ~WriteToDocUnderWine() override
    {
        RegDeleteTreeW(HKEY_CLASSES_ROOT, L"Word.Application");
        RegDeleteTreeW(HKEY_CLASSES_ROOT, kClassKey);
        std::error_code ignored;
        fs::remove_all(kServerFolder, ignored);
    }

    void RegisterServer()
    {
        fs::create_directories(kServerFolder);
        fs::copy_file(fs::path(std::getenv("KESTREL_TEST_BEDS")) / "WordAutomationServer.dll", kServerFolder / "WordAutomationServer.dll");
        const std::wstring dll = (kServerFolder / "WordAutomationServer.dll").wstring();
        ASSERT_EQ(RegSetKeyValueW(HKEY_CLASSES_ROOT, L"Word.Application\\CLSID", nullptr, REG_SZ, kClassId, Bytes(kClassId)), 0);
        ASSERT_EQ(RegSetKeyValueW(HKEY_CLASSES_ROOT, kServerKey, nullptr, REG_SZ, dll.c_str(), Bytes(dll)), 0);
        ASSERT_EQ(RegSetKeyValueW(HKEY_CLASSES_ROOT, kServerKey, L"ThreadingModel", REG_SZ, L"Both", Bytes(L"Both")), 0);
    }

    std::string Run(const fs::path& file)
    {
        const ProcessResult result = RunProcess(BuiltProgram("KestrelTool"), {"Application", "WriteToDoc", file.string()});
        EXPECT_EQ(result.exitStatus, 0) << result.err;
        return result.out + result.err;
    }

    fs::path Write(const std::string& bytes)
    {
        std::ofstream(text, std::ios::binary) << bytes;
        return text;
    }

    std::string Log()
    {
        std::stringstream log;
        log << std::ifstream(kServerFolder / "WordAutomationServer.log").rdbuf();
        return log.str();
    }

    const fs::path kServerFolder = "C:\\Program Files\\Word Automation Test";
    TempDirectory directory;
    fs::path text = directory / "text.txt";
};

TEST_F(WriteToDocUnderWine, TheServerGetsTheTenStepsAndTheTextAsTyped)
{
    RegisterServer();
    // CR LF arrives as LF, a lone CR stays, invalid UTF-8 becomes U+FFFD, and
    // the text ends at the zero byte.
    EXPECT_EQ(Run(Write(std::string("one\r\ntwo\r\xc3\xa9\xff!\0after", 15))), kOne);
    const char* lookup = " lcid=400\n";
    const char* none = " lcid=400 args=[] named=[]\n";
    EXPECT_EQ(Log(), std::string("Application lookup Documents") + lookup + "Application invoke Documents flags=2" + none +
                         "Documents lookup Add" + lookup + "Documents invoke Add flags=1" + none + "Document released\n" +
                         "Application lookup Selection" + lookup + "Application invoke Selection flags=2" + none +
                         "Selection lookup TypeText" + lookup + "Selection lookup TypeParagraph" + lookup +
                         "Selection invoke TypeText flags=1 lcid=400 args=[BSTR:\"one\\u000atwo\\u000d\\u00e9\\ufffd!\"] named=[]\n" +
                         "Selection invoke TypeParagraph flags=1" + none +
                         "Application lookup ActiveDocument" + lookup + "Application invoke ActiveDocument flags=2" + none +
                         "Application lookup Visible" + lookup + "Application invoke Visible flags=4 lcid=400 args=[BOOL:-1] named=[-3]\n" +
                         "Document lookup ActiveWindow" + lookup + "Document invoke ActiveWindow flags=2" + none +
                         "Window lookup Hwnd" + lookup + "Window invoke Hwnd flags=2" + none +
                         "Window released\nDocument released\nSelection released\nDocuments released\nApplication released\n");
}

// Ends every notepad of the prefix; how many there were.
int EndNotepads()
{
    int ended = 0;
    const UniqueHandle snapshot(CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0));
    PROCESSENTRY32W process{};
    process.dwSize = sizeof process;
    for (BOOL more = Process32FirstW(snapshot.Get(), &process); more; more = Process32NextW(snapshot.Get(), &process)) {
        if (_wcsicmp(process.szExeFile, L"notepad.exe") != 0) continue;
        const UniqueHandle notepad(OpenProcess(PROCESS_TERMINATE, FALSE, process.th32ProcessID));
        if (TerminateProcess(notepad.Get(), 0)) ++ended;
    }
    return ended;
}

// Run on a display (Xvfb), so Wine's notepad keeps running to be found.
TEST_F(WriteToDocUnderWine, WithoutTheWordProcessorWinesNotepadReallyStarts)
{
    EndNotepads();
    EXPECT_EQ(Run(Write("text")), kOne);
    int ended = 0;
    for (int attempt = 0; attempt < 50 && ended == 0; ++attempt) {
        ended = EndNotepads();
        if (ended == 0) Sleep(100);
    }
    EXPECT_EQ(ended, 1);
}

} // namespace
