#include "ProcessRunner.h"

#include "platform/TextConversion.h"
#include "platform/windows/UniqueHandle.h"

#include <windows.h>

#include <memory>
#include <stdexcept>

namespace KestrelTest {
namespace {

using Tessel::Bridge::Platform::Windows::UniqueHandle;

using Tessel::Bridge::Platform::WideFromUtf8;

// Quotes one argument so that the C runtime's command-line parser gives it back:
// backslashes are doubled only before a quote, which is escaped, and the end.
std::wstring Quote(const std::wstring& argument)
{
    std::wstring quoted = L"\"";
    for (std::size_t i = 0, backslashes = 0; i < argument.size(); ++i) {
        if (argument[i] == L'"') quoted.append(backslashes + 1, L'\\');
        backslashes = argument[i] == L'\\' ? backslashes + 1 : 0;
        quoted.push_back(argument[i]);
        if (i + 1 == argument.size()) quoted.append(backslashes, L'\\');
    }
    return quoted + L'"';
}

[[noreturn]] void ThrowLastError(const char* what)
{
    throw std::runtime_error(std::string(what) + " failed with error " + std::to_string(GetLastError()));
}

// A temporary file for a child's output, read once the child has ended:
// nothing has to keep up with it, and a process the child leaves running
// (under Wine, a desktop) holds nothing open that a reader waits for.
UniqueHandle OutputFile()
{
    wchar_t folder[MAX_PATH + 1] = {}, name[MAX_PATH + 1] = {};
    if (GetTempPathW(MAX_PATH + 1, folder) == 0 || GetTempFileNameW(folder, L"kto", 0, name) == 0) ThrowLastError("GetTempFileNameW");
    SECURITY_ATTRIBUTES inherit{sizeof(SECURITY_ATTRIBUTES), nullptr, TRUE};
    UniqueHandle file(CreateFileW(name, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, &inherit,
                                  CREATE_ALWAYS, FILE_ATTRIBUTE_TEMPORARY | FILE_FLAG_DELETE_ON_CLOSE, nullptr));
    if (!file) ThrowLastError("CreateFileW");
    return file;
}

std::string TextOf(HANDLE file)
{
    std::string text(GetFileSize(file, nullptr), '\0');
    DWORD read = 0;
    if (!SetFilePointerEx(file, {}, nullptr, FILE_BEGIN) || !ReadFile(file, text.data(), static_cast<DWORD>(text.size()), &read, nullptr)) {
        ThrowLastError("ReadFile");
    }
    text.resize(read);
    return text;
}

// The environment block for CreateProcessW, or empty for the parent's own.
std::wstring EnvironmentBlock(const std::vector<EnvironmentChange>& changes)
{
    if (changes.empty()) return {};
    const std::unique_ptr<wchar_t, decltype(&FreeEnvironmentStringsW)> strings(GetEnvironmentStringsW(), &FreeEnvironmentStringsW);
    std::vector<std::wstring> entries;
    for (const wchar_t* entry = strings.get(); *entry != L'\0'; entry += wcslen(entry) + 1) entries.emplace_back(entry);
    for (const EnvironmentChange& change : changes) {
        const std::wstring prefix = WideFromUtf8(change.name.c_str()) + L"=";
        std::erase_if(entries, [&](const std::wstring& entry) { return _wcsnicmp(entry.c_str(), prefix.c_str(), prefix.size()) == 0; });
        if (change.value) entries.push_back(prefix + WideFromUtf8(change.value->c_str()));
    }
    std::wstring block;
    for (const std::wstring& entry : entries) block += entry + L'\0';
    return block + L'\0';
}

} // namespace

const int kExitStatusOfMinusOne = -1;
const std::string_view kLineEnd = "\r\n";

ProcessResult RunProcess(const std::filesystem::path& program, const std::vector<std::string>& arguments,
                         const std::vector<EnvironmentChange>& environment)
{
    const UniqueHandle out = OutputFile(), err = OutputFile();

    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdOutput = out.Get();
    startup.hStdError = err.Get();

    std::wstring commandLine = Quote(program.wstring());
    for (const std::string& argument : arguments) commandLine += L" " + Quote(WideFromUtf8(argument.c_str()));
    std::wstring block = EnvironmentBlock(environment);

    PROCESS_INFORMATION info{};
    // Wine now and then fails a start with ERROR_INTERNAL_ERROR; a second try starts it.
    for (int attempt = 1;; ++attempt) {
        if (CreateProcessW(program.c_str(), commandLine.data(), nullptr, nullptr, TRUE, CREATE_UNICODE_ENVIRONMENT,
                           block.empty() ? nullptr : block.data(), nullptr, &startup, &info)) {
            break;
        }
        if (GetLastError() != ERROR_INTERNAL_ERROR || attempt == 3) ThrowLastError("CreateProcessW");
        Sleep(100);
    }
    UniqueHandle process(info.hProcess);
    UniqueHandle thread(info.hThread);

    WaitForSingleObject(process.Get(), INFINITE);
    DWORD code = 0;
    if (!GetExitCodeProcess(process.Get(), &code)) ThrowLastError("GetExitCodeProcess");
    return {static_cast<int>(code), TextOf(out.Get()), TextOf(err.Get())};
}

void SetOwnEnvironment(const EnvironmentChange& change)
{
    // An empty value removes the variable.
    _putenv_s(change.name.c_str(), change.value ? change.value->c_str() : "");
}

std::filesystem::path BuiltProgram(std::string_view name)
{
    const std::wstring program = WideFromUtf8(std::string(name).c_str()) + L".exe";
    if (const wchar_t* directory = _wgetenv(L"KESTREL_PROGRAM_DIR"); directory != nullptr && *directory != L'\0') {
        return std::filesystem::path(directory) / program;
    }
    std::wstring path(32768, L'\0'); // the longest path there is
    path.resize(GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size())));
    return std::filesystem::path(path).parent_path() / program;
}

} // namespace KestrelTest
