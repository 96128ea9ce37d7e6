#include "platform/emulated/EmulatedCameras.h"

#include "platform/common/Utf8.h"

#include <array>
#include <cfloat>
#include <cmath>
#include <cstdio>

namespace Tessel::Bridge::Platform::Emulated {
namespace {

constexpr std::array<const char*, 7> kPanelNames{"unknown", "front", "back", "top", "bottom", "left", "right"};
// Named in the order of their values.
constexpr std::array<const char*, 7> kStatusNames{"Success",
                                                  "UnknownFailure",
                                                  "BufferTooSmall",
                                                  "NotSupported",
                                                  "DeviceNotAvailable",
                                                  "MaxPropertyValueSizeTooSmall",
                                                  "MaxPropertyValueSizeRequired"};
// Larger payloads are no camera's.
constexpr std::size_t kMaxPayload = 4096;

class CameraReader {
public:
    CameraReader(const EmulatedPc& pc, const State& camera, std::string at) : pc_(pc), camera_(camera), at_(std::move(at)) {}

    const State& Field(const char* name, State::value_t type, const char* what) const
    {
        const State& value = Member(camera_, name);
        if (value.type() != type && !(type == State::value_t::number_float && value.is_number())) {
            Malformed(std::string(name) + " is not " + what);
        }
        return value;
    }

    [[noreturn]] void Malformed(const std::string& what) const { pc_.ThrowMalformed(at_ + "/" + what); }

    template <typename Names>
    std::size_t NameIndex(const State& value, const Names& names, const std::string& field) const
    {
        if (value.is_string()) {
            for (std::size_t i = 0; i < names.size(); ++i) {
                if (value.get<std::string>() == names[i]) return i;
            }
        }
        Malformed(field + " is not one of the known names");
    }

    double Number(const State& object, const char* section, const char* name, double limit) const
    {
        const State& value = Member(object, name);
        if (!value.is_number() || !std::isfinite(value.get<double>()) || std::fabs(value.get<double>()) > limit) {
            Malformed(std::string(section) + "/" + name + " is not a number in range");
        }
        return value.get<double>();
    }

