// Every built function fed bad input: the documented output, error text and
// exit status, and stored state that a refused or aborted run leaves as it was.
// A function is one row of kFunctions; the bad values are kBadValues.
#include "FreshPc.h"

#include "FrontEnd.h"

#include <gtest/gtest.h>

#include <optional>

using namespace KestrelTest;
using Tessel::Bridge::Server::Services::Kestrel::kAbnormalEndStatus;

namespace {

enum class ValueUse {
    Ignored, // the value word makes no difference
    Number,  // read by the standard string-to-int conversion
    Name,    // a name no application on a fresh PC has, whatever the bytes
    Path,    // a path no file has: the plain text editor is asked to open it
};

// Wine does not keep some settings faithfully: such a function's accepted
// values are run on the host only, its refusals everywhere. The prefix has no
// camera, whose absence ends a Camera run before its value is read.
enum class UnderWine { Everything, RefusalsOnly, Nothing };

struct FunctionRow {
    const char* category;
    const char* function;
    ValueUse value;
    UnderWine wine = UnderWine::Everything;
};

const FunctionRow kFunctions[] = {
    {"Camera", "IsZoomSupported", ValueUse::Ignored, UnderWine::Nothing},
    {"Camera", "GetZoom", ValueUse::Ignored, UnderWine::Nothing},
    {"Camera", "SetZoom", ValueUse::Number, UnderWine::Nothing},
    {"Camera", "IsBlurSupported", ValueUse::Ignored, UnderWine::Nothing},
    {"Camera", "GetBlurOnOff", ValueUse::Ignored, UnderWine::Nothing},
    {"Camera", "SetBlurOnOff", ValueUse::Number, UnderWine::Nothing},
    {"Camera", "IsAutoFrameSupported", ValueUse::Ignored, UnderWine::Nothing},
    {"Camera", "GetAutoFrameOnOff", ValueUse::Ignored, UnderWine::Nothing},
    {"Camera", "SetAutoFrameOnOff", ValueUse::Number, UnderWine::Nothing},
    {"Camera", "GetBrightness", ValueUse::Ignored, UnderWine::Nothing},
    {"Camera", "SetBrightness", ValueUse::Number, UnderWine::Nothing},
    {"Camera", "IsCameraSupported", ValueUse::Ignored, UnderWine::Nothing},
    {"Application", "GetApplicationLocation", ValueUse::Name},
    {"Application", "WriteToDoc", ValueUse::Path},
    {"Accessory", "GetMouseSpeed", ValueUse::Ignored},
    {"Accessory", "SetMouseSpeed", ValueUse::Number, UnderWine::RefusalsOnly},
    {"Accessory", "SwapMouseButton", ValueUse::Ignored},
    {"Accessory", "GetMouseSwapStatus", ValueUse::Ignored},
    {"Accessory", "SetMouseLeftHanded", ValueUse::Number},
    {"Notification", "GetToastOnOff", ValueUse::Ignored},
    {"Notification", "SetToastOnOff", ValueUse::Number},
    {"DisplayHDR", "IsHDRSupported", ValueUse::Ignored},
    {"DisplayHDR", "GetHDROnOff", ValueUse::Ignored},
    {"DisplayHDR", "SetHDROnOff", ValueUse::Number},
    {"DisplayPortrait", "IsPortraitSupported", ValueUse::Ignored},
    {"DisplayPortrait", "GetSupportedDisplayModes", ValueUse::Ignored},
    {"DisplayPortrait", "GetDisplayMode", ValueUse::Ignored},
    {"DisplayPortrait", "SetDisplayMode", ValueUse::Number},
};

// A bad value and what the conversion makes of it: the plain number it stands
// for, or the message of the error that ends the run.
struct BadValue {
    const char* label;
    std::optional<std::string> word; // nothing: the value word is absent
    std::optional<std::string> number;
    const char* error = nullptr;
};

constexpr const char* kInvalid = "invalid stoi argument";
constexpr const char* kOutOfRange = "stoi argument out of range";

const BadValue kBadValues[] = {
    {"empty", "", std::nullopt, kInvalid},
    {"absent", std::nullopt, std::nullopt, kInvalid},
    {"letters", "abc", std::nullopt, kInvalid},
    {"leading blank", " 7", "7"},
    {"plus sign", "+9", "9"},
    {"trailing letters", "5abc", "5"},
    {"one past INT_MAX", "2147483648", std::nullopt, kOutOfRange},
    {"one past INT_MIN", "-2147483649", std::nullopt, kOutOfRange},
    {"hexadecimal", "0x10", "0"},
    {"ill-formed UTF-8", "\xC3(", std::nullopt, kInvalid},
    {"ill-formed UTF-8 before digits", "\xFF" "7", std::nullopt, kInvalid},
};

// A state file that any rewrite would change: unusual layout, an unknown field.
constexpr const char* kStoredState =
    R"({"mouse":{"buttonsSwapped":true,"speed":13},"kept":[1,"two"]})";

struct Outcome {
    std::string out;
    std::string err;
    int exitStatus = 0;
    std::string stored;

