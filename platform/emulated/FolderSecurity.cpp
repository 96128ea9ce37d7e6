// Folder security descriptors and account names on the emulated PC: the
// "folderSecurity" and "accounts" areas of its state file, over the folders
// its drives map to.
#include "platform/FolderSecurity.h"

#include "platform/common/Hex.h"
#include "platform/common/Utf8.h"
#include "platform/emulated/EmulatedFiles.h"
#include "platform/emulated/EmulatedPc.h"

#include <array>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

namespace Tessel::Bridge::Platform::Emulated {
namespace {

constexpr std::uint32_t kFileNotFound = 2;
constexpr std::uint32_t kPathNotFound = 3;
constexpr std::uint32_t kNoneMapped = 1332;
constexpr std::uint32_t kInvalidSid = 1337;

constexpr std::uint8_t kAccessAllowed = 0;
constexpr std::uint8_t kSystemAudit = 2;

constexpr const wchar_t* kSystem = L"S-1-5-18";
constexpr const wchar_t* kAdministrators = L"S-1-5-32-544";
constexpr const wchar_t* kUsers = L"S-1-5-32-545";
constexpr const wchar_t* kAuthenticatedUsers = L"S-1-5-11";

thread_local std::uint32_t lastError = 0;

std::uint32_t Answer(std::uint32_t result)
{
    lastError = result;
    return result;
}

// Digits of one SID field, below limit; nothing for anything else.
std::optional<std::uint64_t> Field(std::wstring_view digits, std::uint64_t limit, int base = 10)
{
    if (digits.empty()) return std::nullopt;
    std::uint64_t value = 0;
    for (const wchar_t ch : digits) {
        int digit = -1;
        if (ch >= L'0' && ch <= L'9') digit = ch - L'0';
        else if (base == 16 && ch >= L'a' && ch <= L'f') digit = ch - L'a' + 10;
        else if (base == 16 && ch >= L'A' && ch <= L'F') digit = ch - L'A' + 10;
        if (digit < 0) return std::nullopt;
        value = value * static_cast<unsigned>(base) + static_cast<unsigned>(digit);
        if (value >= limit) return std::nullopt;
    }
    return value;
}

// A string SID as ConvertSidToStringSidW writes it back ("S-1-5-18"), or
// nothing for text that is no SID: revision 1, a 48-bit identifier authority
// (decimal, or hexadecimal after "0x"), at most 15 32-bit sub-authorities.
std::optional<std::wstring> CanonicalSid(std::wstring_view text)
{
    if (!text.starts_with(L"S-")) return std::nullopt;
    std::vector<std::wstring_view> fields;
    for (std::size_t at = 2;;) {
        const std::size_t end = text.find(L'-', at);
        fields.push_back(text.substr(at, end == std::wstring_view::npos ? std::wstring_view::npos : end - at));
        if (end == std::wstring_view::npos) break;
        at = end + 1;
    }
    if (fields.size() < 2 || fields.size() > 2 + 15 || Field(fields[0], 2) != 1u) return std::nullopt;
    constexpr std::uint64_t kAuthorityLimit = std::uint64_t{1} << 48;
    const std::optional<std::uint64_t> authority = fields[1].starts_with(L"0x") || fields[1].starts_with(L"0X")
                                                       ? Field(fields[1].substr(2), kAuthorityLimit, 16)
                                                       : Field(fields[1], kAuthorityLimit);
    if (!authority) return std::nullopt;
    std::wstring sid = L"S-1-";
    if (*authority >> 32 != 0) {
        // The six bytes of the authority, most significant first.
        std::array<std::uint8_t, 6> bytes{};
        for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<std::uint8_t>(*authority >> (8 * (5 - i)));
        sid += L"0x" + HexDigits(bytes, false);
    } else {
        sid += std::to_wstring(*authority);
    }
    for (std::size_t i = 2; i < fields.size(); ++i) {
        const std::optional<std::uint64_t> sub = Field(fields[i], std::uint64_t{1} << 32);
        if (!sub) return std::nullopt;
        sid += L'-' + std::to_wstring(*sub);
    }
    return sid;
}

AccessEntry Allowed(std::uint32_t mask, const wchar_t* sid)
{
    return AccessEntry{kAccessAllowed, mask, sid};
}

// What a folder made at a drive's root inherits from the root: full control
// for Administrators and SYSTEM, read and execute for Users, modify for
// Authenticated Users; all as specific rights.
FolderSecurityDescriptor DefaultDescriptor()
{
    FolderSecurityDescriptor descriptor;
    descriptor.owner = kAdministrators;
    descriptor.group = kSystem;
    descriptor.dacl = std::vector<AccessEntry>{Allowed(0x1F01FF, kAdministrators), Allowed(0x1F01FF, kSystem),
                                               Allowed(0x1200A9, kUsers), Allowed(0x1301BF, kAuthenticatedUsers)};
    return descriptor;
}

class EmulatedFolderSecurity final : public IFolderSecurity {
public:
    explicit EmulatedFolderSecurity(EmulatedPc pc) : pc_(std::move(pc)) {}

