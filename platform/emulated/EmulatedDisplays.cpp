#include "platform/emulated/EmulatedDisplays.h"

#include <algorithm>
#include <climits>
#include <cstdio>

namespace Tessel::Bridge::Platform::Emulated {
namespace {

constexpr const char* kExportNames[] = {"IsPlatformSupported", "Start", "GetSupportedDisplayModes",
                                        "GetCurrentDisplayMode", "SetDisplayMode"};

// Typed members of one object of the state, named in messages by where it is.
class ObjectReader {
public:
    ObjectReader(const EmulatedPc& pc, const State& object, std::string at) : pc_(pc), object_(object), at_(std::move(at))
    {
        if (!object_.is_object()) pc_.ThrowMalformed(at_ + " is not an object");
    }

    [[noreturn]] void Malformed(const std::string& what) const { pc_.ThrowMalformed(at_ + "/" + what); }

    bool Boolean(const char* name) const
    {
        const State& value = Member(object_, name);
        if (!value.is_boolean()) Malformed(std::string(name) + " is not true or false");
        return value.get<bool>();
    }

    std::int32_t Int32(const char* name) const { return Int32Of(Member(object_, name), name); }

    std::int32_t Int32Of(const State& value, const std::string& name) const
    {
        if (!value.is_number_integer() || (value.is_number_unsigned() && value.get<std::uint64_t>() > INT_MAX) ||
            (!value.is_number_unsigned() && (value.get<std::int64_t>() < INT_MIN || value.get<std::int64_t>() > INT_MAX))) {
            Malformed(name + " is not a 32-bit integer");
        }
        return value.get<std::int32_t>();
    }

    std::uint64_t Unsigned(const char* name, std::uint64_t max) const
    {
        const State& value = Member(object_, name);
        if (!value.is_number_integer() || (!value.is_number_unsigned() && value.get<std::int64_t>() < 0) ||
            value.get<std::uint64_t>() > max) {
            Malformed(std::string(name) + " is not an unsigned integer of at most " + std::to_string(max));
        }
        return value.get<std::uint64_t>();
    }

