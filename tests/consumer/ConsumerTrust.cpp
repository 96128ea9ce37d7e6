// File trust through the installed package, on an emulated PC this program
// makes: throwaway test keys pinned in list A, the test material's files placed
// on the PC's C: drive.
#include "ConsumerChecks.h"

#include <KestrelSecurity.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>

using namespace Tessel::Bridge;
namespace fs = std::filesystem;

namespace {

std::string Read(const fs::path& file)
{
    std::ifstream in(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

} // namespace

int RunTrustChecks(const fs::path& material, const fs::path& stateFile)
{
    const fs::path drive = stateFile.parent_path() / "drive-c";
    std::ofstream(stateFile) << R"({"trust": {"roots": ")" << (material / "root.crt").string() << "\"}}";
    const auto place = [&](const char* file, const std::string& folder) {
        fs::create_directories(drive / folder);
        fs::copy_file(material / file, drive / folder / file, fs::copy_options::overwrite_existing);
        std::wstring windows = L"C:\\" + fs::path(folder).wstring() + L"\\" + fs::path(file).wstring();
        std::replace(windows.begin(), windows.end(), L'/', L'\\');
        return windows;
    };
    const auto sink = std::make_shared<Logging::MemorySink>();
    Logging::LogManager::GetLogger()->SetSink(sink);
    const auto count = [&](const wchar_t* text) {
        const auto records = sink->Records();
        return std::count_if(records.begin(), records.end(),
                             [&](const Logging::LogRecord& record) { return record.message.find(text) != std::wstring::npos; });
    };

    Security::TesselAuthenticodeFacade facade({Read(material / "leaf.keytext")}, {});
    const std::wstring app = place("signed.exe", "Program Files/Vendor");
    Check(facade.IsFileTrustedByListA(app.c_str()), "a pinned signer under the program files is trusted");
    Check(count(L"Security - IsFileTrusted - trusted by windows = yes, trusted by Lattice = yes") == 1, "one yes/yes line");
    Check(count(L"BeginsWith() failed") == 2, "two BeginsWith() lines");

    sink->Clear();
    Check(!facade.IsFileTrustedByListA(place("signed.exe", "Tools").c_str()), "the same file elsewhere is refused");
    Check(count(L"BeginsWith() failed") == 3 && count(L"Didn't find substring") == 1, "three misses and no store folder");

    sink->Clear();
    const std::wstring packaged = place("signed.exe", "WindowsApps/Vendor.App_1.0.0.0_arm64__r7w2k9d4m1q8z");
    Check(!facade.IsFileTrustedByListA(packaged.c_str()), "a store folder without TrustedInstaller's full control is refused");
    Check(count(L"Security - GetNamedSecurityInfo - Failed ") == 5, "after five attempts");

    Check(facade.AreSignedBySameKey(app.c_str(), place("samekey.exe", "Other").c_str()), "two certificates of one key");
    Check(!facade.AreSignedBySameKey(app.c_str(), place("signed3072.exe", "Other").c_str()), "two keys");
    return Failures();
}
