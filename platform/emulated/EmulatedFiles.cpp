#include "platform/emulated/EmulatedFiles.h"

#include "platform/common/Utf8.h"

#include <string>
#include <system_error>
#include <vector>

namespace Tessel::Bridge::Platform::Emulated {

namespace {

bool IsSeparator(wchar_t ch) { return ch == L'\\' || ch == L'/'; }

bool IsDriveLetter(wchar_t ch) { return (ch >= L'A' && ch <= L'Z') || (ch >= L'a' && ch <= L'z'); }

// The entry of folder named `name`: the exact one if it exists, else one
// whose name matches ignoring case, else the exact name (for a file that is
// not there yet).
std::filesystem::path Child(const std::filesystem::path& folder, const std::wstring& name)
{
    const std::filesystem::path exact = folder / Utf8::Encode(name);
    std::error_code error;
    if (std::filesystem::exists(exact, error)) return exact;
    for (std::filesystem::directory_iterator it(folder, error), end; !error && it != end; it.increment(error)) {
        const std::wstring entry = Utf8::Decode(it->path().filename().string());
        if (EqualIgnoringCase(entry, name)) return it->path();
    }
    return exact;
}

} // namespace

std::vector<std::wstring> NamesBelowRoot(std::wstring_view rest)
{
    std::vector<std::wstring> names;
    std::size_t at = 0;
    while (at < rest.size()) {
        std::size_t end = at;
        while (end < rest.size() && !IsSeparator(rest[end])) ++end;
        const std::wstring_view name = rest.substr(at, end - at);
        if (name == L"..") {
            if (!names.empty()) names.pop_back();
        } else if (!name.empty() && name != L".") {
            names.emplace_back(name);
        }
        at = end + 1;
    }
    return names;
}

State BuiltInDrives()
{
    return State{{"C:", "drive-c"}};
}

State BuiltInTrust()
{
    // No "roots" member: a null in the file removes a built-in one.
    return State{{"catalogs", "catalogs"}};
}

std::filesystem::path HostPathFromState(const EmulatedPc& pc, const State& value, const char* pointer)
{
    if (!value.is_string() || value.get_ref<const std::string&>().empty()) {
        pc.ThrowMalformed(std::string(pointer) + " is not a path");
    }
    const std::filesystem::path path(value.get_ref<const std::string&>());
    return path.is_absolute() ? path : pc.StateFile().parent_path() / path;
}

std::optional<std::filesystem::path> HostPathOf(const EmulatedPc& pc, const State& state, std::wstring_view path)
{
    if (path.starts_with(L"\\\\?\\")) path.remove_prefix(4);
    if (path.size() < 2 || !IsDriveLetter(path[0]) || path[1] != L':') {
        if (path.size() >= 2 && IsSeparator(path[0]) && IsSeparator(path[1])) return std::nullopt; // UNC
        return std::filesystem::path(Utf8::Encode(path));
    }
    const char letter = static_cast<char>(path[0] & ~0x20);
    const State& drives = Member(state, "drives");
    if (!drives.is_object()) return std::nullopt;
    const State* folder = nullptr;
    std::string key;
    for (const auto& [name, value] : drives.items()) {
        if (name.size() == 2 && name[1] == ':' && (name[0] & ~0x20) == letter && !value.is_null()) {
            folder = &value;
            key = name;
        }
    }
    if (folder == nullptr) return std::nullopt;
    std::filesystem::path host = HostPathFromState(pc, *folder, ("/drives/" + key).c_str());
    for (const std::wstring& name : NamesBelowRoot(path.substr(2))) host = Child(host, name);
    return host;
}

} // namespace Tessel::Bridge::Platform::Emulated