    bool operator==(const Outcome&) const = default;
};

void PrintTo(const Outcome& o, std::ostream* os)
{
    *os << "{out " << ::testing::PrintToString(o.out) << ", err " << ::testing::PrintToString(o.err) << ", status "
        << o.exitStatus << ", stored " << ::testing::PrintToString(o.stored) << "}";
}

std::vector<std::string> Words(const FunctionRow& row, const std::optional<std::string>& value)
{
    std::vector<std::string> words{row.category, row.function};
    if (value) words.push_back(*value);
    return words;
}

// One run as a process on a PC that starts from kStoredState.
Outcome RunOnFreshPc(const std::vector<std::string>& words)
{
    FreshPc pc;
    pc.SetStoredState(kStoredState);
    const ProcessResult result = RunProcess(BuiltProgram("KestrelTool"), words, pc.Environment());
    return {result.out, result.err, result.exitStatus, pc.StoredState()};
}

// What a fresh PC stores before any run: under Wine nothing is snapshotted.
const std::string kUntouched = kLineEnd == "\n" ? kStoredState : "";

// What a run that ends with the error looks like.
Outcome AbnormalEnd(const char* message)
{
    return {"", std::string("KestrelTool: ") + message + std::string(kLineEnd), kAbnormalEndStatus, kUntouched};
}

Outcome Line(const std::string& text)
{
    return {text + std::string(kLineEnd), "", 0, kUntouched};
}

class BadInput : public ::testing::TestWithParam<FunctionRow> {};

} // namespace

TEST_P(BadInput, EachBadValueEndsTheRunOrActsAsThePlainNumber)
{
    const FunctionRow& row = GetParam();
    if (row.wine == UnderWine::Nothing && kLineEnd != "\n") GTEST_SKIP() << "the prefix has no camera";
    const Outcome withoutValue = RunOnFreshPc(Words(row, std::nullopt));
    for (const BadValue& bad : kBadValues) {
        SCOPED_TRACE(bad.label);
        if (row.value == ValueUse::Ignored) {
            EXPECT_EQ(RunOnFreshPc(Words(row, bad.word)), withoutValue);
        } else if (row.value == ValueUse::Name) {
            EXPECT_EQ(RunOnFreshPc(Words(row, bad.word)), Line("-1"));
        } else if (row.value == ValueUse::Path) {
            const Outcome outcome = RunOnFreshPc(Words(row, bad.word));
            EXPECT_EQ(outcome.out + outcome.err, std::string("1").append(kLineEnd));
            EXPECT_EQ(outcome.exitStatus, 0);
        } else if (bad.error != nullptr) {
            EXPECT_EQ(RunOnFreshPc(Words(row, bad.word)), AbnormalEnd(bad.error));
        } else if (row.wine == UnderWine::Everything || kLineEnd == "\n") {
            EXPECT_EQ(RunOnFreshPc(Words(row, bad.word)), RunOnFreshPc(Words(row, bad.number)));
        }
    }
}

INSTANTIATE_TEST_SUITE_P(EveryFunction, BadInput, ::testing::ValuesIn(kFunctions),
                         [](const ::testing::TestParamInfo<FunctionRow>& row) {
                             return std::string(row.param.category) + "_" + row.param.function;
                         });
