// Host only: the Application category on emulated PCs.
#include "EmulatedPcCli.h"

using namespace KestrelTest;
using Json = nlohmann::json;

namespace {

Json App(const char* name, Json properties)
{
    return {{"displayName", name}, {"properties", std::move(properties)}};
}

class ApplicationCli : public EmulatedPcCli {
protected:
    void UseFolder(const Json& folder) { UseState({{"applications", {{"folder", folder}}}}); }
    std::string Location(const std::string& name) { return Output({"Application", "GetApplicationLocation", name}); }
};

} // namespace

TEST_F(ApplicationCli, AFreshPcFindsItsApplicationsByNameIgnoringCase)
{
    EXPECT_EQ(Location("notepad"), "C:\\Windows\\System32\\notepad.exe\n");
    EXPECT_EQ(Location("CALCULATOR").rfind("C:\\Program Files\\WindowsApps\\", 0), 0u);
    EXPECT_EQ(Location("Notepad++"), "-1\n");
    EXPECT_EQ(Location(""), "-1\n");
    EXPECT_EQ(Output({"Application", "GetApplicationLocations", "Notepad"}), "\n");
    EXPECT_FALSE(std::filesystem::exists(stateFile));
}

TEST_F(ApplicationCli, TheFirstOfTwoNamesakesDecidesAndItsLastPropertyWins)
{
    const std::string longPath = "C:\\" + std::string(1497, 'x');
    UseFolder({App("Tool", Json::array({{"System.ItemNameDisplay", "Tool"}})),
               App("Tool", Json::array({{"System.Link.TargetParsingPath", "C:\\tool.exe"}})),
               App("Both", Json::array({{"System.AppUserModel.PackageInstallPath", "C:\\Apps\\Both"},
                                        {"System.Link.TargetParsingPath", "C:\\both.exe"}})),
               App("Long", Json::array({{"System.Link.TargetParsingPath", longPath}})),
               {{"displayName", "Bare"}}});
    EXPECT_EQ(Location("tool"), "-1\n");
    EXPECT_EQ(Location("both"), "C:\\both.exe\n");
    EXPECT_EQ(Location("Long"), longPath.substr(0, 1023) + "\n");
    EXPECT_EQ(Location("Bare"), "-1\n");
}

TEST_F(ApplicationCli, AMalformedFolderIsReported)
{
    UseFolder(Json::parse(R"([{"displayName": "Tool", "properties": [["System.Link.TargetParsingPath"]]}])"));
    const ProcessResult result = Run({"Application", "GetApplicationLocation", "Tool"});
    EXPECT_NE(result.err.find("is malformed: /applications/folder/0/properties"), std::string::npos) << result.err;
    EXPECT_EQ(result.out, "");
}
