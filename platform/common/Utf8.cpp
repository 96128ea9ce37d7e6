#include "platform/common/Utf8.h"

#include <cstdint>
#include <type_traits>

namespace Tessel::Bridge::Platform::Utf8 {
namespace {

void AppendCodePoint(std::wstring& out, char32_t cp)
{
    if constexpr (sizeof(wchar_t) == 2) {
        if (cp >= 0x10000) {
            const char32_t v = cp - 0x10000;
            out.push_back(static_cast<wchar_t>(0xD800 + (v >> 10)));
            out.push_back(static_cast<wchar_t>(0xDC00 + (v & 0x3FF)));
            return;
        }
    }
    out.push_back(static_cast<wchar_t>(cp));
}

void AppendUtf8(std::string& out, char32_t cp)
{
    auto put = [&out](unsigned v) { out.push_back(static_cast<char>(static_cast<unsigned char>(v))); };
    if (cp < 0x80) {
        put(cp);
    } else if (cp < 0x800) {
        put(0xC0 | (cp >> 6));
        put(0x80 | (cp & 0x3F));
    } else if (cp < 0x10000) {
        put(0xE0 | (cp >> 12));
        put(0x80 | ((cp >> 6) & 0x3F));
        put(0x80 | (cp & 0x3F));
    } else {
        put(0xF0 | (cp >> 18));
        put(0x80 | ((cp >> 12) & 0x3F));
        put(0x80 | ((cp >> 6) & 0x3F));
        put(0x80 | (cp & 0x3F));
    }
}

bool IsSurrogate(char32_t cp) { return cp >= 0xD800 && cp <= 0xDFFF; }

} // namespace

std::wstring Decode(std::string_view bytes)
{
    std::wstring out;
    out.reserve(bytes.size());
    const std::size_t n = bytes.size();
    std::size_t i = 0;
    while (i < n) {
        const auto lead = static_cast<unsigned char>(bytes[i]);
        if (lead < 0x80) {
            out.push_back(static_cast<wchar_t>(lead));
            ++i;
            continue;
        }
        // Length of the sequence and the range its second byte must fall in;
        // the range excludes overlong forms, surrogates and values past U+10FFFF.
        std::size_t length = 0;
        unsigned char low = 0x80;
        unsigned char high = 0xBF;
        char32_t cp = 0;
        if (lead >= 0xC2 && lead <= 0xDF) {
            length = 2;
            cp = lead & 0x1Fu;
        } else if (lead >= 0xE0 && lead <= 0xEF) {
            length = 3;
            cp = lead & 0x0Fu;
            if (lead == 0xE0) low = 0xA0;
            if (lead == 0xED) high = 0x9F;
        } else if (lead >= 0xF0 && lead <= 0xF4) {
            length = 4;
            cp = lead & 0x07u;
            if (lead == 0xF0) low = 0x90;
            if (lead == 0xF4) high = 0x8F;
        } else {
            out.push_back(static_cast<wchar_t>(kReplacementCharacter));
            ++i;
            continue;
        }
        std::size_t used = 1;
        bool complete = true;
        for (; used < length; ++used) {
            if (i + used >= n) {
                complete = false;
                break;
            }
            const auto b = static_cast<unsigned char>(bytes[i + used]);
            const unsigned char lo = used == 1 ? low : static_cast<unsigned char>(0x80);
            const unsigned char hi = used == 1 ? high : static_cast<unsigned char>(0xBF);
            if (b < lo || b > hi) {
                complete = false;
                break;
            }
            cp = (cp << 6) | (b & 0x3Fu);
        }
        if (complete) {
            AppendCodePoint(out, cp);
        } else {
            // The bytes read so far form one maximal subpart; the byte that broke
            // the sequence starts the next one.
            out.push_back(static_cast<wchar_t>(kReplacementCharacter));
        }
        i += used;
    }
    return out;
}

std::string Encode(std::wstring_view text)
{
    std::string out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        auto cp = static_cast<char32_t>(static_cast<std::make_unsigned_t<wchar_t>>(text[i]));
        if constexpr (sizeof(wchar_t) == 2) {
            if (cp >= 0xD800 && cp <= 0xDBFF && i + 1 < text.size()) {
                const auto next = static_cast<char32_t>(static_cast<std::make_unsigned_t<wchar_t>>(text[i + 1]));
                if (next >= 0xDC00 && next <= 0xDFFF) {
                    cp = 0x10000 + ((cp - 0xD800) << 10) + (next - 0xDC00);
                    ++i;
                }
            }
        }
        if (IsSurrogate(cp) || cp > 0x10FFFF) cp = kReplacementCharacter;
        AppendUtf8(out, cp);
    }
    return out;
}

} // namespace Tessel::Bridge::Platform::Utf8
