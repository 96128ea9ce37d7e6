#include "security/KestrelSecurity.h"

#include <gtest/gtest.h>

#include <vector>

using namespace Tessel::Bridge;
using Server::Uwp::UwpInformation;
using Server::Win32::Win32Information;

namespace {

constexpr const wchar_t* kFamily = L"7C3E9B10.Umbrano_r7w2k9d4m1q8z";

} // namespace

// Assignment carries every field but the detail value; a record assigned to
// itself keeps its own.
TEST(ClientRecords, DefaultsAreZeroAndAssignmentCarriesTheFields)
{
    using Numbers = std::vector<std::uint64_t>;
    const UwpInformation fresh;
    EXPECT_EQ((Numbers{fresh.major, fresh.minor, fresh.build, fresh.revision, fresh.detailValue}), Numbers(5, 0));
    UwpInformation source(L"7C3E9B10.Umbrano", kFamily, 2, 1);
    source.build = 3;
    source.detailValue = 7;
    UwpInformation target;
    target = source;
    EXPECT_EQ(target.clientId + L"|" + target.packageName + L"|" + target.packageFamilyName,
              std::wstring(kFamily) + L"|7C3E9B10.Umbrano|" + kFamily);
    EXPECT_EQ((Numbers{target.major, target.minor, target.build, target.detailValue}), (Numbers{2, 1, 3, 0}));

    Win32Information copy;
    copy = Win32Information(L"tool", L"second", 1, 2);
    EXPECT_EQ(copy.clientId + L"|" + copy.name + L"|" + copy.detail, L"tool|tool|second");
    EXPECT_EQ((Numbers{copy.major, copy.minor}), (Numbers{1, 2}));
    const Win32Information& alias = copy;
    copy = alias;
    EXPECT_EQ(copy.clientId + L"|" + copy.name, L"tool|tool");
}
