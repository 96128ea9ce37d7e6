// Uses the public interface the way a server of the product does and checks
// what it answers; each failure is printed.
#include "ConsumerChecks.h"

#include <KestrelSecurity.h>

#include <cstdio>
#include <memory>
#include <string>

using namespace Tessel::Bridge;

namespace {

int failures = 0;

bool UwpExempt(const wchar_t* family, std::uint16_t major, std::uint16_t minor)
{
    Security::BridgeAccessManager manager;
    manager.SetUwpChecker(std::make_shared<Security::UwpWithNoTesselManifestCheckBasedOnMajorAndMinorVersion>(
        Security::UwpWithNoTesselManifestExemptionWhiteList().GetExemption(),
        std::make_shared<Server::Uwp::UwpInformation>(L"7C3E9B10.Umbrano", family, major, minor)));
    return manager.IsUwpExempt();
}

bool Win32Exempt(const std::shared_ptr<Server::Win32::Win32Information>& client)
{
    Security::BridgeAccessManager manager;
    manager.SetWin32Checker(std::make_shared<Security::Win32WithNoTesselManifestCheckBasedOnMajorAndMinorVersion>(
        Security::Win32WithNoTesselManifestExemptionWhiteList().GetExemption(), client));
    return manager.IsWin32Exempt();
}

} // namespace

void Check(bool holds, const char* what)
{
    if (holds) return;
    std::fprintf(stderr, "failed: %s\n", what);
    ++failures;
}

int Failures()
{
    return failures;
}

int RunConsumerChecks(bool askForTheCaller)
{
    const wchar_t* family = L"7C3E9B10.Umbrano_r7w2k9d4m1q8z";
    Check(UwpExempt(family, 2, 0), "packaged client at 2.0 exempt");
    Check(UwpExempt(family, 1, 99), "packaged client at 1.99 exempt");
    Check(!UwpExempt(family, 2, 1), "packaged client at 2.1 not exempt");
    Check(!UwpExempt(L"7C3E9B10.UMBRANO_r7w2k9d4m1q8z", 1, 0), "another letter case not exempt");

    const auto client = std::make_shared<Server::Win32::Win32Information>(L"KbdAgentUwp", 8, 9);
    Check(Win32Exempt(client), "desktop client at 8.9 exempt");
    Check(client->name == L"kbdagentuwp", "desktop client's name lower-cased");
    Check(!Win32Exempt(std::make_shared<Server::Win32::Win32Information>(L"KbdAgentUwp", 8, 10)), "desktop client at 8.10 not exempt");
    Check(!Win32Exempt(nullptr), "no client, no exemption");

    try {
        Security::BridgeAccessManager().IsWin32Exempt();
        Check(false, "IsWin32Exempt without a checker throws");
    } catch (const std::logic_error& e) {
        Check(std::string(e.what()) == "The Behavior was not defined. A call to SetWin32Checker must be done.",
              "the SetWin32Checker text");
        Check(dynamic_cast<const Security::bridge_access_exception*>(&e) != nullptr, "a bridge_access_exception");
    }

    // The built-in pinned keys: nothing the tests can sign matches them.
    Security::TesselAuthenticodeFacade facade;
    Check(!facade.IsFileTrustedByListA(L"%windir%\\System32\\no-such-file.exe"), "a missing file is not trusted");
    Check(!facade.IsFileTrustedByListA(nullptr) && !facade.AreSignedBySameKey(nullptr, nullptr), "no path, no trust");

    if (!askForTheCaller) return failures;
    const auto sink = std::make_shared<Logging::MemorySink>();
    Logging::LogManager::GetLogger()->SetSink(sink);
    Check(Security::RpcSecurityHelper().GetPFNOfCaller().empty(), "no caller outside a call");
    const auto records = sink->Records();
    Check(records.size() == 1 && records[0].level == Logging::LogLevel::Error &&
              records[0].message.find(L"RpcServerInqCallAttributes failed") != std::wstring::npos,
          "one RpcServerInqCallAttributes failed line");
    return failures;
}
