#include "security/KestrelSecurity.h"

#include <gtest/gtest.h>

#include <vector>

using namespace Tessel::Bridge;
using Security::BridgeAccessManager;
using Server::Uwp::UwpInformation;
using Server::Win32::Win32Information;

namespace {

constexpr const wchar_t* kFamily = L"7C3E9B10.Umbrano_r7w2k9d4m1q8z";

bool UwpExempt(const std::wstring& family, std::uint16_t major, std::uint16_t minor)
{
    BridgeAccessManager manager;
    manager.SetUwpChecker(std::make_shared<Security::UwpWithNoTesselManifestCheckBasedOnMajorAndMinorVersion>(
        Security::UwpWithNoTesselManifestExemptionWhiteList().GetExemption(),
        std::make_shared<UwpInformation>(L"7C3E9B10.Umbrano", family, major, minor)));
    return manager.IsUwpExempt();
}

} // namespace

TEST(ExemptionWhiteLists, ExactFamilyOrLowerCasedNameAtOrBelowTheListedVersion)
{
    const struct {
        const wchar_t* family;
        std::uint16_t major, minor;
        bool exempt;
    } packaged[] = {{kFamily, 2, 0, true},  {kFamily, 1, 99, true}, {kFamily, 0, 65535, true}, {kFamily, 2, 1, false},
                    {kFamily, 3, 0, false}, {L"7c3e9b10.umbrano_r7w2k9d4m1q8z", 1, 0, false},
                    {L"7C3E9B10.Umbrano_r7w2k9d4m1q8z ", 1, 0, false}};
    for (const auto& row : packaged) {
        EXPECT_EQ(UwpExempt(row.family, row.major, row.minor), row.exempt) << row.family << ' ' << row.major << '.' << row.minor;
    }
    // Desktop clients: the name is lower-cased first.
    const struct {
        const wchar_t* name;
        std::uint16_t major, minor;
        bool exempt;
    } desktop[] = {{L"TESSELKBDNOTIFICATION", 8, 9, true}, {L"kbdAgentDSU", 8, 0, true}, {L"KbdAgentUwp", 7, 50, true},
                   {L"KbdAgentUwp", 8, 10, false},         {L"kbdagentuwp", 9, 0, false}, {L"kbdagent", 1, 0, false}};
    for (const auto& row : desktop) {
        const auto client = std::make_shared<Win32Information>(row.name, row.major, row.minor);
        BridgeAccessManager manager;
        manager.SetWin32Checker(std::make_shared<Security::Win32WithNoTesselManifestCheckBasedOnMajorAndMinorVersion>(
            Security::Win32WithNoTesselManifestExemptionWhiteList().GetExemption(), client));
        EXPECT_EQ(manager.IsWin32Exempt(), row.exempt) << row.name << ' ' << row.major << '.' << row.minor;
    }
    // No list or no client: never exempt.
    EXPECT_FALSE(Security::UwpWithNoTesselManifestCheckBasedOnMajorAndMinorVersion(
                     nullptr, std::make_shared<UwpInformation>(L"p", kFamily, 0, 0)).IsAnException());
    EXPECT_FALSE(Security::UwpWithNoTesselManifestCheckBasedOnMajorAndMinorVersion(
                     Security::UwpWithNoTesselManifestExemptionWhiteList().GetExemption(), nullptr).IsAnException());
}

// The library's client records as its users get them from default, copy and
// assignment (assignment leaves the detail value; a record assigned to
// itself keeps only the type).
TEST(ClientRecords, DefaultsAreZeroAndCopiesCarryTheirFields)
{
    using Numbers = std::vector<std::uint64_t>;
    const UwpInformation fresh;
    EXPECT_EQ(fresh.clientType, Server::ClientType::Uwp);
    EXPECT_EQ((Numbers{fresh.major, fresh.minor, fresh.build, fresh.revision, fresh.detailValue}), Numbers(5, 0));
    UwpInformation source(L"7C3E9B10.Umbrano", kFamily, 2, 1);
    source.build = 3;
    source.revision = 4;
    source.detailText3 = L"three";
    source.detailValue = 7;
    UwpInformation target;
    target = source;
    EXPECT_EQ(target.clientId + L"|" + target.packageName + L"|" + target.packageFamilyName + L"|" + target.detailText3,
              std::wstring(kFamily) + L"|7C3E9B10.Umbrano|" + kFamily + L"|three");
    EXPECT_EQ((Numbers{target.major, target.minor, target.build, target.revision, target.detailValue}), (Numbers{2, 1, 3, 4, 0}));
    EXPECT_EQ(UwpInformation(source).detailValue, 7u);

    Win32Information win32(L"tool", L"second", 1, 2);
    win32.build = 5;
    Win32Information copy;
    copy = win32;
    EXPECT_EQ(copy.clientId + L"|" + copy.name + L"|" + copy.detail, L"tool|tool|second");
    EXPECT_EQ((Numbers{copy.major, copy.minor, copy.build}), (Numbers{1, 2, 5}));
    EXPECT_EQ(Win32Information().clientType, Server::ClientType::Win32);
    copy.clientType = Server::ClientType::Uwp;
    const Win32Information& alias = copy;
    copy = alias;
    EXPECT_EQ(copy.name, L"tool");
    EXPECT_EQ(copy.clientType, Server::ClientType::Uwp);
}
