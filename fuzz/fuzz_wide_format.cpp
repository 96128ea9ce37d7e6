// The wide formatter on any format: four bytes choose argument values, then
// the format in UTF-8. A scanner of the runtime's syntax, apart from the
// formatter so that it checks it, gives what each directive takes; formats
// needing more, or a huge width, are rejected. Text without '%' must come back
// as it is; piece by piece must give the whole (no state or argument leaks).
#include "FuzzSupport.h"

#include "../tests/unit/WideFormatCases.h"
#include "logging/WideFormat.h"
#include "platform/common/Utf8.h"

#include <algorithm>
#include <cwchar>
#include <string_view>
#include <vector>

using namespace KestrelTest;

namespace {

constexpr std::size_t kMaxArguments = 4;

// Letters: i int, * width or precision, l long, q long long, f double,
// w wide string, n narrow string, p pointer, z counted string.
struct Piece { std::size_t begin = 0; std::string kinds; };

bool In(std::wstring_view set, wchar_t ch) { return ch != L'\0' && set.find(ch) != std::wstring_view::npos; }

// Pieces start at each '%' that opens a directive. A character that fits no
// directive ends it and is text. False when a width could be huge.
bool Scan(std::wstring_view format, std::vector<Piece>& pieces)
{
    const auto at = [&](std::size_t i) { return i < format.size() ? format[i] : L'\0'; };
    for (std::size_t i = 0; i < format.size();) {
        if (format[i++] != L'%') continue;
        std::string& kinds = pieces.emplace_back(Piece{i - 1, {}}).kinds;
        while (In(L"-+ #0", at(i))) ++i;
        const bool star = at(i) == L'*';
        if (star) kinds += '*', ++i;
        std::uint32_t width = 0, digits = 0;
        for (; In(L"0123456789", at(i)); ++i, ++digits) width = width * 10u + static_cast<std::uint32_t>(at(i) - L'0');
        if (static_cast<std::int32_t>(width) > 4096 || (star && digits > 1)) return false;
        if (at(i) == L'.' && at(++i) == L'*') kinds += '*', ++i;
        while (In(L"0123456789", at(i))) ++i;
        bool h = false, l = false, ll = false, i64 = false, w = false, text = false;
        while (!text && In(L"FILNhjltwz", at(i))) {
            const wchar_t size = at(i++);
            h |= size == L'h', w |= size == L'w', i64 |= size == L'j';
            if (size == L'l') (at(i) == L'l' ? ll : l) = true, i += at(i) == L'l';
            if (size != L'I' && size != L'z' && size != L't') continue;
            i64 |= sizeof(void*) == 8 && In(L"diouxX", at(i));
            if (size == L'I' && ((at(i) == L'6' && at(i + 1) == L'4') || (at(i) == L'3' && at(i + 1) == L'2'))) i64 = at(i) == L'6', i += 2;
            else if (!In(L"diouxX", at(i))) text = true, --i; // "%Is", "%zs": the size is text
        }
        const wchar_t type = at(i);
        if (text || !In(L"ACEGSXZacdefginopsux", type)) {
            i += i < format.size();
            continue;
        }
        ++i;
        if (In(L"diouxX", type)) kinds += i64 || ll ? 'q' : !h && l ? 'l' : 'i';
        else if (In(L"cC", type)) kinds += 'i';
        else if (type == L's' || type == L'S') kinds += h || (type == L'S' && !l && !w) ? 'n' : 'w';
        else kinds += type == L'Z' ? 'z' : In(L"pn", type) ? 'p' : 'f';
    }
    return true;
}

// Also widths and precisions: small enough to print.
const int kInts[] = {0, 1, -1, 12, -20, INT_MIN, 0xE9, 0x1FF, -70000, 0x141, 0x1F600};
const long kLongs[] = {0, -1, 123456789, LONG_MAX, LONG_MIN};
const long long kLongLongs[] = {0, -1, LLONG_MIN, LLONG_MAX, 1LL << 40};
const double kDoubles[] = {0.0, -0.0, 1.5, -2.5, 0.1, 1e300, 5e-324, 0x1p80, kInf, -kInf, kNan, kIndefinite,
                           std::numeric_limits<double>::signaling_NaN(), 999999.5, 0.125, 9.5};
const wchar_t* const kWides[] = {L"", L"abc", nullptr, L"h\u00e9llo \U0001F600"};
const char* const kNarrows[] = {"", "abc", nullptr, "\xff\x80 bytes"};
const CountedString kNoBuffer{0, 0, nullptr};
const void* const kCounted[] = {nullptr, &kAnsi, &kUnicode, &kNoBuffer};
const void* const kPointers[] = {nullptr, kPointer, reinterpret_cast<void*>(UINTPTR_MAX)};

// The k-th argument of a format is the same value in whichever piece it is.
template <typename... Args>
std::wstring Call(const std::wstring& format, std::string_view kinds, std::size_t k, const std::uint8_t* choice, Args... args)
{
    const auto pick = [&](const auto& list) { return list[choice[k] % std::size(list)]; };
    if constexpr (sizeof...(Args) < kMaxArguments) {
        const std::string_view rest = kinds.empty() ? kinds : kinds.substr(1);
        switch (kinds.empty() ? '\0' : kinds[0]) {
        case 'i': case '*': return Call(format, rest, k + 1, choice, args..., pick(kInts));
        case 'l': return Call(format, rest, k + 1, choice, args..., pick(kLongs));
        case 'q': return Call(format, rest, k + 1, choice, args..., pick(kLongLongs));
        case 'f': return Call(format, rest, k + 1, choice, args..., pick(kDoubles));
        case 'w': return Call(format, rest, k + 1, choice, args..., pick(kWides));
        case 'n': return Call(format, rest, k + 1, choice, args..., pick(kNarrows));
        case 'z': return Call(format, rest, k + 1, choice, args..., pick(kCounted));
        case 'p': return Call(format, rest, k + 1, choice, args..., pick(kPointers));
        }
    }
    return Tessel::Bridge::Logging::FormatWideArgs(format.c_str(), args...);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    std::uint8_t choice[kMaxArguments] = {};
    const std::size_t skip = std::min(size, kMaxArguments);
    std::copy_n(data, skip, choice);
    std::wstring format = Tessel::Bridge::Platform::Utf8::Decode(std::string_view(reinterpret_cast<const char*>(data) + skip, size - skip));
    format.resize(std::wcslen(format.c_str()));

    std::vector<Piece> pieces(1);
    if (!Scan(format, pieces)) return -1;
    std::string kinds;
    for (const Piece& piece : pieces) kinds += piece.kinds;
    if (kinds.size() > kMaxArguments) return -1;

    const std::wstring whole = Call(format, kinds, 0, choice);
    if (pieces.size() == 1) KestrelFuzz::Require(whole == format, "text without directives comes back as it is");
    std::wstring joined;
    for (std::size_t i = 0, k = 0; i < pieces.size(); k += pieces[i++].kinds.size()) {
        const std::size_t end = i + 1 < pieces.size() ? pieces[i + 1].begin : format.size();
        joined += Call(format.substr(pieces[i].begin, end - pieces[i].begin), pieces[i].kinds, k, choice);
    }
    KestrelFuzz::Require(joined == whole, "formatting piece by piece gives the whole text");
    return 0;
}
