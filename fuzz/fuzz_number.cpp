// Number parsing of a command-line value against a model of the standard
// conversion: the same value, or the same error with the same message.
#include "FuzzSupport.h"

#include "NumberParsing.h"
#include "platform/TextConversion.h"

#include <climits>
#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <string>
#include <variant>

using KestrelFuzz::Require;
using Tessel::Bridge::Server::Services::Kestrel::StringToInt;

namespace {

enum class Failure { InvalidArgument, OutOfRange };

// White space of the C locale, an optional sign, the longest run of decimal
// digits; the rest is ignored.
std::variant<int, Failure> Model(const std::wstring& text)
{
    std::size_t i = 0;
    while (i < text.size() && std::wcschr(L" \t\n\v\f\r", text[i]) != nullptr && text[i] != L'\0') ++i;
    bool negative = false;
    if (i < text.size() && (text[i] == L'+' || text[i] == L'-')) negative = text[i++] == L'-';
    const std::size_t firstDigit = i;
    std::int64_t magnitude = 0;
    bool tooLarge = false;
    for (; i < text.size() && text[i] >= L'0' && text[i] <= L'9'; ++i) {
        magnitude = magnitude * 10 + (text[i] - L'0');
        if (magnitude > std::int64_t{INT_MAX} + 1) {
            tooLarge = true;
            magnitude = std::int64_t{INT_MAX} + 1;
        }
    }
    if (i == firstDigit) return Failure::InvalidArgument;
    const std::int64_t value = negative ? -magnitude : magnitude;
    if (tooLarge || value > INT_MAX || value < INT_MIN) return Failure::OutOfRange;
    return static_cast<int>(value);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    // The value reaches the parser as the front end converts it.
    std::string word(reinterpret_cast<const char*>(data), size);
    const std::wstring text = Tessel::Bridge::Platform::WideFromUtf8(word.c_str());

    const std::variant<int, Failure> expected = Model(text);
    try {
        const int value = StringToInt(text);
        Require(std::holds_alternative<int>(expected) && std::get<int>(expected) == value, "parses to the model's value");
    } catch (const std::invalid_argument& e) {
        Require(expected == std::variant<int, Failure>(Failure::InvalidArgument), "invalid only where the model is");
        Require(std::strcmp(e.what(), "invalid stoi argument") == 0, "the invalid-argument message");
    } catch (const std::out_of_range& e) {
        Require(expected == std::variant<int, Failure>(Failure::OutOfRange), "out of range only where the model is");
        Require(std::strcmp(e.what(), "stoi argument out of range") == 0, "the out-of-range message");
    }
    return 0;
}
