// The wide printf-style formatter of the logging library. It reproduces the
// Windows C runtime (msvcrt.dll, as mingw-w64 links it) on every platform, so
// a log line reads the same whichever build wrote it; the host's own
// swprintf disagrees on %s/%S, widths of strings, exponents and more.
#include "logging/WideFormat.h"

#include <bit>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>
#include <utility>

namespace Tessel::Bridge::Logging {
namespace {

// The runtime reads a format with a state machine; these are its states and
// the kinds of characters that move it.
enum class State : std::uint8_t { Normal, Percent, Flag, Width, Dot, Precision, Size, Type };
enum class Kind : std::uint8_t { Other, Percent, Dot, Star, Zero, Digit, Flag, Size, Type };

using S = State;
// The next state by kind (row) and current state (column). A character that
// fits nowhere ends the directive: back in Normal it is written as text, so
// "%5k" gives "k" and "%5%" gives "%".
constexpr State kNext[9][8] = {
    /* Other   */ {S::Normal, S::Normal, S::Normal, S::Normal, S::Normal, S::Normal, S::Normal, S::Normal},
    /* Percent */ {S::Percent, S::Normal, S::Normal, S::Normal, S::Normal, S::Normal, S::Normal, S::Percent},
    /* Dot     */ {S::Normal, S::Dot, S::Dot, S::Dot, S::Normal, S::Normal, S::Normal, S::Normal},
    /* Star    */ {S::Normal, S::Width, S::Width, S::Normal, S::Precision, S::Normal, S::Normal, S::Normal},
    /* Zero    */ {S::Normal, S::Flag, S::Flag, S::Width, S::Precision, S::Precision, S::Normal, S::Normal},
    /* Digit   */ {S::Normal, S::Width, S::Width, S::Width, S::Precision, S::Precision, S::Normal, S::Normal},
    /* Flag    */ {S::Normal, S::Flag, S::Flag, S::Normal, S::Normal, S::Normal, S::Normal, S::Normal},
    /* Size    */ {S::Normal, S::Size, S::Size, S::Size, S::Size, S::Size, S::Size, S::Normal},
    /* Type    */ {S::Normal, S::Type, S::Type, S::Type, S::Type, S::Type, S::Type, S::Normal},
};

// F, L and N are sizes the runtime accepts and ignores; hh is not one of its
// sizes ("%hhd" is "%hd").
Kind KindOf(wchar_t ch)
{
    switch (ch) {
    case L'%': return Kind::Percent;
    case L'.': return Kind::Dot;
    case L'*': return Kind::Star;
    case L'0': return Kind::Zero;
    case L' ': case L'+': case L'-': case L'#': return Kind::Flag;
    case L'F': case L'I': case L'L': case L'N': case L'h': case L'j': case L'l': case L't': case L'w': case L'z':
        return Kind::Size;
    case L'A': case L'C': case L'E': case L'G': case L'S': case L'X': case L'Z':
    case L'a': case L'c': case L'd': case L'e': case L'f': case L'g': case L'i':
    case L'n': case L'o': case L'p': case L's': case L'u': case L'x':
        return Kind::Type;
    default: return ch >= L'1' && ch <= L'9' ? Kind::Digit : Kind::Other;
    }
}

enum Flag : unsigned {
    kLeft = 1u << 0,
    kPlus = 1u << 1,
    kSpace = 1u << 2,
    kAlternate = 1u << 3,
    kZeros = 1u << 4,
    kShort = 1u << 5,
    kLong = 1u << 6,
    kLongLong = 1u << 7,
    kInt64 = 1u << 8,
    kWide = 1u << 9,
};

constexpr bool kPointersAre64 = sizeof(void*) == 8;
// The runtime's largest precision (the size of its conversion buffer).
constexpr std::int32_t kMaxPrecision = 512;

struct Directive {
    unsigned flags = 0;
    // Both wrap around as the runtime's int arithmetic does.
    std::int32_t width = 0;
    std::int32_t precision = -1;

