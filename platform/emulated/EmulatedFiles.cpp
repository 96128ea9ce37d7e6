#include "platform/emulated/EmulatedFiles.h"

#include "platform/common/Utf8.h"

#include <algorithm>
#include <string>
#include <system_error>
#include <utility>

namespace Tessel::Bridge::Platform::Emulated {

namespace {

constexpr std::uint32_t kPathNotFound = 3;
constexpr std::uint32_t kBadNetPath = 53;
constexpr std::uint32_t kInvalidName = 123;

// A name a file can have: not "." or "..", and none of the characters Windows
// refuses in names (after a ':' a name would be a stream's).
bool IsFileName(std::wstring_view name)
{
    constexpr std::wstring_view kRefused = L"\"*/:<>?\\|";
    return !name.empty() && name != L"." && name != L".." && std::none_of(name.begin(), name.end(), [&](wchar_t ch) {
        return ch < 32 || kRefused.find(ch) != std::wstring_view::npos;
    });
}

// The entry of folder named `name`: the exact one if it exists, else one
// whose name matches ignoring case, else the exact name (for a file that is
// not there yet).
std::filesystem::path Child(const std::filesystem::path& folder, std::wstring_view name)
{
    const std::filesystem::path exact = folder / Utf8::Encode(name);
    std::error_code error;
    if (std::filesystem::exists(exact, error)) return exact;
    for (std::filesystem::directory_iterator it(folder, error), end; !error && it != end; it.increment(error)) {
        if (EqualIgnoringCase(Utf8::Decode(it->path().filename().string()), name)) return it->path();
    }
    return exact;
}

// GetFullPathNameW's answer; nothing for a path it refuses.
std::optional<std::wstring> FullPathOf(std::wstring_view path, const PathRules::PathEnvironment& environment)
{
    const std::wstring text(path);
    std::uint32_t lastError = 0;
    std::wstring full(PathRules::FullPathName(text.c_str(), 0, nullptr, environment, lastError), L'\0');
    const std::uint32_t length = full.empty() ? 0 : PathRules::FullPathName(text.c_str(), static_cast<std::uint32_t>(full.size()),
                                                                              full.data(), environment, lastError);
    if (length == 0 || length >= full.size()) return std::nullopt;
    full.resize(length);
    return full;
}

} // namespace

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

PathRules::PathEnvironment ProgramEnvironment(const EmulatedPc& pc, const State& state, const State* overrides)
{
    const State& environment = Member(state, "environment");
    const State& current = Member(environment, "currentDirectory");
    if (!current.is_string()) pc.ThrowMalformed("/environment/currentDirectory is not a text");
    const State& variables = Member(environment, "variables");
    if (!variables.is_object()) pc.ThrowMalformed("/environment/variables is not an object");
    PathRules::PathEnvironment result;
    result.currentDirectory = Utf8::Decode(current.get<std::string>());
    // The overrides are looked in first, so a name set in both has their value.
    State layers = State::array({overrides != nullptr ? *overrides : State::object(), variables});
    result.variable = [layers = std::move(layers), pc](std::wstring_view name) -> std::optional<std::wstring> {
        for (const State& layer : layers) {
            for (const auto& [key, value] : layer.items()) {
                if (!EqualIgnoringCase(Utf8::Decode(key), name)) continue;
                if (!value.is_string()) pc.ThrowMalformed("the variable " + key + " is not a text");
                return Utf8::Decode(value.get<std::string>());
            }
        }
        return std::nullopt;
    };
    return result;
}

std::optional<std::filesystem::path> HostPathOf(const EmulatedPc& pc, const State& state, std::wstring_view path,
                                                std::uint32_t* error)
{
    std::uint32_t ignored = 0;
    std::uint32_t& why = error != nullptr ? *error : ignored;
    const auto fail = [&](std::uint32_t answer) {
        why = answer;
        return std::nullopt;
    };
    // Only exactly "\\?\" passes a path through unchanged; "//?/" and "\\.\"
    // are made full first. Either device prefix then leads to the drive after it.
    std::wstring full;
    if (path.starts_with(L"\\\\?\\")) {
        full = path.substr(4);
        if (full.size() >= 4 && EqualIgnoringCase(std::wstring_view(full).substr(0, 4), L"UNC\\")) return fail(kBadNetPath);
    } else {
        std::optional<std::wstring> made = FullPathOf(path, ProgramEnvironment(pc, state));
        if (!made) return fail(kPathNotFound);
        full = std::move(*made);
        if (full.starts_with(L"\\\\.\\") || full.starts_with(L"\\\\?\\")) {
            full.erase(0, 4);
        } else if (full.starts_with(L"\\\\")) {
            return fail(kBadNetPath);
        }
    }
    if (full.size() < 2 || full[1] != L':') return fail(kInvalidName);
    const State& drives = Member(state, "drives");
    const State* folder = nullptr;
    std::string key;
    for (auto it = drives.begin(); drives.is_object() && it != drives.end(); ++it) {
        if (it.key().size() == 2 && EqualIgnoringCase(Utf8::Decode(it.key()), full.substr(0, 2)) && !it->is_null()) {
            folder = &*it;
            key = it.key();
        }
    }
    if (folder == nullptr) return fail(kPathNotFound);
    if (full.size() < 3 || full[2] != L'\\') return fail(kInvalidName); // the volume itself
    std::filesystem::path host = HostPathFromState(pc, *folder, ("/drives/" + key).c_str());
    const std::wstring_view names = std::wstring_view(full).substr(3);
    for (std::size_t at = 0; at < names.size();) {
        const std::size_t end = std::min(names.find(L'\\', at), names.size());
        const std::wstring_view name = names.substr(at, end - at);
        if (!IsFileName(name)) return fail(kInvalidName);
        host = Child(host, name);
        at = end + 1;
    }
    return host;
}

} // namespace Tessel::Bridge::Platform::Emulated
