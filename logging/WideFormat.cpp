#include "logging/WideFormat.h"

#include <cstdint>
#include <cstdio>

namespace Tessel::Bridge::Logging {
namespace {

struct Directive {
    bool left = false, plus = false, space = false, alternate = false, zero = false;
    int width = 0;
    int precision = -1;
    enum class Size { Default, Short, Long, LongLong, Pointer } size = Size::Default;
};

void Pad(std::wstring& out, const std::wstring& body, const Directive& directive, const std::wstring& prefix = {}, bool numeric = false)
{
    const auto length = static_cast<int>(prefix.size() + body.size());
    const int fill = directive.width > length ? directive.width - length : 0;
    if (directive.left) {
        out += prefix + body + std::wstring(static_cast<std::size_t>(fill), L' ');
    } else if (directive.zero && numeric && directive.precision < 0) {
        out += prefix + std::wstring(static_cast<std::size_t>(fill), L'0') + body;
    } else {
        out += std::wstring(static_cast<std::size_t>(fill), L' ') + prefix + body;
    }
}

std::wstring Digits(std::uint64_t value, unsigned base, bool upper)
{
    const wchar_t* digits = upper ? L"0123456789ABCDEF" : L"0123456789abcdef";
    std::wstring text;
    do {
        text.insert(text.begin(), digits[value % base]);
        value /= base;
    } while (value != 0);
    return text;
}

void Integer(std::wstring& out, const Directive& directive, wchar_t conversion, std::va_list& arguments)
{
    const bool isSigned = conversion == L'd' || conversion == L'i';
    std::uint64_t magnitude = 0;
    bool negative = false;
    if (isSigned) {
        std::int64_t value = 0;
        switch (directive.size) {
        case Directive::Size::LongLong:
        case Directive::Size::Pointer: value = va_arg(arguments, long long); break;
        case Directive::Size::Long: value = va_arg(arguments, long); break;
        case Directive::Size::Short: value = static_cast<short>(va_arg(arguments, int)); break;
        case Directive::Size::Default: value = va_arg(arguments, int); break;
        }
        negative = value < 0;
        magnitude = negative ? 0 - static_cast<std::uint64_t>(value) : static_cast<std::uint64_t>(value);
    } else {
        switch (directive.size) {
        case Directive::Size::LongLong:
        case Directive::Size::Pointer: magnitude = va_arg(arguments, unsigned long long); break;
        case Directive::Size::Long: magnitude = va_arg(arguments, unsigned long); break;
        case Directive::Size::Short: magnitude = static_cast<unsigned short>(va_arg(arguments, unsigned)); break;
        case Directive::Size::Default: magnitude = va_arg(arguments, unsigned); break;
        }
    }
    const unsigned base = conversion == L'x' || conversion == L'X' ? 16 : conversion == L'o' ? 8 : 10;
    std::wstring body = directive.precision == 0 && magnitude == 0 ? L"" : Digits(magnitude, base, conversion == L'X');
    if (directive.precision > static_cast<int>(body.size())) body.insert(0, static_cast<std::size_t>(directive.precision) - body.size(), L'0');
    std::wstring prefix;
    if (negative) prefix = L"-";
    else if (isSigned && directive.plus) prefix = L"+";
    else if (isSigned && directive.space) prefix = L" ";
    if (directive.alternate && magnitude != 0 && base == 16) prefix += conversion == L'X' ? L"0X" : L"0x";
    if (directive.alternate && base == 8 && (body.empty() || body[0] != L'0')) body.insert(0, 1, L'0');
    Pad(out, body, directive, prefix, true);
}

} // namespace

std::wstring FormatWide(const wchar_t* format, std::va_list arguments)
{
    std::wstring out;
    if (format == nullptr) return out;
    std::va_list args;
    va_copy(args, arguments);
    for (const wchar_t* at = format; *at != L'\0'; ++at) {
        if (*at != L'%') {
            out += *at;
            continue;
        }
        const wchar_t* start = at++;
        Directive directive;
        for (;; ++at) {
            if (*at == L'-') directive.left = true;
            else if (*at == L'+') directive.plus = true;
            else if (*at == L' ') directive.space = true;
            else if (*at == L'#') directive.alternate = true;
            else if (*at == L'0') directive.zero = true;
            else break;
        }
        if (*at == L'*') {
            directive.width = va_arg(args, int);
            if (directive.width < 0) {
                directive.left = true;
                directive.width = -directive.width;
            }
            ++at;
        } else {
            for (; *at >= L'0' && *at <= L'9'; ++at) directive.width = directive.width * 10 + (*at - L'0');
        }
        if (*at == L'.') {
            ++at;
            directive.precision = 0;
            if (*at == L'*') {
                directive.precision = va_arg(args, int);
                ++at;
            } else {
                for (; *at >= L'0' && *at <= L'9'; ++at) directive.precision = directive.precision * 10 + (*at - L'0');
            }
        }
        // Sizes as the Windows runtime reads them: h, l, ll, I64, I32, I.
        if (*at == L'h') {
            directive.size = Directive::Size::Short;
            ++at;
        } else if (at[0] == L'l' && at[1] == L'l') {
            directive.size = Directive::Size::LongLong;
            at += 2;
        } else if (*at == L'l' || *at == L'w') {
            directive.size = Directive::Size::Long;
            ++at;
        } else if (at[0] == L'I' && at[1] == L'6' && at[2] == L'4') {
            directive.size = Directive::Size::LongLong;
            at += 3;
        } else if (at[0] == L'I' && at[1] == L'3' && at[2] == L'2') {
            directive.size = Directive::Size::Default;
            at += 3;
        } else if (*at == L'I' || *at == L'z') {
            directive.size = Directive::Size::Pointer;
            ++at;
        }
        const wchar_t conversion = *at;
        switch (conversion) {
        case L'd': case L'i': case L'u': case L'x': case L'X': case L'o': Integer(out, directive, conversion, args); break;
        case L'p': {
            const auto value = reinterpret_cast<std::uintptr_t>(va_arg(args, void*));
            std::wstring body = Digits(value, 16, true);
            body.insert(0, sizeof(void*) * 2 - body.size(), L'0');
            Pad(out, body, directive);
            break;
        }
        case L'c': case L'C': {
            // In a wide format "%c" is wide and "%C" narrow; "%hc" narrow, "%lc" wide.
            const bool narrow = (conversion == L'C') != (directive.size == Directive::Size::Short) && directive.size != Directive::Size::Long;
            const int value = va_arg(args, int);
            const wchar_t character = narrow ? static_cast<wchar_t>(static_cast<unsigned char>(value)) : static_cast<wchar_t>(value);
            Pad(out, std::wstring(1, character), directive);
            break;
        }
        case L's': case L'S': {
            // "%s" wide and "%S" narrow, "%hs" narrow and "%ls" wide; narrow
            // bytes become characters one to one, as in the runtime's C locale.
            const bool narrow = (conversion == L'S' && directive.size != Directive::Size::Long) || directive.size == Directive::Size::Short;
            std::wstring body;
            if (narrow) {
                const char* text = va_arg(args, const char*);
                if (text == nullptr) text = "(null)";
                for (std::size_t i = 0; text[i] != '\0' && (directive.precision < 0 || i < static_cast<std::size_t>(directive.precision)); ++i) {
                    body += static_cast<wchar_t>(static_cast<unsigned char>(text[i]));
                }
            } else {
                const wchar_t* text = va_arg(args, const wchar_t*);
                if (text == nullptr) text = L"(null)";
                for (std::size_t i = 0; text[i] != L'\0' && (directive.precision < 0 || i < static_cast<std::size_t>(directive.precision)); ++i) {
                    body += text[i];
                }
            }
            Pad(out, body, directive);
            break;
        }
        case L'%': out += L'%'; break;
        case L'\0':
            // A lone '%' at the end: nothing more to read.
            --at;
            break;
        default:
            // Not a conversion: the text as written.
            out.append(start, at + 1);
            break;
        }
    }
    va_end(args);
    return out;
}

std::wstring FormatWideArgs(const wchar_t* format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    std::wstring text = FormatWide(format, arguments);
    va_end(arguments);
    return text;
}

} // namespace Tessel::Bridge::Logging
