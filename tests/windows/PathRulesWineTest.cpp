// The path-rules table against Wine's own ExpandEnvironmentStringsW and
// GetFullPathNameW, with the table's variables and each row's current
// directory made this process's: the real call and ours both give the row.
#include "unit/PathRulesCases.h"

#include <gtest/gtest.h>

#include <windows.h>

#include <cstdio>
#include <memory>

using namespace KestrelTest::PathRules;

namespace {

// The table's variables (and no other per-drive "=C:" ones) while it lives;
// then the process's own back.
class TableProcess {
public:
    TableProcess()
    {
        directory_.resize(GetCurrentDirectoryW(0, nullptr));
        directory_.resize(GetCurrentDirectoryW(static_cast<DWORD>(directory_.size()), directory_.data()));
        const std::unique_ptr<wchar_t, decltype(&FreeEnvironmentStringsW)> block(GetEnvironmentStringsW(), &FreeEnvironmentStringsW);
        for (const wchar_t* entry = block.get(); *entry != L'\0'; entry += wcslen(entry) + 1) {
            if (entry[0] == L'=' && entry[1] != L'\0' && entry[2] == L':') perDrive_.emplace_back(entry);
        }
        for (const std::wstring& entry : perDrive_) SetEnvironmentVariableW(entry.substr(0, 3).c_str(), nullptr);
        for (const auto& [name, value] : kVariables) SetEnvironmentVariableW(name.c_str(), value.c_str());
    }
    ~TableProcess()
    {
        SetCurrentDirectoryW(directory_.c_str());
        for (const auto& [name, value] : kVariables) SetEnvironmentVariableW(name.c_str(), nullptr);
        for (const std::wstring& entry : perDrive_) SetEnvironmentVariableW(entry.substr(0, 3).c_str(), entry.c_str() + 4);
    }
    TableProcess(const TableProcess&) = delete;
    TableProcess& operator=(const TableProcess&) = delete;

private:
    std::wstring directory_;
    std::vector<std::wstring> perDrive_; // "=C:=C:\dir"
};

} // namespace

TEST(PathRulesWine, RealFunctionsGiveWhatTheTableAndOurRulesGive)
{
    const TableProcess process;
    const std::vector<Case> cases = Cases();
    std::size_t compared = 0;
    for (std::size_t i = 0; i < cases.size(); ++i) {
        const Case& row = cases[i];
        if (row.notUnderWine != nullptr) continue;
        SCOPED_TRACE(::testing::Message() << "row " << i << ": " << row.input.substr(0, 60));
        ASSERT_TRUE(SetCurrentDirectoryW(row.currentDirectory.c_str())) << GetLastError();
        EXPECT_EQ(Observe(row,
                          [&row](const wchar_t* in, wchar_t* buffer, std::uint32_t size, std::uint32_t& lastError) {
                              SetLastError(lastError);
                              const DWORD returned = row.expand ? ExpandEnvironmentStringsW(in, buffer, size)
                                                                : GetFullPathNameW(in, size, buffer, nullptr);
                              lastError = GetLastError();
                              return static_cast<std::uint32_t>(returned);
                          }),
                  Expected(row));
        EXPECT_EQ(Ours(row), Expected(row));
        ++compared;
    }
    std::printf("%zu of %zu rows compared with Wine\n", compared, cases.size());
}