    std::uint32_t ReadFolderSecurity(const std::wstring& folder, FolderSecurityDescriptor& descriptor) override
    {
        const State state = pc_.Read();
        // Every entry is read, so a malformed one is found whichever folder is asked for.
        const std::vector<std::pair<std::wstring, FolderSecurityDescriptor>> entries = Descriptors(state);
        std::uint32_t missing = 0;
        const std::optional<std::filesystem::path> host = Existing(state, folder, missing);
        if (!host) return Answer(missing);
        // An entry is the descriptor of the file its path reaches.
        for (const auto& [path, stored] : entries) {
            const std::optional<std::filesystem::path> entry = HostPathOf(pc_, state, path);
            std::error_code error;
            if (entry && std::filesystem::equivalent(*entry, *host, error)) {
                descriptor = stored;
                return Answer(0);
            }
        }
        descriptor = DefaultDescriptor();
        return Answer(0);
    }

    std::uint32_t LookupAccount(const std::wstring& sid, AccountName& account) override
    {
        const std::vector<std::pair<std::wstring, AccountName>> accounts = Accounts(pc_.Read());
        const std::optional<std::wstring> wanted = CanonicalSid(sid);
        if (!wanted) return Answer(kInvalidSid);
        for (const auto& [known, name] : accounts) {
            if (known == *wanted) {
                account = name;
                return Answer(0);
            }
        }
        return Answer(kNoneMapped);
    }

    std::uint32_t LastError() override { return lastError; }

private:
    // The host file or folder the path reaches on the PC; else what Windows
    // answers: the last name missing, a folder before it missing, no such
    // drive or server, a name no file has.
    std::optional<std::filesystem::path> Existing(const State& state, const std::wstring& folder, std::uint32_t& missing) const
    {
        const std::optional<std::filesystem::path> host = HostPathOf(pc_, state, folder, &missing);
        std::error_code error;
        if (!host || std::filesystem::exists(*host, error)) return host;
        missing = std::filesystem::is_directory(host->parent_path(), error) ? kFileNotFound : kPathNotFound;
        return std::nullopt;
    }

    const State& Area(const State& state, const char* name) const
    {
        const State& area = Member(state, name);
        if (!area.is_null() && !area.is_object()) pc_.ThrowMalformed(std::string("/") + name + " is not an object");
        return area;
    }

    std::wstring Sid(const State& value, const std::string& at) const
    {
        const std::optional<std::wstring> sid =
            value.is_string() ? CanonicalSid(Utf8::Decode(value.get_ref<const std::string&>())) : std::nullopt;
        if (!sid) pc_.ThrowMalformed(at + " is not a SID such as \"S-1-5-18\"");
        return *sid;
    }

    // An owner or group: absent for a descriptor without one.
    std::wstring OptionalSid(const State& value, const std::string& at) const
    {
        return value.is_null() ? std::wstring() : Sid(value, at);
    }

