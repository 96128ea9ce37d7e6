#include "platform/ShellAndAutomation.h"

#include "platform/common/Utf8.h"
#include "platform/emulated/EmulatedPc.h"

#include <utility>
#include <vector>

namespace Tessel::Bridge::Platform {
namespace {

using Emulated::EmulatedPc;
using Emulated::Member;
using Emulated::State;

// What the platform's conversion into 1024 characters keeps.
constexpr std::size_t kValueCharacters = 1023;

struct Application {
    std::wstring displayName;
    std::vector<std::pair<std::wstring, std::wstring>> properties; // in the store's order
};

std::vector<Application> ReadApplications(const EmulatedPc& pc)
{
    const State state = pc.Read();
    const State& folder = Member(Member(state, "applications"), "folder");
    if (!folder.is_array()) pc.ThrowMalformed("/applications/folder is not an array");
    std::vector<Application> applications;
    for (std::size_t i = 0; i < folder.size(); ++i) {
        const std::string at = "/applications/folder/" + std::to_string(i);
        const State& name = Member(folder[i], "displayName");
        const State& properties = Member(folder[i], "properties");
        if (!name.is_string()) pc.ThrowMalformed(at + "/displayName is not a text");
        Application application{Utf8::Decode(name.get<std::string>()), {}};
        if (!properties.is_null()) {
            if (!properties.is_array()) pc.ThrowMalformed(at + "/properties is not an array");
            for (const State& property : properties) {
                if (!property.is_array() || property.size() != 2 || !property[0].is_string() || !property[1].is_string()) {
                    pc.ThrowMalformed(at + "/properties holds an entry that is not [\"canonical name\", \"value\"]");
                }
                application.properties.emplace_back(Utf8::Decode(property[0].get<std::string>()),
                                                    Utf8::Decode(property[1].get<std::string>()));
            }
        }
        applications.push_back(std::move(application));
    }
    return applications;
}

class EmulatedProperties final : public IApplicationProperties {
public:
    explicit EmulatedProperties(Application application) : application_(std::move(application)) {}

    std::uint32_t Count() override { return static_cast<std::uint32_t>(application_.properties.size()); }
    std::optional<std::wstring> CanonicalName(std::uint32_t index) override { return application_.properties.at(index).first; }
    std::optional<std::wstring> ValueText(std::uint32_t index) override
    {
        return application_.properties.at(index).second.substr(0, kValueCharacters);
    }

private:
    Application application_;
};

class EmulatedItem final : public IApplicationItem {
public:
    explicit EmulatedItem(Application application) : application_(std::move(application)) {}
    std::optional<std::wstring> DisplayName() override { return application_.displayName; }
    std::unique_ptr<IApplicationProperties> OpenProperties() override
    {
        return std::make_unique<EmulatedProperties>(application_);
    }

private:
    Application application_;
};

class EmulatedApplications final : public IApplicationsEnumeration {
public:
    explicit EmulatedApplications(std::vector<Application> applications) : applications_(std::move(applications)) {}
    std::unique_ptr<IApplicationItem> Next() override
    {
        if (next_ == applications_.size()) return nullptr;
        return std::make_unique<EmulatedItem>(applications_[next_++]);
    }

private:
    std::vector<Application> applications_;
    std::size_t next_ = 0;
};

class EmulatedShell final : public IShell {
public:
    explicit EmulatedShell(EmulatedPc pc) : pc_(std::move(pc)) {}
    void InitializeCom() override {}
    void UninitializeCom() override {}
    std::unique_ptr<IApplicationsEnumeration> EnumerateApplications() override
    {
        return std::make_unique<EmulatedApplications>(ReadApplications(pc_));
    }

private:
    EmulatedPc pc_;
};

} // namespace

std::unique_ptr<IShell> CreateShell()
{
    return std::make_unique<EmulatedShell>(EmulatedPc::FromEnvironment());
}

namespace Emulated {

State BuiltInApplications()
{
    return {{"folder",
             State::array({
                 {{"displayName", "Calculator"},
                  {"properties",
                   State::array({State::array({"System.AppUserModel.PackageInstallPath",
                                               "C:\\Program Files\\WindowsApps\\Microsoft.WindowsCalculator_11.2405.2.0_arm64__8wekyb3d8bbwe"})})}},
                 {{"displayName", "Notepad"},
                  {"properties",
                   State::array({State::array({"System.Link.TargetParsingPath", "C:\\Windows\\System32\\notepad.exe"})})}},
                 {{"displayName", "Word"},
                  {"properties",
                   State::array({State::array({"System.Link.TargetParsingPath",
                                               "C:\\Program Files\\Microsoft Office\\root\\Office16\\WINWORD.EXE"})})}},
             })}};
}

} // namespace Emulated
} // namespace Tessel::Bridge::Platform