    std::uint32_t Unsigned(const State& object, const char* name) const
    {
        const State& value = Member(object, name);
        if (!value.is_number_integer() || value.get<std::int64_t>() < 0 || value.get<std::int64_t>() > 0xFFFFFFFFLL) {
            Malformed(std::string(name) + " is not a 32-bit unsigned integer");
        }
        return value.get<std::uint32_t>();
    }

private:
    const EmulatedPc& pc_;
    const State& camera_;
    std::string at_;
};

std::string Hex(const std::vector<unsigned char>& bytes)
{
    static constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    for (const unsigned char byte : bytes) {
        text.push_back(kDigits[byte >> 4]);
        text.push_back(kDigits[byte & 15]);
    }
    return text;
}

std::string GuidText(const Guid& guid)
{
    char text[40];
    std::snprintf(text, sizeof text, "{%08X-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X}", guid.data1, guid.data2,
                  guid.data3, guid.data4[0], guid.data4[1], guid.data4[2], guid.data4[3], guid.data4[4],
                  guid.data4[5], guid.data4[6], guid.data4[7]);
    return text;
}

std::optional<Guid> ParseGuid(const std::string& text)
{
    // {XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX}
    if (text.size() != 38 || text.front() != '{' || text.back() != '}') return std::nullopt;
    std::string digits;
    for (std::size_t i = 1; i + 1 < text.size(); ++i) {
        const bool dash = i == 9 || i == 14 || i == 19 || i == 24;
        if (dash != (text[i] == '-')) return std::nullopt;
        if (!dash) digits.push_back(text[i]);
    }
    const std::optional<std::vector<unsigned char>> bytes = BytesFromHex(digits, kMaxPayload);
    if (!bytes) return std::nullopt;
    const auto& b = *bytes;
    Guid guid{};
    guid.data1 = static_cast<std::uint32_t>(b[0]) << 24 | static_cast<std::uint32_t>(b[1]) << 16 |
                 static_cast<std::uint32_t>(b[2]) << 8 | b[3];
    guid.data2 = static_cast<std::uint16_t>(b[4] << 8 | b[5]);
    guid.data3 = static_cast<std::uint16_t>(b[6] << 8 | b[7]);
    for (std::size_t i = 0; i < 8; ++i) guid.data4[i] = b[8 + i];
    return guid;
}

DefaultEntry ReadEntry(const CameraReader& reader, const State& entry, const std::string& at)
{
    if (!entry.is_object()) reader.Malformed(at + " is not an object");
    DefaultEntry result;
    result.configType = reader.Unsigned(entry, "configType");
    result.id = reader.Unsigned(entry, "id");
    result.streamId = reader.Unsigned(entry, "streamId");
    const std::optional<Guid> set =
        Member(entry, "set").is_string() ? ParseGuid(Member(entry, "set").get<std::string>()) : std::nullopt;
    if (!set) reader.Malformed(at + "/set is not a GUID in braces");
    result.set = *set;
    for (const char* name : {"control", "data"}) {
        const std::optional<std::vector<unsigned char>> bytes =
            Member(entry, name).is_string() ? BytesFromHex(Member(entry, name).get<std::string>(), kMaxPayload) : std::nullopt;
        if (!bytes) reader.Malformed(at + "/" + name + " is not hexadecimal bytes (at most 4096)");
        (std::string(name) == "control" ? result.control : result.data) = *bytes;
    }
    return result;
}

EmulatedCamera ReadCamera(const EmulatedPc& pc, const State& stored, const std::string& at)
{
    if (!stored.is_object()) pc.ThrowMalformed(at + " is not an object");
    State camera = BuiltInCameras().at(0);
    camera.merge_patch(stored);
    const CameraReader reader(pc, camera, at);
    using Type = State::value_t;

    EmulatedCamera result;
    result.id = Utf8::Decode(reader.Field("id", Type::string, "a text").get<std::string>());
    const State& panel = Member(camera, "panel");
    if (!panel.is_null()) result.panel = static_cast<Panel>(reader.NameIndex(panel, kPanelNames, "panel"));
    result.canOpen = reader.Field("canOpen", Type::boolean, "true or false").get<bool>();

    const State& zoom = reader.Field("zoom", Type::object, "an object");
    if (!Member(zoom, "supported").is_boolean()) reader.Malformed("zoom/supported is not true or false");
    result.zoomSupported = Member(zoom, "supported").get<bool>();
    result.zoom = {static_cast<float>(reader.Number(zoom, "zoom", "min", FLT_MAX)),
                   static_cast<float>(reader.Number(zoom, "zoom", "max", FLT_MAX)),
                   static_cast<float>(reader.Number(zoom, "zoom", "value", FLT_MAX))};

    const State& brightness = reader.Field("brightness", Type::object, "an object");
    if (!Member(brightness, "supported").is_boolean()) reader.Malformed("brightness/supported is not true or false");
    result.brightness = {Member(brightness, "supported").get<bool>(), reader.Number(brightness, "brightness", "min", DBL_MAX),
                         reader.Number(brightness, "brightness", "max", DBL_MAX)};
    result.brightnessValue = reader.Number(brightness, "brightness", "value", DBL_MAX);

    for (const auto& [number, status] : reader.Field("properties", Type::object, "an object").items()) {
        result.properties[number] =
            static_cast<DevicePropertyStatus>(reader.NameIndex(status, kStatusNames, "properties/" + number));
    }
    const State& defaults = reader.Field("defaults", Type::array, "an array");
    for (std::size_t i = 0; i < defaults.size(); ++i) {
        result.defaults.push_back(ReadEntry(reader, defaults[i], "defaults/" + std::to_string(i)));
    }
    return result;
}

} // namespace

State BuiltInCameras()
{
    return State::array({State{
        {"id", "\\\\?\\USB#VID_0BDA&PID_5634&MI_00#6&1c3f2e5a&0&0000#{e5323777-f976-4f5b-9b55-b94699c46e44}\\GLOBAL"},
        {"name", "Integrated Camera"},
        {"panel", "front"},
        {"canOpen", true},
        {"zoom", {{"supported", true}, {"min", 100}, {"max", 400}, {"value", 100}}},
        {"brightness", {{"supported", true}, {"min", -64}, {"max", 64}, {"value", 0}}},
        {"properties", {{"41", "Success"}, {"43", "Success"}}},
        {"defaults", State::array()},
    }});
}

std::vector<EmulatedCamera> ReadCameras(const EmulatedPc& pc, const State& state)
{
    const State& cameras = Member(state, "cameras");
    if (!cameras.is_array()) pc.ThrowMalformed("/cameras is not an array");
    std::vector<EmulatedCamera> result;
    for (std::size_t i = 0; i < cameras.size(); ++i) {
        result.push_back(ReadCamera(pc, cameras[i], "/cameras/" + std::to_string(i)));
    }
    return result;
}

bool WriteCameraDefaults(const EmulatedPc& pc, State& state, const std::wstring& cameraId,
                         const std::vector<DefaultEntry>& defaults)
{
    const std::vector<EmulatedCamera> cameras = ReadCameras(pc, state);
    for (std::size_t i = 0; i < cameras.size(); ++i) {
        if (cameras[i].id != cameraId) continue;
        State entries = State::array();
        for (const DefaultEntry& entry : defaults) {
            entries.push_back({{"configType", entry.configType},
                               {"set", GuidText(entry.set)},
                               {"id", entry.id},
                               {"streamId", entry.streamId},
                               {"control", Hex(entry.control)},
                               {"data", Hex(entry.data)}});
        }
        state["cameras"][i]["defaults"] = std::move(entries);
        return true;
    }
    return false;
}

} // namespace Tessel::Bridge::Platform::Emulated
