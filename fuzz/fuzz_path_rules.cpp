// The Windows path rules on arbitrary text. Input: a flags byte (current
// directory, per-drive variables), a buffer size, then Latin-1 text: the
// source or path and, after a zero byte, the value of the variable KT.
#include "FuzzSupport.h"

#include "platform/common/WindowsPathRules.h"

#include <algorithm>
#include <array>
#include <memory>

using KestrelFuzz::Require;
namespace Rules = Tessel::Bridge::Platform::PathRules;

namespace {

constexpr std::uint32_t kKept = 7;

// The text, after checking the size contract: an empty or small buffer gets
// the size needed (an expansion also a start of the text: up to a zero, or
// all but the last character when no value was cut); that size gets the text
// and its zero. No last error is set. Buffers have exactly the size given, so
// that AddressSanitizer sees a write past them.
std::wstring Sized(bool expand, const std::wstring& in, std::uint32_t room, const Rules::PathEnvironment& environment)
{
    std::uint32_t error = kKept;
    std::wstring written;
    const auto call = [&](std::uint32_t size) {
        const auto buffer = size > 0 ? std::make_unique<wchar_t[]>(size) : nullptr;
        std::fill_n(buffer.get(), size, L'#');
        const std::uint32_t returned = expand ? Rules::ExpandVariables(in.c_str(), buffer.get(), size, environment, error)
                                              : Rules::FullPathName(in.c_str(), size, buffer.get(), environment, error);
        Require(error == kKept, "no last error");
        written.assign(buffer.get(), size);
        return returned;
    };
    const std::uint32_t needed = call(0);
    Require(needed > 0, "an empty buffer gets the size needed");
    Require(call(needed) == (expand ? needed : needed - 1), "the size needed is enough");
    Require(written.find(L'\0') == needed - 1, "the text and its zero fill the size needed");
    const std::wstring text = written.substr(0, needed - 1);
    const std::uint32_t small = call(room);
    const std::size_t zero = written.find(L'\0');
    if (room >= needed) {
        Require(small == needed - (expand ? 0 : 1) && written.substr(0, needed) == text + L'\0', "more room, same text");
    } else if (!expand) {
        Require(small == needed && written == std::wstring(room, L'#'), "too small: nothing written");
    } else if (zero == std::wstring::npos) {
        Require(small == needed && (room == 0 || written == text.substr(0, room - 1) + L'#'), "too small: all but the last");
    } else {
        Require(small == needed && text.compare(0, zero, written, 0, zero) == 0 &&
                    written.find_first_not_of(L'#', zero + 1) == std::wstring::npos,
                "too small: a start of the text, a zero, nothing after it");
    }
    return text;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size < 2) return 0;
    static const std::array<std::wstring, 4> kDirectories = {L"C:\\kt\\cur", L"C:\\", L"\\\\srv\\sh\\dir", L"\\\\?\\D:\\x"};
    const std::uint8_t flags = data[0];
    const std::wstring bytes(data + 2, data + size);
    const std::wstring input = bytes.substr(0, bytes.find(L'\0'));
    std::wstring value = bytes.substr(std::min(input.size() + 1, bytes.size()));
    value.erase(std::remove(value.begin(), value.end(), L'\0'), value.end());
    const Rules::PathEnvironment environment{[&](std::wstring_view name) -> std::optional<std::wstring> {
                                                 if (name == L"KT" || name == L"kt") return value;
                                                 if (name == L"=D:" && (flags & 4) != 0) return L"D:\\x\\y";
                                                 if (name == L"=C:" && (flags & 8) != 0) return L"C:\\other";
                                                 return std::nullopt;
                                             },
                                             kDirectories[flags & 3]};
    const Rules::PathEnvironment bare{nullptr, L"E:\\elsewhere"};

    const std::wstring expanded = Sized(true, input, data[1], environment);
    if (input.find(L'%') == std::wstring::npos) Require(expanded == input, "text without '%' expands to itself");
    Require(Sized(true, input, data[1], bare) == input, "with no variables set, nothing changes");

    std::uint32_t error = kKept;
    const bool blank = input.find_first_not_of(L' ') == std::wstring::npos;
    const bool rejected = Rules::FullPathName(input.c_str(), 0, nullptr, environment, error) == 0;
    Require(rejected == blank && error == kKept, "exactly empty and blank names fail, with no error");
    if (blank) return 0;
    const std::wstring full = Sized(false, input, data[1], environment);
    Require(full.rfind(L"\\\\", 0) == 0 || (full.size() >= 3 && full[1] == L':' && full[2] == L'\\'), "the result is fully qualified");
    Require(full.find(L'/') == std::wstring::npos && full.find(L"\\\\", 2) == std::wstring::npos, "one backslash between names");

    // Normalizing again changes nothing, from any directory, unless a name
    // still ends in a dot or space (trimmed once a pass) or the last name
    // turns out to be a device.
    const bool device = full.rfind(L"\\\\.\\", 0) == 0 || full.rfind(L"\\\\?\\", 0) == 0;
    bool trimmed = false;
    for (std::size_t at = device ? 4 : 0; at <= full.size();) {
        const std::size_t end = std::min(full.find(L'\\', at), full.size());
        trimmed = trimmed || (end > at && (full[end - 1] == L'.' || full[end - 1] == L' '));
        at = end + 1;
    }
    const std::wstring again = Sized(false, full, data[1], bare);
    if (!trimmed && (device || again.rfind(L"\\\\.\\", 0) != 0)) Require(again == full, "a full path is its own full path");
    return 0;
}
