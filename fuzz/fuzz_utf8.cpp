// UTF-8 to wide text and back, against glibc's iconv as the reference decoder.
#include "FuzzSupport.h"

#include "platform/TextConversion.h"
#include "platform/common/Utf8.h"

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <memory>
#include <optional>
#include <string>

#include <iconv.h>

using KestrelFuzz::Require;
namespace Utf8 = Tessel::Bridge::Platform::Utf8;

namespace {

// The code points of valid UTF-8, or nothing for ill-formed input.
std::optional<std::u32string> ReferenceDecode(const std::string& bytes)
{
    static const iconv_t decoder = iconv_open("UTF-32LE", "UTF-8");
    Require(decoder != reinterpret_cast<iconv_t>(-1), "iconv has UTF-8");
    iconv(decoder, nullptr, nullptr, nullptr, nullptr);
    std::string in = bytes;
    std::u32string out(bytes.size() + 1, U'\0');
    char* inPtr = in.data();
    std::size_t inLeft = in.size();
    auto* outPtr = reinterpret_cast<char*>(out.data());
    std::size_t outLeft = out.size() * sizeof(char32_t);
    if (iconv(decoder, &inPtr, &inLeft, &outPtr, &outLeft) == static_cast<std::size_t>(-1)) return std::nullopt;
    out.resize(out.size() - outLeft / sizeof(char32_t));
    return out;
}

bool IsScalarValue(wchar_t ch)
{
    const auto cp = static_cast<char32_t>(ch);
    return cp < 0x110000 && (cp < 0xD800 || cp > 0xDFFF);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    // An exact-size copy, so that a read past the end is caught.
    const auto exact = std::make_unique<char[]>(size);
    if (size > 0) std::memcpy(exact.get(), data, size);
    const std::string bytes(exact.get(), size);

    const std::wstring wide = Utf8::Decode(std::string_view(exact.get(), size));
    for (const wchar_t ch : wide) Require(IsScalarValue(ch), "decoded text holds only Unicode scalar values");
    Require(wide.size() <= size, "at most one character per byte");

    if (const std::optional<std::u32string> reference = ReferenceDecode(bytes)) {
        Require(std::u32string(wide.begin(), wide.end()) == *reference, "valid UTF-8 decodes as the reference does");
        Require(Utf8::Encode(wide) == bytes, "valid UTF-8 round-trips");
    } else {
        Require(wide.find(static_cast<wchar_t>(Utf8::kReplacementCharacter)) != std::wstring::npos,
                "ill-formed UTF-8 gives a replacement character");
    }
    const std::string encoded = Utf8::Encode(wide);
    Require(ReferenceDecode(encoded).has_value(), "encoding gives valid UTF-8");
    Require(Utf8::Decode(encoded) == wide, "decoded text survives encoding");

    // The command-line entry: zero-terminated, cut at the first zero.
    const auto terminated = std::make_unique<char[]>(size + 1);
    if (size > 0) std::memcpy(terminated.get(), data, size);
    terminated[size] = '\0';
    Require(Tessel::Bridge::Platform::WideFromUtf8(terminated.get()) == Utf8::Decode(terminated.get()),
            "a command-line word converts up to its first zero");

    // Arbitrary wide text, unpaired surrogates and values past U+10FFFF included.
    std::wstring arbitrary(size / sizeof(wchar_t), L'\0');
    if (!arbitrary.empty()) std::memcpy(arbitrary.data(), data, arbitrary.size() * sizeof(wchar_t));
    Require(ReferenceDecode(Utf8::Encode(arbitrary)).has_value(), "any wide text encodes to valid UTF-8");
    return 0;
}