    std::uint32_t Unsigned(const State& value, std::uint64_t max, const std::string& at) const
    {
        bool fits = false;
        if (value.is_number_unsigned()) {
            fits = value.get<std::uint64_t>() <= max;
        } else if (value.is_number_integer()) {
            fits = value.get<std::int64_t>() >= 0 && static_cast<std::uint64_t>(value.get<std::int64_t>()) <= max;
        }
        if (!fits) pc_.ThrowMalformed(at + " is not a number from 0 to " + std::to_string(max));
        return static_cast<std::uint32_t>(value.get<std::uint64_t>());
    }

    std::vector<std::pair<std::wstring, FolderSecurityDescriptor>> Descriptors(const State& state) const
    {
        std::vector<std::pair<std::wstring, FolderSecurityDescriptor>> entries;
        for (const auto& [path, value] : Area(state, "folderSecurity").items()) {
            const std::string at = "/folderSecurity/" + path;
            if (!value.is_object()) pc_.ThrowMalformed(at + " is not an object");
            FolderSecurityDescriptor descriptor;
            descriptor.owner = OptionalSid(Member(value, "owner"), at + "/owner");
            descriptor.group = OptionalSid(Member(value, "group"), at + "/group");
            // Left out (a null in the file leaves it out): a NULL DACL.
            const State& dacl = Member(value, "dacl");
            if (!dacl.is_null()) {
                if (!dacl.is_array()) pc_.ThrowMalformed(at + "/dacl is not an array or null");
                descriptor.dacl.emplace();
                for (std::size_t i = 0; i < dacl.size(); ++i) {
                    const std::string entryAt = at + "/dacl/" + std::to_string(i);
                    if (!dacl[i].is_object()) pc_.ThrowMalformed(entryAt + " is not an object");
                    AccessEntry entry;
                    entry.type = static_cast<std::uint8_t>(Unsigned(Member(dacl[i], "type"), 0xFF, entryAt + "/type"));
                    entry.mask = Unsigned(Member(dacl[i], "mask"), 0xFFFFFFFF, entryAt + "/mask");
                    // Only these types keep a SID where the platform reads it.
                    if (entry.type <= kSystemAudit) entry.sid = Sid(Member(dacl[i], "sid"), entryAt + "/sid");
                    descriptor.dacl->push_back(std::move(entry));
                }
            }
            entries.emplace_back(Utf8::Decode(path), std::move(descriptor));
        }
        return entries;
    }

    std::vector<std::pair<std::wstring, AccountName>> Accounts(const State& state) const
    {
        std::vector<std::pair<std::wstring, AccountName>> accounts;
        for (const auto& [key, value] : Area(state, "accounts").items()) {
            const std::string at = "/accounts/" + key;
            const std::optional<std::wstring> sid = CanonicalSid(Utf8::Decode(key));
            if (!sid) pc_.ThrowMalformed(at + ": the name is not a SID such as \"S-1-5-18\"");
            if (!value.is_array() || value.size() != 2 || !value[0].is_string() || !value[1].is_string()) {
                pc_.ThrowMalformed(at + " is not [domain, name]");
            }
            accounts.emplace_back(*sid, AccountName{Utf8::Decode(value[0].get<std::string>()),
                                                    Utf8::Decode(value[1].get<std::string>())});
        }
        return accounts;
    }

    EmulatedPc pc_;
};

} // namespace

State BuiltInFolderSecurity()
{
    return State::object();
}

State BuiltInAccounts()
{
    return State{
        {"S-1-5-18", State::array({"NT AUTHORITY", "SYSTEM"})},
        {"S-1-5-32-544", State::array({"BUILTIN", "Administrators"})},
        {"S-1-5-32-545", State::array({"BUILTIN", "Users"})},
        {"S-1-5-11", State::array({"NT AUTHORITY", "Authenticated Users"})},
        {"S-1-5-80-956008885-3418522649-1831038044-1853292631-2271478464", State::array({"NT SERVICE", "TrustedInstaller"})},
    };
}

} // namespace Tessel::Bridge::Platform::Emulated

namespace Tessel::Bridge::Platform {

std::shared_ptr<IFolderSecurity> CreateFolderSecurity()
{
    return std::make_shared<Emulated::EmulatedFolderSecurity>(Emulated::EmulatedPc::FromEnvironment());
}

} // namespace Tessel::Bridge::Platform
