#include "security/KestrelSecurity.h"

#include <gtest/gtest.h>

using namespace Tessel::Bridge;
using Security::BridgeAccessManager;
using Security::bridge_access_exception;
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

std::pair<bool, std::wstring> Win32Exempt(const std::wstring& name, std::uint16_t major, std::uint16_t minor)
{
    const auto client = std::make_shared<Win32Information>(name, major, minor);
    BridgeAccessManager manager;
    manager.SetWin32Checker(std::make_shared<Security::Win32WithNoTesselManifestCheckBasedOnMajorAndMinorVersion>(
        Security::Win32WithNoTesselManifestExemptionWhiteList().GetExemption(), client));
    return {manager.IsWin32Exempt(), client->name};
}

} // namespace

TEST(ExemptionWhiteLists, PackagedClientsMatchTheFamilyExactlyAtOrBelowTheListedVersion)
{
    EXPECT_TRUE(UwpExempt(kFamily, 2, 0));
    EXPECT_TRUE(UwpExempt(kFamily, 1, 99));
    EXPECT_TRUE(UwpExempt(kFamily, 0, 65535));
    EXPECT_FALSE(UwpExempt(kFamily, 2, 1));
    EXPECT_FALSE(UwpExempt(kFamily, 3, 0));
    EXPECT_FALSE(UwpExempt(L"7c3e9b10.umbrano_r7w2k9d4m1q8z", 1, 0));
    EXPECT_FALSE(UwpExempt(std::wstring(kFamily) + L" ", 1, 0));
}

TEST(ExemptionWhiteLists, DesktopClientsAreLowerCasedInTheSharedRecordFirst)
{
    EXPECT_EQ(Win32Exempt(L"TESSELKBDNOTIFICATION", 8, 9), std::make_pair(true, std::wstring(L"tesselkbdnotification")));
    EXPECT_EQ(Win32Exempt(L"kbdAgentDSU", 8, 0), std::make_pair(true, std::wstring(L"kbdagentdsu")));
    EXPECT_EQ(Win32Exempt(L"KbdAgentUwp", 8, 9), std::make_pair(true, std::wstring(L"kbdagentuwp")));
    EXPECT_EQ(Win32Exempt(L"KbdAgentUwp", 7, 50), std::make_pair(true, std::wstring(L"kbdagentuwp")));
    EXPECT_EQ(Win32Exempt(L"KbdAgentUwp", 8, 10), std::make_pair(false, std::wstring(L"kbdagentuwp")));
    EXPECT_EQ(Win32Exempt(L"kbdagentuwp", 9, 0).first, false);
    EXPECT_EQ(Win32Exempt(L"kbdagent", 1, 0).first, false);
}

TEST(ExemptionWhiteLists, EachCallGetsItsOwnCopyOfTheRows)
{
    const auto rows = Security::Win32WithNoTesselManifestExemptionWhiteList().GetExemption();
    ASSERT_EQ(rows->size(), 3u);
    EXPECT_EQ((*rows)[1].client.name, L"tesselkbdnotification");
    EXPECT_EQ((*rows)[1].operation, 1);
    rows->clear();
    EXPECT_EQ(Security::Win32WithNoTesselManifestExemptionWhiteList::_white_list.size(), 3u);
    const auto uwp = Security::UwpWithNoTesselManifestExemptionWhiteList().GetExemption();
    ASSERT_EQ(uwp->size(), 1u);
    EXPECT_EQ((*uwp)[0].client.clientId, kFamily);
}

TEST(ExemptionWhiteLists, EmptyListsOrClientsAreNeverExempt)
{
    Security::UwpWithNoTesselManifestCheckBasedOnMajorAndMinorVersion noList(nullptr, std::make_shared<UwpInformation>(L"p", kFamily, 0, 0));
    Security::UwpWithNoTesselManifestCheckBasedOnMajorAndMinorVersion noClient(
        Security::UwpWithNoTesselManifestExemptionWhiteList().GetExemption(), nullptr);
    Security::Win32WithNoTesselManifestCheckBasedOnMajorAndMinorVersion emptyList(
        std::make_shared<std::vector<Security::Win32MatchingDescriptor>>(), std::make_shared<Win32Information>(L"kbdagentuwp", 1, 0));
    EXPECT_FALSE(noList.IsAnException());
    EXPECT_FALSE(noClient.IsAnException());
    EXPECT_FALSE(emptyList.IsAnException());
}

TEST(BridgeAccessManager, AQuestionWithoutItsCheckerThrowsTheLibrarysLogicError)
{
    BridgeAccessManager manager;
    try {
        manager.IsWin32Exempt();
        ADD_FAILURE() << "no exception";
    } catch (const std::logic_error& e) {
        EXPECT_STREQ(e.what(), "The Behavior was not defined. A call to SetWin32Checker must be done.");
        EXPECT_NE(dynamic_cast<const bridge_access_exception*>(&e), nullptr);
    }
    EXPECT_THROW(
        {
            try {
                manager.IsUwpExempt();
            } catch (const bridge_access_exception& e) {
                EXPECT_STREQ(e.what(), "The Behavior was not defined. A call to SetUwpChecker must be done.");
                throw;
            }
        },
        std::exception);
    // Copies share the checkers; clearing one clears what the copy sees.
    manager.SetUwpChecker(std::make_shared<Security::UwpWithNoTesselManifestCheckBasedOnMajorAndMinorVersion>(
        nullptr, nullptr));
    BridgeAccessManager copy = manager;
    EXPECT_FALSE(copy.IsUwpExempt());
    copy.SetUwpChecker(nullptr);
    EXPECT_THROW(copy.IsUwpExempt(), bridge_access_exception);
    EXPECT_FALSE(manager.IsUwpExempt());
}

TEST(ClientRecords, ConstructorsAndAssignmentCopyWhatTheyShould)
{
    EXPECT_EQ(Win32Information().clientType, Server::ClientType::Win32);
    EXPECT_EQ(UwpInformation().clientType, Server::ClientType::Uwp);
    const UwpInformation uwp(L"7C3E9B10.Umbrano", kFamily, 2, 0);
    EXPECT_EQ(uwp.clientId, kFamily);
    EXPECT_EQ(uwp.packageName, L"7C3E9B10.Umbrano");
    EXPECT_EQ(Win32Information(L"tool", L"second", 1, 2).clientId, L"tool");

    UwpInformation target;
    UwpInformation source = uwp;
    source.build = 3;
    source.revision = 4;
    source.detailText3 = L"three";
    source.detailValue = 7;
    target = source;
    EXPECT_EQ(target.clientType, Server::ClientType::Uwp);
    EXPECT_EQ(target.packageFamilyName, kFamily);
    EXPECT_EQ(target.build, 3);
    EXPECT_EQ(target.revision, 4);
    EXPECT_EQ(target.detailText3, L"three");
    EXPECT_EQ(target.detailValue, 0u);
    EXPECT_EQ(UwpInformation(source).detailValue, 7u);

    Win32Information self(L"Name", 1, 2);
    self.clientType = Server::ClientType::Uwp;
    const Win32Information& alias = self;
    self = alias;
    EXPECT_EQ(self.name, L"Name");
    EXPECT_EQ(self.clientType, Server::ClientType::Uwp);
}
