// ExpandEnvironmentStringsW and GetFullPathNameW as pure functions of the
// text, the buffer and a PathEnvironment, so that Linux builds resolve paths
// and expand variables exactly as the Windows program would.
//
// Sources of the rules: Microsoft's pages for both functions, "File path
// formats on Windows systems" (path normalization) and RtlIsDosDeviceName_U
// (legacy device names); where those are silent, Windows' own answers as
// conformance tests record them (unit/PathRulesCases.h, also run against
// Wine's functions by windows/PathRulesWineTest.cpp).
//
// Only wchar_t code units are compared, never their width, so the code is the
// same with 16-bit (Windows) and 32-bit (Linux) wchar_t.
#include "platform/common/WindowsPathRules.h"

#include <algorithm>
#include <array>
#include <limits>
#include <vector>

namespace Tessel::Bridge::Platform::PathRules {

namespace {

constexpr std::wstring_view kSeparators = L"\\/";
constexpr std::wstring_view kLocalDevicePrefix = L"\\\\.\\";

std::wstring_view TextOf(const wchar_t* text)
{
    return text != nullptr ? std::wstring_view(text) : std::wstring_view();
}

// Return values are DWORDs; no real string comes near the limit, but a count
// must never wrap around into a small, plausible-looking number.
std::uint32_t Count(std::size_t characters)
{
    constexpr std::size_t most = std::numeric_limits<std::uint32_t>::max();
    return static_cast<std::uint32_t>(std::min(characters, most));
}

// Copies text and its zero to buffer when all of it fits in size characters.
bool CopyIfItFits(std::wstring_view text, wchar_t* buffer, std::size_t size)
{
    if (buffer == nullptr || text.size() >= size) return false;
    std::copy(text.begin(), text.end(), buffer);
    buffer[text.size()] = L'\0';
    return true;
}

// --- Environment strings --------------------------------------------------

// Where an expansion goes: a buffer of `size` characters (none when null),
// written piece by piece as Windows writes it. Text goes in a character at a
// time while the character and a final zero would still fit. A variable's
// value goes in whole with a zero after it when both fit; otherwise a zero
// goes where the value would have started and nothing more is written.
struct Destination {
    wchar_t* buffer;
    std::size_t size;
    std::size_t at = 0;
    bool open = true;

