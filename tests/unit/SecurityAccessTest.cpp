#include "security/KestrelSecurity.h"

#include <gtest/gtest.h>

#include <vector>

using namespace Tessel::Bridge;
using Server::Uwp::UwpInformation;
using Server::Win32::Win32Information;

namespace {

constexpr const wchar_t* kFamily = L"7C3E9B10.Umbrano_r7w2k9d4m1q8z";

bool UwpExempt(const std::wstring& family, std::uint16_t major, std::uint16_t minor)
{
    return Security::UwpWithNoTesselManifestCheckBasedOnMajorAndMinorVersion(
               Security::UwpWithNoTesselManifestExemptionWhiteList().GetExemption(),
               std::make_shared<UwpInformation>(L"7C3E9B10.Umbrano", family, major, minor))
        .IsAnException();
}

bool Win32Exempt(const wchar_t* name, std::uint16_t major, std::uint16_t minor)
{
    return Security::Win32WithNoTesselManifestCheckBasedOnMajorAndMinorVersion(
               Security::Win32WithNoTesselManifestExemptionWhiteList().GetExemption(),
               std::make_shared<Win32Information>(name, major, minor))
        .IsAnException();
}

} // namespace

// The consumer program checks the listed versions and the letter case through
// the installed package; these are the rows it leaves out.
TEST(ExemptionWhiteLists, AnEarlierMajorWithAnyMinorAndNothingElse)
{
    EXPECT_TRUE(UwpExempt(kFamily, 0, 65535));
    EXPECT_FALSE(UwpExempt(kFamily, 3, 0));
    EXPECT_FALSE(UwpExempt(std::wstring(kFamily) + L" ", 1, 0));
    EXPECT_TRUE(Win32Exempt(L"TESSELKBDNOTIFICATION", 7, 50));
    EXPECT_FALSE(Win32Exempt(L"kbdagent", 1, 0));
    EXPECT_FALSE(Security::UwpWithNoTesselManifestCheckBasedOnMajorAndMinorVersion(
                     nullptr, std::make_shared<UwpInformation>(L"p", kFamily, 0, 0)).IsAnException());
    EXPECT_FALSE(Security::UwpWithNoTesselManifestCheckBasedOnMajorAndMinorVersion(
                     Security::UwpWithNoTesselManifestExemptionWhiteList().GetExemption(), nullptr).IsAnException());
}

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