    const State& Array(const char* name) const
    {
        const State& value = Member(object_, name);
        if (!value.is_array()) Malformed(std::string(name) + " is not an array");
        return value;
    }

private:
    const EmulatedPc& pc_;
    const State& object_;
    std::string at_;
};

EmulatedDisplayPath ReadPath(const EmulatedPc& pc, const State& stored, const std::string& at)
{
    if (!stored.is_object()) pc.ThrowMalformed(at + " is not an object");
    State path = BuiltInDisplays()["paths"][0];
    path.merge_patch(stored);
    const ObjectReader reader(pc, path, at);

    EmulatedDisplayPath result;
    const std::uint64_t luid = reader.Unsigned("adapterLuid", UINT64_MAX);
    result.target.adapterLow = static_cast<std::uint32_t>(luid);
    result.target.adapterHigh = static_cast<std::int32_t>(static_cast<std::uint32_t>(luid >> 32));
    result.target.targetId = static_cast<std::uint32_t>(reader.Unsigned("targetId", UINT32_MAX));
    if (reader.Boolean("advancedColorSupported")) result.advancedColorFlags |= AdvancedColor::kSupported;
    if (reader.Boolean("advancedColorEnabled")) result.advancedColorFlags |= AdvancedColor::kEnabled;
    if (reader.Boolean("wideColorEnforced")) result.advancedColorFlags |= AdvancedColor::kWideColorEnforced;
    result.queryFails = reader.Boolean("queryFails");
    result.setFails = reader.Boolean("setFails");
    return result;
}

std::optional<FileVersion> ParseFileVersion(const std::string& text)
{
    unsigned parts[4] = {};
    int consumed = 0;
    if (std::sscanf(text.c_str(), "%5u.%5u.%5u.%5u%n", &parts[0], &parts[1], &parts[2], &parts[3], &consumed) != 4 ||
        static_cast<std::size_t>(consumed) != text.size() || text.find_first_of(" +-") != std::string::npos ||
        std::any_of(std::begin(parts), std::end(parts), [](unsigned part) { return part > 0xFFFF; })) {
        return std::nullopt;
    }
    return FileVersion{parts[0] << 16 | parts[1], parts[2] << 16 | parts[3]};
}

} // namespace

State BuiltInDisplays()
{
    return State{
        {"readFails", false},
        {"paths", State::array({State{
                      {"adapterLuid", 72196},
                      {"targetId", 4352},
                      {"advancedColorSupported", true},
                      {"advancedColorEnabled", false},
                      {"wideColorEnforced", false},
                      {"queryFails", false},
                      {"setFails", false},
                  }})},
    };
}

EmulatedDisplays ReadDisplays(const EmulatedPc& pc, const State& state)
{
    const ObjectReader reader(pc, Member(state, "displays"), "/displays");
    EmulatedDisplays result;
    result.readFails = reader.Boolean("readFails");
    const State& paths = reader.Array("paths");
    for (std::size_t i = 0; i < paths.size(); ++i) {
        const std::string at = "/displays/paths/" + std::to_string(i);
        result.paths.push_back(ReadPath(pc, paths[i], at));
        for (std::size_t j = 0; j < i; ++j) {
            // The platform addresses a display by its target alone.
            if (result.paths[j].target == result.paths[i].target) pc.ThrowMalformed(at + " has the target of path " + std::to_string(j));
        }
    }
    return result;
}

bool WriteAdvancedColorEnabled(const EmulatedPc& pc, State& state, const DisplayTarget& target, bool enabled)
{
    const EmulatedDisplays displays = ReadDisplays(pc, state);
    for (std::size_t i = 0; i < displays.paths.size(); ++i) {
        if (displays.paths[i].target == target) {
            state["displays"]["paths"][i]["advancedColorEnabled"] = enabled;
            return true;
        }
    }
    return false;
}

State BuiltInPortraitDisplays()
{
    return State{
        {"service", {{"fileVersion", "5.0.1.2"}}},
        {"panel",
         {{"platformSupported", 1}, {"modes", {0, 1, 2}}, {"currentMode", 0}, {"missingExports", State::array()}}},
    };
}

EmulatedPortraitDisplays ReadPortraitDisplays(const EmulatedPc& pc, const State& state)
{
    const ObjectReader area(pc, Member(state, "portraitDisplays"), "/portraitDisplays");
    EmulatedPortraitDisplays result;

    const State& service = Member(Member(state, "portraitDisplays"), "service");
    result.serviceInstalled = !service.is_null();
    if (result.serviceInstalled) {
        const ObjectReader serviceReader(pc, service, "/portraitDisplays/service");
        const State& version = Member(service, "fileVersion");
        if (!version.is_null()) {
            result.serviceVersion = version.is_string() ? ParseFileVersion(version.get<std::string>()) : std::nullopt;
            if (!result.serviceVersion) serviceReader.Malformed("fileVersion is not four numbers 0..65535 like \"5.0.1.2\"");
        }
    }

    const ObjectReader panel(pc, Member(Member(state, "portraitDisplays"), "panel"), "/portraitDisplays/panel");
    result.panel.platformSupported = panel.Int32("platformSupported");
    result.panel.currentMode = panel.Int32("currentMode");
    const State& modes = panel.Array("modes");
    for (std::size_t i = 0; i < modes.size(); ++i) result.panel.modes.push_back(panel.Int32Of(modes[i], "modes/" + std::to_string(i)));
    const State& missing = panel.Array("missingExports");
    for (std::size_t i = 0; i < missing.size(); ++i) {
        const bool known = missing[i].is_string() && std::any_of(std::begin(kExportNames), std::end(kExportNames),
                                                                   [&](const char* name) { return missing[i] == name; });
        if (!known) panel.Malformed("missingExports/" + std::to_string(i) + " is not the name of one of the plug-in's exports");
        result.panel.missingExports.push_back(missing[i].get<std::string>());
    }
    return result;
}

void WritePortraitCurrentMode(State& state, std::int32_t mode)
{
    state["portraitDisplays"]["panel"]["currentMode"] = mode;
}

} // namespace Tessel::Bridge::Platform::Emulated
