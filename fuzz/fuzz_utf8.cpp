// UTF-8 to wide text and back, against glibc's iconv as the reference decoder.
#include "FuzzSupport.h"

#include "platform/common/Utf8.h"

#include <optional>

#include <iconv.h>

using KestrelFuzz::Require;
namespace Utf8 = Tessel::Bridge::Platform::Utf8;

namespace {

// The code points of valid UTF-8, or nothing for ill-formed input.
std::optional<std::u32string> ReferenceDecode(std::string in)
{
    static const iconv_t decoder = iconv_open("UTF-32LE", "UTF-8");
    iconv(decoder, nullptr, nullptr, nullptr, nullptr);
    std::u32string out(in.size() + 1, U'\0');
    char* inPtr = in.data();
    auto* outPtr = reinterpret_cast<char*>(out.data());
    std::size_t inLeft = in.size(), outLeft = out.size() * sizeof(char32_t);
    if (iconv(decoder, &inPtr, &inLeft, &outPtr, &outLeft) == static_cast<std::size_t>(-1)) return std::nullopt;
    out.resize(out.size() - outLeft / sizeof(char32_t));
    return out;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    // libFuzzer's own buffer has exactly `size` bytes, so a read past the end is caught.
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    const std::wstring wide = Utf8::Decode(bytes);
    if (const auto reference = ReferenceDecode(std::string(bytes))) {
        Require(std::u32string(wide.begin(), wide.end()) == *reference, "valid UTF-8 decodes as the reference does");
        Require(Utf8::Encode(wide) == bytes, "valid UTF-8 round-trips");
    } else {
        Require(wide.find(static_cast<wchar_t>(Utf8::kReplacementCharacter)) != std::wstring::npos,
                "ill-formed UTF-8 gives a replacement character");
    }
    Require(Utf8::Decode(Utf8::Encode(wide)) == wide, "decoded text holds only what encodes");

    // Arbitrary wide text, unpaired surrogates and values past U+10FFFF included.
    std::wstring arbitrary(size / sizeof(wchar_t), L'\0');
    if (!arbitrary.empty()) std::memcpy(arbitrary.data(), data, arbitrary.size() * sizeof(wchar_t));
    Require(ReferenceDecode(Utf8::Encode(arbitrary)).has_value(), "any wide text encodes to valid UTF-8");
    return 0;
}
