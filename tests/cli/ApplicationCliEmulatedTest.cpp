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

namespace {

class WriteToDocCli : public EmulatedPcCli {
protected:
    std::string Write(const std::string& bytes)
    {
        WriteFileBytes(text, bytes);
        return Output({"Application", "WriteToDoc", text.string()});
    }
    Json WordProcessor() const { return SavedState()["wordProcessor"]; }

    std::filesystem::path text = directory / "text.txt";
};

} // namespace

TEST_F(WriteToDocCli, EachRunTypesItsFileIntoANewVisibleDocumentInFront)
{
    EXPECT_EQ(Write("a\r\nb"), "1\n");
    EXPECT_EQ(Write(std::string("c\rd\xff\0e", 6)), "1\n");
    EXPECT_EQ(Write(""), "1\n");
    EXPECT_EQ(Write("f\x1ag"), "1\n");
    const Json word = WordProcessor();
    EXPECT_EQ(word["visible"], true);
    // A lone CR stays, invalid UTF-8 becomes U+FFFD, a zero byte or Ctrl+Z ends the text.
    const std::vector<std::string> texts{"a\nb", "c\rd\xef\xbf\xbd", "", "f"};
    ASSERT_EQ(word["documents"].size(), texts.size());
    for (std::size_t i = 0; i < texts.size(); ++i) {
        const Json& document = word["documents"][i];
        EXPECT_EQ(document["text"], texts[i]);
        EXPECT_EQ(document["paragraphMarks"], 1);
        // Only the newest window is in front.
        EXPECT_EQ(document["foreground"], i + 1 == texts.size());
    }
    EXPECT_EQ(SavedState()["editor"]["openedPaths"], Json::array());
}

TEST_F(WriteToDocCli, WithoutAFileOrAWordProcessorTheEditorOpensThePath)
{
    const std::string missing = (directory / "missing.txt").string();
    const std::string folder = (directory / "").string();
    ExpectResults({{{"Application", "WriteToDoc", missing}, "1"}, {{"Application", "WriteToDoc", folder}, "1"}});
    EXPECT_EQ(SavedState()["editor"]["openedPaths"], Json::array({missing, folder}));
    EXPECT_EQ(WordProcessor()["documents"], Json::array());

    UseState({{"wordProcessor", {{"installed", false}}}, {"editor", {{"startable", false}}}});
    EXPECT_EQ(Write("text"), "0\n");
    UseState({{"wordProcessor", {{"startable", false}}}});
    EXPECT_EQ(Write("text"), "1\n");
    EXPECT_EQ(SavedState()["editor"]["openedPaths"], Json::array({text.string()}));
    EXPECT_EQ(WordProcessor()["documents"], Json::array());
}

TEST_F(WriteToDocCli, ADocumentsWindowComesToTheFrontAndIsRestored)
{
    // A handle with the sign bit set still finds its window.
    UseState({{"wordProcessor", {{"documents", Json::array({{{"text", "old"}, {"paragraphMarks", 0}, {"window", -16},
                                                              {"foreground", true}, {"minimized", true}}})}}}});
    EXPECT_EQ(Write("new"), "1\n");
    const Json documents = WordProcessor()["documents"];
    ASSERT_EQ(documents.size(), 2u);
    EXPECT_EQ(documents[0]["foreground"], false);
    EXPECT_EQ(documents[1]["foreground"], true);
    EXPECT_EQ(documents[1]["minimized"], false);
    EXPECT_EQ(documents[1]["text"], "new");
}