    bool Has(unsigned flag) const { return (flags & flag) != 0; }
};

std::int32_t AppendDigit(std::int32_t number, wchar_t digit)
{
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(number) * 10u + static_cast<std::uint32_t>(digit - L'0'));
}

class Arguments {
public:
    explicit Arguments(std::va_list* list) : list_(list) {}
    template <typename T>
    T Next() { return va_arg(*list_, T); }

private:
    std::va_list* list_;
};

class Output {
public:
    void Put(wchar_t ch) { text_.push_back(ch); }

    // One converted field: blanks or zeros fill it to its width; zeros go
    // after the sign or "0x", and with '0' strings are zero-filled too.
    void Field(const Directive& directive, std::wstring_view prefix, std::wstring_view body)
    {
        const std::int64_t fill = std::int64_t{directive.width} - static_cast<std::int64_t>(prefix.size() + body.size());
        const auto padding = static_cast<std::size_t>(fill > 0 ? fill : 0);
        const bool left = directive.Has(kLeft);
        const bool zeros = directive.Has(kZeros) && !left;
        if (!left && !zeros) text_.append(padding, L' ');
        text_.append(prefix);
        if (zeros) text_.append(padding, L'0');
        text_.append(body);
        if (left) text_.append(padding, L' ');
    }

    std::wstring Take() { return std::move(text_); }

private:
    std::wstring text_;
};

std::wstring Widen(std::string_view bytes)
{
    // The "C" locale maps each byte to the character of the same value.
    std::wstring wide(bytes.size(), L'\0');
    for (std::size_t i = 0; i < bytes.size(); ++i) wide[i] = static_cast<wchar_t>(static_cast<unsigned char>(bytes[i]));
    return wide;
}

// ---- Integers --------------------------------------------------------------

std::uint64_t ReadInteger(Arguments& arguments, const Directive& directive, bool isSigned)
{
    if (directive.Has(kInt64 | kLongLong)) return static_cast<std::uint64_t>(arguments.Next<long long>());
    std::int32_t value = 0;
    if (directive.Has(kShort)) {
        const int full = arguments.Next<int>();
        value = isSigned ? static_cast<short>(full) : static_cast<unsigned short>(full);
    } else if (directive.Has(kLong)) {
        // A Windows long is 32 bits; a wider host long is cut to match.
        value = static_cast<std::int32_t>(static_cast<std::uint32_t>(arguments.Next<long>()));
    } else {
        value = arguments.Next<int>();
    }
    return isSigned ? static_cast<std::uint64_t>(std::int64_t{value}) : std::uint64_t{static_cast<std::uint32_t>(value)};
}

void FormatInteger(Output& out, Directive directive, wchar_t type, std::uint64_t bits)
{
    const bool isSigned = type == L'd' || type == L'i';
    const bool negative = isSigned && static_cast<std::int64_t>(bits) < 0;
    std::uint64_t magnitude = negative ? 0 - bits : bits;
    if (!directive.Has(kInt64 | kLongLong)) magnitude &= 0xFFFFFFFFu;

    const unsigned radix = type == L'o' ? 8 : (type == L'x' || type == L'X' || type == L'p') ? 16 : 10;
    const char* const digitSet = type == L'x' ? "0123456789abcdef" : "0123456789ABCDEF";
    std::wstring prefix;
    if (isSigned) {
        if (negative) prefix = L"-";
        else if (directive.Has(kPlus)) prefix = L"+";
        else if (directive.Has(kSpace)) prefix = L" ";
    } else if (radix == 16 && directive.Has(kAlternate) && magnitude != 0) {
        prefix = type == L'x' ? L"0x" : L"0X";
    }

    // An explicit precision turns the zero fill off.
    std::int32_t precision = 1;
    if (directive.precision >= 0) {
        directive.flags &= ~unsigned{kZeros};
        precision = directive.precision < kMaxPrecision ? directive.precision : kMaxPrecision;
    }
    std::wstring digits;
    for (; precision > 0 || magnitude != 0; --precision, magnitude /= radix) {
        digits.push_back(static_cast<wchar_t>(digitSet[magnitude % radix]));
    }
    if (type == L'o' && directive.Has(kAlternate) && (digits.empty() || digits.back() != L'0')) digits.push_back(L'0');
    out.Field(directive, prefix, std::wstring(digits.rbegin(), digits.rend()));
}

// ---- Floating point --------------------------------------------------------

// A value as the runtime's converter sees it: significant characters with
// the point after the first, times 10 (or 2 for %a) to the exponent.
// Infinities and NaNs become "1#INF", "1#QNAN", "1#SNAN" and "1#IND" and go
// through the same rounding, hence "1.#INF00" and, at "%.2f", "1.#J".
struct Significand {
    std::string digits;
    int exponent = 0;
};

bool NonFinite(double value, Significand& out)
{
    if (std::isinf(value)) {
        out = {"1#INF", 0};
        return true;
    }
    if (!std::isnan(value)) return false;
    const auto bits = std::bit_cast<std::uint64_t>(value);
    const bool quiet = (bits & (std::uint64_t{1} << 51)) != 0;
    out = {!quiet ? "1#SNAN" : bits == 0xFFF8000000000000u ? "1#IND" : "1#QNAN", 0};
    return true;
}

// The runtime works from 17 significant digits and pads with zeros after
// them ("%.0f" of 2^80 is 1208925819614629200000000).
Significand Decimal(double value)
{
    Significand result;
    if (NonFinite(value, result)) return result;
    if (value == 0) return {"0", 0};
    char text[40];
    std::snprintf(text, sizeof text, "%.16e", std::fabs(value));
    const char* at = text;
    for (; *at != '\0' && *at != 'e'; ++at) {
        if (*at >= '0' && *at <= '9') result.digits.push_back(*at);
    }
    if (*at == 'e') {
        const bool negative = at[1] == '-';
        for (at += 2; *at >= '0' && *at <= '9'; ++at) result.exponent = result.exponent * 10 + (*at - '0');
        if (negative) result.exponent = -result.exponent;
    }
    return result;
}

Significand Hexadecimal(double value)
{
    Significand result;
    if (NonFinite(value, result)) return result;
    const auto bits = std::bit_cast<std::uint64_t>(value);
    const auto biased = static_cast<int>((bits >> 52) & 0x7FF);
    const std::uint64_t fraction = bits & ((std::uint64_t{1} << 52) - 1);
    result.digits.push_back(biased != 0 ? '1' : '0');
    result.exponent = biased != 0 ? biased - 1023 : fraction != 0 ? -1022 : 0;
    for (int shift = 48; shift >= 0; shift -= 4) result.digits.push_back("0123456789abcdef"[(fraction >> shift) & 0xF]);
    return result;
}

// Keeps `count` characters, rounding half up on the next one. A carry out of
// the first digit moves the exponent (decimal) or leaves a leading 2 (%a:
// "%.1a" of 1.96875 is "0x2.0p+0"). No characters left means zero.
void Round(Significand& value, int count, bool hex)
{
    if (count < 0) {
        value.digits.clear();
        return;
    }
    const auto kept = static_cast<std::size_t>(count);
    const bool up = kept < value.digits.size() && value.digits[kept] >= (hex ? '8' : '5');
    value.digits.resize(kept, '0');
    if (!up) return;
    for (std::size_t i = kept; i-- > 0;) {
        char& ch = value.digits[i];
        if (ch == (hex ? 'f' : '9')) {
            ch = '0';
            continue;
        }
        ch = hex && ch == '9' ? 'a' : static_cast<char>(ch + 1);
        return;
    }
    value.digits.insert(0, 1, '1');
    ++value.exponent;
}

char DigitAt(const Significand& value, long long index)
{
    return index >= 0 && static_cast<std::size_t>(index) < value.digits.size() ? value.digits[static_cast<std::size_t>(index)] : '0';
}

void AppendExponent(std::string& text, char letter, int exponent, std::size_t minimumDigits)
{
    text.push_back(letter);
    text.push_back(exponent < 0 ? '-' : '+');
    std::string digits = std::to_string(exponent < 0 ? -exponent : exponent);
    if (digits.size() < minimumDigits) text.append(minimumDigits - digits.size(), '0');
    text += digits;
}

std::string Fixed(Significand value, int precision, bool point)
{
    Round(value, value.exponent + 1 + precision, false);
    std::string text;
    if (value.exponent < 0) text.push_back('0');
    for (int i = 0; i <= value.exponent; ++i) text.push_back(DigitAt(value, i));
    if (precision > 0 || point) text.push_back('.');
    for (int i = 1; i <= precision; ++i) text.push_back(DigitAt(value, static_cast<long long>(value.exponent) + i));
    return text;
}

// Exponents have at least three digits: "1.500000e+000".
std::string Exponential(Significand value, int precision, bool point, char letter)
{
    Round(value, precision + 1, false);
    std::string text(1, DigitAt(value, 0));
    if (precision > 0 || point) text.push_back('.');
    for (int i = 1; i <= precision; ++i) text.push_back(DigitAt(value, i));
    AppendExponent(text, letter, value.exponent, 3);
    return text;
}

// %g drops trailing zeros of the fraction, and the point with them.
void CropZeros(std::string& text)
{
    const std::size_t point = text.find('.');
    if (point == std::string::npos) return;
    std::size_t end = text.find_first_of("eE", point);
    if (end == std::string::npos) end = text.size();
    std::size_t keep = end;
    while (keep > point + 1 && text[keep - 1] == '0') --keep;
    if (keep == point + 1) keep = point;
    text.erase(keep, end - keep);
}

void FormatFloat(Output& out, const Directive& directive, wchar_t type, double value)
{
    const bool upper = type == L'A' || type == L'E' || type == L'G';
    const wchar_t lower = upper ? static_cast<wchar_t>(type - L'A' + L'a') : type;
    int precision = lower == L'a' ? 13 : 6;
    if (directive.precision >= 0) precision = directive.precision < kMaxPrecision ? directive.precision : kMaxPrecision;
    if (lower == L'g' && precision == 0) precision = 1;
    const bool alternate = directive.Has(kAlternate);
    const bool point = alternate && precision == 0;

    std::wstring prefix;
    if (std::signbit(value)) prefix = L"-";
    else if (directive.Has(kPlus)) prefix = L"+";
    else if (directive.Has(kSpace)) prefix = L" ";

    std::string body;
    if (lower == L'a') {
        prefix += upper ? L"0X" : L"0x";
        Significand hex = Hexadecimal(value);
        Round(hex, precision + 1, true);
        body.push_back(hex.digits[0]);
        if (precision > 0 || point) body.push_back('.');
        body.append(hex.digits, 1, std::string::npos);
        AppendExponent(body, 'p', hex.exponent, 1);
    } else if (lower == L'f') {
        body = Fixed(Decimal(value), precision, point);
    } else if (lower == L'e') {
        body = Exponential(Decimal(value), precision, point, 'e');
    } else {
        // The style follows the exponent after rounding to the precision.
        Significand rounded = Decimal(value);
        Round(rounded, precision, false);
        const int exponent = rounded.exponent;
        body = exponent < -4 || exponent >= precision ? Exponential(rounded, precision - 1, alternate, 'e')
                                                     : Fixed(rounded, precision - 1 - exponent, alternate);
        if (!alternate) CropZeros(body);
    }
    if (upper) {
        for (char& ch : body) {
            if (ch >= 'a' && ch <= 'z') ch = static_cast<char>(ch - 'a' + 'A');
        }
    }
    out.Field(directive, prefix, Widen(body));
}

// ---- Characters and strings ------------------------------------------------

// Counts at most `limit` characters before a terminator; never reads past it.
template <typename Char>
std::size_t BoundedLength(const Char* text, std::int64_t limit)
{
    std::size_t length = 0;
    while (static_cast<std::int64_t>(length) < limit && text[length] != Char{}) ++length;
    return length;
}

// s and S: wide unless 'h' (S adds it by default). "(null)" stands for a null
// pointer and is cut by the precision like any string. A wide string reads
// to its end for any negative precision, a narrow one prints nothing for one
// below -1 (a precision that wrapped around), as the runtime's loops do.
void FormatString(Output& out, const Directive& directive, const void* pointer)
{
    const std::int64_t unlimited = INT64_MAX;
    if (directive.Has(kShort)) {
        const char* text = pointer != nullptr ? static_cast<const char*>(pointer) : "(null)";
        const std::int64_t limit = directive.precision == -1 ? unlimited : directive.precision;
        out.Field(directive, {}, Widen(std::string_view(text, BoundedLength(text, limit))));
    } else {
        const wchar_t* text = pointer != nullptr ? static_cast<const wchar_t*>(pointer) : L"(null)";
        const std::int64_t limit = directive.precision < 0 ? unlimited : directive.precision;
        out.Field(directive, {}, std::wstring_view(text, BoundedLength(text, limit)));
    }
}

// %Z: an ANSI_STRING, or with 'w' a UNICODE_STRING (lengths in bytes).
struct CountedString {
    unsigned short length;
    unsigned short maximumLength;
    const void* buffer;
};

void FormatCounted(Output& out, const Directive& directive, const void* pointer)
{
    const auto* counted = static_cast<const CountedString*>(pointer);
    if (counted == nullptr || counted->buffer == nullptr) {
        out.Field(directive, {}, L"(null)");
    } else if (directive.Has(kWide)) {
        out.Field(directive, {}, std::wstring_view(static_cast<const wchar_t*>(counted->buffer), counted->length / sizeof(wchar_t)));
    } else {
        out.Field(directive, {}, Widen(std::string_view(static_cast<const char*>(counted->buffer), counted->length)));
    }
}

// ---- The directive loop ----------------------------------------------------

void Convert(Output& out, Directive directive, wchar_t type, Arguments& arguments)
{
    switch (type) {
    case L'C':
        if (!directive.Has(kShort | kLong | kWide)) directive.flags |= kShort;
        [[fallthrough]];
    case L'c': {
        // One character whatever the precision; with 'h' the low byte of the
        // argument, as the "C" locale maps it.
        const int value = arguments.Next<int>();
        const wchar_t ch = directive.Has(kShort) ? static_cast<wchar_t>(value & 0xFF) : static_cast<wchar_t>(value);
        out.Field(directive, {}, std::wstring_view(&ch, 1));
        return;
    }
    case L'S':
        if (!directive.Has(kShort | kLong | kWide)) directive.flags |= kShort;
        [[fallthrough]];
    case L's':
        FormatString(out, directive, arguments.Next<const void*>());
        return;
    case L'Z':
        FormatCounted(out, directive, arguments.Next<const void*>());
        return;
    case L'n':
        // The runtime stores the count so far through this pointer; a log
        // formatter never writes through its arguments, so it only skips it.
        arguments.Next<const void*>();
        return;
    case L'p': {
        // Always every digit of a pointer, in capitals; '#' adds "0X".
        const auto bits = static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(arguments.Next<const void*>()));
        if (kPointersAre64) directive.flags |= kInt64;
        directive.precision = 2 * static_cast<std::int32_t>(sizeof(void*));
        FormatInteger(out, directive, L'X', bits);
        return;
    }
    case L'd': case L'i': case L'u': case L'o': case L'x': case L'X':
        FormatInteger(out, directive, type, ReadInteger(arguments, directive, type == L'd' || type == L'i'));
        return;
    default:
        // a A e E f g G; l and L change nothing (long double is double there).
        FormatFloat(out, directive, type, arguments.Next<double>());
        return;
    }
}

