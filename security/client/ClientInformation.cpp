#include "security/client/ClientInformation.h"

#include <utility>

namespace Tessel::Bridge::Server {

IClientInformation::IClientInformation() : clientType(ClientType::Uwp) {}
IClientInformation::IClientInformation(ClientType type) : clientType(type) {}
IClientInformation::IClientInformation(ClientType type, std::wstring id) : clientType(type), clientId(std::move(id)) {}
IClientInformation::IClientInformation(const IClientInformation& other) = default;
IClientInformation::~IClientInformation() = default;

IClientInformation& IClientInformation::operator=(const IClientInformation& other)
{
    clientType = other.clientType;
    if (this != &other) clientId = other.clientId;
    return *this;
}

namespace Uwp {

UwpInformation::UwpInformation()
    : IClientInformation(ClientType::Uwp), major(0), minor(0), build(0), revision(0), detailValue(0) {}

UwpInformation::UwpInformation(std::wstring packageName_, std::wstring packageFamilyName_, std::uint16_t major_,
                               std::uint16_t minor_)
    : IClientInformation(ClientType::Uwp, packageFamilyName_), packageName(std::move(packageName_)),
      packageFamilyName(std::move(packageFamilyName_)), major(major_), minor(minor_), build(0), revision(0),
      detailValue(0) {}

UwpInformation::UwpInformation(const UwpInformation& other) = default;
UwpInformation::~UwpInformation() = default;

UwpInformation& UwpInformation::operator=(const UwpInformation& other)
{
    IClientInformation::operator=(other);
    if (this == &other) return *this;
    packageName = other.packageName;
    packageFamilyName = other.packageFamilyName;
    major = other.major;
    minor = other.minor;
    build = other.build;
    revision = other.revision;
    detailText1 = other.detailText1;
    detailText2 = other.detailText2;
    detailText3 = other.detailText3;
    return *this;
}

} // namespace Uwp

namespace Win32 {

Win32Information::Win32Information()
    : IClientInformation(ClientType::Win32), major(0), minor(0), build(0), revision(0) {}

Win32Information::Win32Information(std::wstring name_, std::uint16_t major_, std::uint16_t minor_)
    : Win32Information(std::move(name_), std::wstring(), major_, minor_) {}

Win32Information::Win32Information(std::wstring name_, std::wstring detail_, std::uint16_t major_, std::uint16_t minor_)
    : IClientInformation(ClientType::Win32, name_), name(std::move(name_)), detail(std::move(detail_)), major(major_),
      minor(minor_), build(0), revision(0) {}

Win32Information::Win32Information(const Win32Information& other) = default;
Win32Information::~Win32Information() = default;

Win32Information& Win32Information::operator=(const Win32Information& other)
{
    IClientInformation::operator=(other);
    if (this == &other) return *this;
    name = other.name;
    detail = other.detail;
    major = other.major;
    minor = other.minor;
    build = other.build;
    revision = other.revision;
    return *this;
}

} // namespace Win32
} // namespace Tessel::Bridge::Server
