#include "security/access/BridgeAccessManager.h"

#include <cwctype>

namespace Tessel::Bridge::Security {
namespace {

using Server::Uwp::UwpInformation;
using Server::Win32::Win32Information;

// At most the listed version: an earlier major, or the same major and a minor
// not above it. Build and revision do not count.
template <typename Record>
bool AtMost(const Record& client, const Record& listed)
{
    return client.major < listed.major || (client.major == listed.major && client.minor <= listed.minor);
}

} // namespace

bridge_access_exception::bridge_access_exception(const std::string& message) : std::logic_error(message) {}
bridge_access_exception::bridge_access_exception(const char* message) : std::logic_error(message) {}
bridge_access_exception::~bridge_access_exception() = default;

MatchingDescriptor::MatchingDescriptor() : operation(Exempt) {}
MatchingDescriptor::MatchingDescriptor(Operation op) : operation(op) {}

UwpMatchingDescriptor::UwpMatchingDescriptor(UwpInformation information, Operation op)
    : MatchingDescriptor(op), client(std::move(information)) {}

Win32MatchingDescriptor::Win32MatchingDescriptor(Win32Information information, Operation op)
    : MatchingDescriptor(op), client(std::move(information)) {}

const std::vector<UwpMatchingDescriptor> UwpWithNoTesselManifestExemptionWhiteList::_white_list{
    {UwpInformation(L"7C3E9B10.Umbrano", L"7C3E9B10.Umbrano_r7w2k9d4m1q8z", 2, 0), MatchingDescriptor::Exempt},
};

const std::vector<Win32MatchingDescriptor> Win32WithNoTesselManifestExemptionWhiteList::_white_list{
    {Win32Information(L"kbdagentuwp", 8, 9), MatchingDescriptor::Exempt},
    {Win32Information(L"tesselkbdnotification", 8, 9), MatchingDescriptor::Exempt},
    {Win32Information(L"kbdagentdsu", 8, 9), MatchingDescriptor::Exempt},
};

std::shared_ptr<std::vector<UwpMatchingDescriptor>> UwpWithNoTesselManifestExemptionWhiteList::GetExemption() const
{
    return std::make_shared<std::vector<UwpMatchingDescriptor>>(_white_list);
}

std::shared_ptr<std::vector<Win32MatchingDescriptor>> Win32WithNoTesselManifestExemptionWhiteList::GetExemption() const
{
    return std::make_shared<std::vector<Win32MatchingDescriptor>>(_white_list);
}

IClientWithNoTesselManifestCheckCriteria::~IClientWithNoTesselManifestCheckCriteria() = default;

UwpWithNoTesselManifestCheckBasedOnMajorAndMinorVersion::UwpWithNoTesselManifestCheckBasedOnMajorAndMinorVersion(
    std::shared_ptr<std::vector<UwpMatchingDescriptor>> list, std::shared_ptr<UwpInformation> client)
    : list_(std::move(list)), client_(std::move(client)) {}

bool UwpWithNoTesselManifestCheckBasedOnMajorAndMinorVersion::IsAnException()
{
    if (!list_ || !client_) return false;
    for (const UwpMatchingDescriptor& row : *list_) {
        if (row.client.packageFamilyName == client_->packageFamilyName && AtMost(*client_, row.client)) return true;
    }
    return false;
}

Win32WithNoTesselManifestCheckBasedOnMajorAndMinorVersion::Win32WithNoTesselManifestCheckBasedOnMajorAndMinorVersion(
    std::shared_ptr<std::vector<Win32MatchingDescriptor>> list, std::shared_ptr<Win32Information> client)
    : list_(std::move(list)), client_(std::move(client)) {}

bool Win32WithNoTesselManifestCheckBasedOnMajorAndMinorVersion::IsAnException()
{
    if (!list_ || !client_) return false;
    // In the shared record: everyone holding it sees the lower-case name.
    for (wchar_t& c : client_->name) c = static_cast<wchar_t>(std::towlower(static_cast<std::wint_t>(c)));
    for (const Win32MatchingDescriptor& row : *list_) {
        if (row.client.name == client_->name && AtMost(*client_, row.client)) return true;
    }
    return false;
}

BridgeAccessManager::BridgeAccessManager() : uwpWhiteList_(std::make_shared<UwpWithNoTesselManifestExemptionWhiteList>()) {}

void BridgeAccessManager::SetUwpChecker(std::shared_ptr<IClientWithNoTesselManifestCheckCriteria> checker)
{
    uwpChecker_ = std::move(checker);
}

void BridgeAccessManager::SetWin32Checker(std::shared_ptr<IClientWithNoTesselManifestCheckCriteria> checker)
{
    win32Checker_ = std::move(checker);
}

bool BridgeAccessManager::IsUwpExempt()
{
    if (!uwpChecker_) throw bridge_access_exception("The Behavior was not defined. A call to SetUwpChecker must be done.");
    return uwpChecker_->IsAnException();
}

bool BridgeAccessManager::IsWin32Exempt()
{
    if (!win32Checker_) {
        throw bridge_access_exception("The Behavior was not defined. A call to SetWin32Checker must be done.");
    }
    return win32Checker_->IsAnException();
}

} // namespace Tessel::Bridge::Security