// 'I' alone is pointer-sized, I64 and I32 are explicit, and I before anything
// else is not a size at all: it is written out ("%Is" gives "Is"). z and t
// are pointer-sized the same way ("%z" gives "z"); j is always 64 bits.
bool ReadSize(wchar_t ch, const wchar_t*& next, Directive& directive)
{
    const bool beforeInteger = std::wstring_view(L"diouxX").find(*next) != std::wstring_view::npos;
    switch (ch) {
    case L'l':
        if (*next == L'l') {
            ++next;
            directive.flags |= kLongLong;
        } else {
            directive.flags |= kLong;
        }
        return true;
    case L'h': directive.flags |= kShort; return true;
    case L'w': directive.flags |= kWide; return true;
    case L'j': directive.flags |= kInt64; return true;
    case L'z':
    case L't':
        if (kPointersAre64 && beforeInteger) directive.flags |= kInt64;
        return beforeInteger;
    case L'I':
        if (kPointersAre64) directive.flags |= kInt64;
        if (next[0] == L'6' && next[1] == L'4') {
            next += 2;
            directive.flags |= kInt64;
        } else if (next[0] == L'3' && next[1] == L'2') {
            next += 2;
            directive.flags &= ~unsigned{kInt64};
        } else if (!beforeInteger) {
            return false;
        }
        return true;
    default: return true; // F, L, N
    }
}

