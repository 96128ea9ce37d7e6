#pragma once

#include "logging/Export.h"

#include <cstdint>
#include <string>

namespace Tessel::Bridge::Server {

enum class ClientType : std::int32_t { Uwp = 0, Win32 = 1 };

// What every client record has: its kind and its key name.
struct KESTREL_SECURITY_API IClientInformation {
    ClientType clientType;
    std::wstring clientId;

    IClientInformation();
    explicit IClientInformation(ClientType type);
    IClientInformation(ClientType type, std::wstring id);
    IClientInformation(const IClientInformation& other);
    // Copies the type and the id; assigning a record to itself copies only the type.
    IClientInformation& operator=(const IClientInformation& other);
    ~IClientInformation();
};

namespace Uwp {

// A packaged application, matched by its package family name.
struct KESTREL_SECURITY_API UwpInformation : IClientInformation {
    std::wstring packageName;
    std::wstring packageFamilyName;
    std::uint16_t major;
    std::uint16_t minor;
    std::uint16_t build;
    std::uint16_t revision;
    std::wstring detailText1;
    std::wstring detailText2;
    std::uint64_t detailValue;
    std::wstring detailText3;

    UwpInformation();
    // The id is the package family name.
    UwpInformation(std::wstring packageName, std::wstring packageFamilyName, std::uint16_t major, std::uint16_t minor);
    UwpInformation(const UwpInformation& other);
    // Copies the type, every text and the four version numbers (not
    // detailValue); assigning a record to itself copies only the type.
    UwpInformation& operator=(const UwpInformation& other);
    ~UwpInformation();
};

} // namespace Uwp

namespace Win32 {

// A desktop program, matched by its program name.
struct KESTREL_SECURITY_API Win32Information : IClientInformation {
    std::wstring name;
    std::wstring detail;
    std::uint16_t major;
    std::uint16_t minor;
    std::uint16_t build;
    std::uint16_t revision;

    Win32Information();
    Win32Information(std::wstring name, std::uint16_t major, std::uint16_t minor);
    // The id is the program name.
    Win32Information(std::wstring name, std::wstring detail, std::uint16_t major, std::uint16_t minor);
    Win32Information(const Win32Information& other);
    // Copies the type, both names and the four version numbers; assigning a
    // record to itself copies only the type.
    Win32Information& operator=(const Win32Information& other);
    ~Win32Information();
};

} // namespace Win32
} // namespace Tessel::Bridge::Server