    void Text(std::wstring_view text)
    {
        for (const wchar_t ch : text) {
            if (!open || at + 1 >= size) return;
            buffer[at++] = ch;
        }
    }
    void Value(std::wstring_view value)
    {
        if (!open) return;
        if (value.size() < size - at) {
            std::copy(value.begin(), value.end(), buffer + at);
            at += value.size();
            buffer[at] = L'\0';
            return;
        }
        if (at < size) buffer[at] = L'\0';
        open = false;
    }
};

// %NAME% becomes the variable's value. A name that is not set (or empty, as in
// "%%") stays as written, both percent signs included, and scanning goes on
// after its closing sign: that sign never opens the next reference. A '%'
// without a partner is kept. Values are inserted as they are, never expanded
// again. Returns the length of the whole expansion.
std::size_t Expand(std::wstring_view source, const PathEnvironment& environment, Destination& out)
{
    std::size_t length = 0;
    const auto text = [&](std::wstring_view piece) {
        out.Text(piece);
        length += piece.size();
    };
    std::size_t at = 0;
    while (at < source.size()) {
        const std::size_t open = source.find(L'%', at);
        const std::size_t close = open == std::wstring_view::npos ? open : source.find(L'%', open + 1);
        if (close == std::wstring_view::npos) {
            text(source.substr(at));
            break;
        }
        text(source.substr(at, open - at));
        const std::wstring_view name = source.substr(open + 1, close - open - 1);
        std::optional<std::wstring> value;
        if (!name.empty() && environment.variable) value = environment.variable(name);
        if (value) {
            out.Value(*value);
            length += value->size();
        } else {
            text(source.substr(open, close - open + 1));
        }
        at = close + 1;
    }
    return length;
}

// --- Paths ----------------------------------------------------------------

bool IsSeparator(wchar_t ch)
{
    return ch == L'\\' || ch == L'/';
}

wchar_t AsciiUpper(wchar_t ch)
{
    return ch >= L'a' && ch <= L'z' ? static_cast<wchar_t>(ch - L'a' + L'A') : ch;
}

bool SameIgnoringAsciiCase(std::wstring_view a, std::wstring_view b)
{
    return a.size() == b.size() &&
           std::equal(a.begin(), a.end(), b.begin(), [](wchar_t x, wchar_t y) { return AsciiUpper(x) == AsciiUpper(y); });
}

// How Windows reads the start of a path; both slashes separate.
enum class PathKind {
    Relative,        // a\b
    Rooted,          // \a: on the current directory's drive or share
    DriveRelative,   // C:a: from that drive's current directory
    DriveAbsolute,   // C:\a
    Unc,             // \\server\share\a
    LocalDevice,     // \\.\x or \\?\x
    RootLocalDevice, // exactly \\. or \\?
};

PathKind KindOf(std::wstring_view path)
{
    const auto at = [path](std::size_t i) { return i < path.size() ? path[i] : L'\0'; };
    if (IsSeparator(at(0))) {
        if (!IsSeparator(at(1))) return PathKind::Rooted;
        if (at(2) == L'.' || at(2) == L'?') {
            if (IsSeparator(at(3))) return PathKind::LocalDevice;
            if (path.size() == 3) return PathKind::RootLocalDevice;
        }
        return PathKind::Unc;
    }
    // Any character before the colon makes a drive, as it does for Windows.
    if (at(1) == L':') return IsSeparator(at(2)) ? PathKind::DriveAbsolute : PathKind::DriveRelative;
    return PathKind::Relative;
}

// The part of a path that ".." never climbs out of, as the result spells it,
// and where the components after it begin.
struct Root {
    std::wstring text;
    std::size_t rest = 0;
};

// \\server\share, with its separator when one follows. Runs of separators
// after the leading two are collapsed here as everywhere else; the server or
// the share may be empty ("\\", "\\\a").
Root UncRoot(std::wstring_view path)
{
    Root root{L"\\\\", 2};
    const auto name = [&] {
        const std::size_t end = std::min(path.find_first_of(kSeparators, root.rest), path.size());
        root.text.append(path.substr(root.rest, end - root.rest));
        root.rest = end;
    };
    const auto separator = [&] {
        if (root.rest >= path.size()) return false;
        root.text.push_back(L'\\');
        root.rest = std::min(path.find_first_not_of(kSeparators, root.rest), path.size());
        return true;
    };
    name();
    if (separator()) {
        name();
        separator();
    }
    return root;
}

Root RootOf(std::wstring_view path)
{
    switch (KindOf(path)) {
    case PathKind::LocalDevice:
        // "\\?\" is normalized like "\\.\" when given to GetFullPathNameW
        // itself; only other functions pass it through untouched.
        return {std::wstring{L'\\', L'\\', path[2], L'\\'}, 4};
    case PathKind::RootLocalDevice:
        return {std::wstring(kLocalDevicePrefix), path.size()};
    case PathKind::Unc:
        return UncRoot(path);
    case PathKind::DriveAbsolute:
        return {std::wstring{path[0], L':', L'\\'}, 3};
    case PathKind::DriveRelative:
        return {std::wstring{path[0], L':'}, 2};
    case PathKind::Rooted:
        return {L"\\", 1};
    case PathKind::Relative:
        break;
    }
    return {};
}

// Trailing dots and spaces Windows drops from the last component of a path
// that does not end in a separator.
std::wstring_view WithoutTrailingDotsAndSpaces(std::wstring_view name)
{
    const std::size_t keep = name.find_last_not_of(L". ");
    return keep == std::wstring_view::npos ? std::wstring_view() : name.substr(0, keep + 1);
}

// Backslashes only, one between components; "." dropped and ".." taking the
// component before it (never the root). A component followed by a separator
// loses one trailing dot ("a..\" is "a.\", and "...\" becomes a plain ".."
// component, not a parent); the last one, when nothing follows it, loses all
// trailing dots and spaces, and when nothing is left the result keeps the
// separator before it. A last "." or ".." leaves no separator behind.
std::wstring Normalize(std::wstring_view path)
{
    Root root = RootOf(path);
    std::vector<std::wstring_view> components;
    bool endsWithSeparator = false;
    std::size_t at = root.rest;
    while (at < path.size()) {
        if (IsSeparator(path[at])) {
            ++at;
            continue;
        }
        const std::size_t end = std::min(path.find_first_of(kSeparators, at), path.size());
        std::wstring_view name = path.substr(at, end - at);
        const bool last = end == path.size();
        at = end;
        if (name == L"." || name == L"..") {
            if (name == L".." && !components.empty()) components.pop_back();
            endsWithSeparator = !last;
            continue;
        }
        if (!last) {
            if (name.back() == L'.') name.remove_suffix(1);
            components.push_back(name);
            endsWithSeparator = true;
            continue;
        }
        name = WithoutTrailingDotsAndSpaces(name);
        endsWithSeparator = name.empty();
        if (!name.empty()) components.push_back(name);
    }

    std::wstring full = std::move(root.text);
    for (std::size_t i = 0; i < components.size(); ++i) {
        if (i > 0) full.push_back(L'\\');
        full.append(components[i]);
    }
    if (endsWithSeparator && !components.empty()) full.push_back(L'\\');
    return full;
}

// CON, PRN, AUX, NUL, COM1-COM9, LPT1-LPT9, CONIN$ and CONOUT$, in any case.
bool IsDosDeviceName(std::wstring_view name)
{
    static constexpr std::array<std::wstring_view, 6> kNames = {L"CON", L"PRN", L"AUX", L"NUL", L"CONIN$", L"CONOUT$"};
    const bool numbered = name.size() == 4 && name[3] >= L'1' && name[3] <= L'9' &&
                          (SameIgnoringAsciiCase(name.substr(0, 3), L"COM") || SameIgnoringAsciiCase(name.substr(0, 3), L"LPT"));
    return numbered || std::any_of(kNames.begin(), kNames.end(), [name](std::wstring_view device) {
               return SameIgnoringAsciiCase(name, device);
           });
}

// A legacy device named by the last component of a drive, rooted or relative
// path ("nul", "C:\dir\con.txt", "COM1:") is that device, whatever the
// directory: the name counts up to the first '.' or ':', without trailing
// spaces. UNC and device paths name files, never these devices. This is the
// documented behaviour before Windows 11, which made it narrower (CON.TXT is a
// file there); Wine 8 behaves as documented.
std::optional<std::wstring_view> DosDeviceName(std::wstring_view path, PathKind kind)
{
    if (kind == PathKind::Unc || kind == PathKind::LocalDevice || kind == PathKind::RootLocalDevice) return std::nullopt;
    const std::size_t separator = path.find_last_of(kSeparators);
    std::size_t start = separator + 1;
    if (separator == std::wstring_view::npos) start = kind == PathKind::DriveRelative ? 2 : 0;
    std::wstring_view name = path.substr(start);
    name = name.substr(0, name.find_first_of(L".:"));
    name = name.substr(0, name.find_last_not_of(L' ') + 1);
    if (!IsDosDeviceName(name)) return std::nullopt;
    return name;
}

std::wstring WithSeparator(std::wstring directory)
{
    if (!directory.empty() && !IsSeparator(directory.back())) directory.push_back(L'\\');
    return directory;
}

// The directory a drive-relative path starts from: the current directory when
// it is on that drive; otherwise the drive's own current directory, which
// Windows keeps in the "=C:"-style variable (set by cmd.exe and inherited);
// otherwise the drive's root. A variable whose value is not a full path on a
// drive is not a directory to start from.
std::wstring DriveDirectory(wchar_t drive, const PathEnvironment& environment)
{
    const std::wstring& current = environment.currentDirectory;
    if (KindOf(current) == PathKind::DriveAbsolute && AsciiUpper(current[0]) == AsciiUpper(drive)) return current;
    if (environment.variable) {
        const std::wstring name{L'=', AsciiUpper(drive), L':'};
        if (std::optional<std::wstring> directory = environment.variable(name)) {
            if (KindOf(*directory) == PathKind::DriveAbsolute) return std::move(*directory);
        }
    }
    return {drive, L':', L'\\'};
}

// "C:" or "\\server\share" of the current directory, for rooted paths.
std::wstring DriveOrShare(const std::wstring& currentDirectory)
{
    switch (KindOf(currentDirectory)) {
    case PathKind::DriveAbsolute:
    case PathKind::DriveRelative:
        return {currentDirectory[0], L':'};
    case PathKind::Unc:
    case PathKind::LocalDevice:
    case PathKind::RootLocalDevice: {
        std::wstring root = RootOf(currentDirectory).text;
        if (root.back() == L'\\') root.pop_back();
        return root;
    }
    case PathKind::Rooted:
    case PathKind::Relative:
        break;
    }
    return {};
}

// The full path, or nothing for a path Windows rejects.
std::optional<std::wstring> FullPath(std::wstring_view path, const PathEnvironment& environment)
{
    // An empty name, or one of spaces only, names nothing.
    if (path.find_first_not_of(L' ') == std::wstring_view::npos) return std::nullopt;
    const PathKind kind = KindOf(path);
    if (const std::optional<std::wstring_view> device = DosDeviceName(path, kind)) {
        return std::wstring(kLocalDevicePrefix).append(*device);
    }
    switch (kind) {
    case PathKind::RootLocalDevice:
        return std::wstring(kLocalDevicePrefix);
    case PathKind::LocalDevice:
    case PathKind::Unc:
    case PathKind::DriveAbsolute:
        return Normalize(path);
    case PathKind::DriveRelative:
        return Normalize(WithSeparator(DriveDirectory(path[0], environment)).append(path.substr(2)));
    case PathKind::Rooted:
        return Normalize(DriveOrShare(environment.currentDirectory).append(path));
    case PathKind::Relative:
        break;
    }
    return Normalize(WithSeparator(environment.currentDirectory).append(path));
}

} // namespace

// The return value is the size needed, zero included, whether or not the
// buffer holds it all, and the last error is never set. A buffer too small
// keeps what Destination wrote and gets no final zero.
std::uint32_t ExpandVariables(const wchar_t* source, wchar_t* destination, std::uint32_t size,
                              const PathEnvironment& environment, std::uint32_t& /*lastError*/)
{
    Destination out{destination, destination != nullptr ? size : 0u};
    const std::size_t length = Expand(TextOf(source), environment, out);
    if (length < out.size) destination[length] = L'\0';
    return Count(length + 1);
}

// Success returns the length without the zero. A buffer too small (or null)
// is left untouched and the return value is the size needed, zero included.
// An empty path, or spaces only, returns 0. None of these sets a last error.
// Longer results than 32K are returned whole, as expansions are (the 32K
// limit of both was Windows XP's).
std::uint32_t FullPathName(const wchar_t* path, std::uint32_t size, wchar_t* buffer, const PathEnvironment& environment,
                           std::uint32_t& /*lastError*/)
{
    const std::optional<std::wstring> full = FullPath(TextOf(path), environment);
    if (!full) return 0;
    if (CopyIfItFits(*full, buffer, size)) return Count(full->size());
    return Count(full->size() + 1);
}

} // namespace Tessel::Bridge::Platform::PathRules