std::wstring Format(const wchar_t* format, Arguments& arguments)
{
    Output out;
    State state = State::Normal;
    Directive directive;
    for (const wchar_t* next = format; *next != L'\0';) {
        const wchar_t ch = *next++;
        state = kNext[static_cast<int>(KindOf(ch))][static_cast<int>(state)];
        switch (state) {
        case State::Normal: out.Put(ch); break;
        case State::Percent: directive = Directive{}; break;
        case State::Flag:
            directive.flags |= ch == L'-' ? kLeft : ch == L'+' ? kPlus : ch == L' ' ? kSpace : ch == L'#' ? kAlternate : kZeros;
            break;
        case State::Width:
            if (ch == L'*') {
                const int width = arguments.Next<int>();
                if (width < 0) directive.flags |= kLeft;
                directive.width = width < 0 ? static_cast<std::int32_t>(0u - static_cast<std::uint32_t>(width)) : width;
            } else {
                directive.width = AppendDigit(directive.width, ch);
            }
            break;
        case State::Dot: directive.precision = 0; break;
        case State::Precision:
            if (ch == L'*') {
                const int precision = arguments.Next<int>();
                directive.precision = precision < 0 ? -1 : precision;
            } else {
                directive.precision = AppendDigit(directive.precision, ch);
            }
            break;
        case State::Size:
            if (!ReadSize(ch, next, directive)) {
                state = State::Normal;
                out.Put(ch);
            }
            break;
        case State::Type: Convert(out, directive, ch, arguments); break;
        }
    }
    return out.Take();
}

} // namespace

std::wstring FormatWide(const wchar_t* format, std::va_list arguments)
{
    if (format == nullptr) return {};
    // A copy that can be pointed to (the parameter may be an adjusted array).
    // va_end belongs in the function that called va_copy, so no guard object.
    std::va_list copy;
    va_copy(copy, arguments);
    try {
        Arguments reader(&copy);
        std::wstring text = Format(format, reader);
        va_end(copy);
        return text;
    } catch (...) {
        va_end(copy);
        throw;
    }
}

std::wstring FormatWideArgs(const wchar_t* format, ...)
{
    // As in FormatWide: va_end in this function, on every way out.
    std::va_list arguments;
    va_start(arguments, format);
    try {
        std::wstring text = FormatWide(format, arguments);
        va_end(arguments);
        return text;
    } catch (...) {
        va_end(arguments);
        throw;
    }
}

} // namespace Tessel::Bridge::Logging
