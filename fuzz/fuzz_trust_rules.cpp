// The trust rules' text inputs: a signer's subject, or a host's command line
// for the two argument validators. Input: a selector byte, then Latin-1 text.
#include "FuzzSupport.h"

#include "security/trust/CertificateDetails.h"
#include "security/trust/TesselAuthenticodeHelper.h"

#include <string>

using KestrelFuzz::Require;
using namespace Tessel::Bridge::Security;

namespace {

void Subject(const std::wstring& text)
{
    CertificateDetails details;
    ParseSubject(text, details);
    // A field holds the value of a line that starts with its key.
    const std::pair<const wchar_t*, const std::wstring*> fields[] = {
        {L"CN=", &details.commonName}, {L"OU=", &details.organizationalUnit}, {L"O=", &details.organization},
        {L"L=", &details.locality},    {L"S=", &details.state},              {L"C=", &details.country}};
    for (const auto& [key, value] : fields) {
        if (value->empty()) continue;
        const std::wstring line = key + *value;
        Require(text.starts_with(line) || text.find(L"\r\n" + line) != std::wstring::npos, "a field comes from its own line");
        Require(value->find(L"\r\n") == std::wstring::npos, "a field is one line");
    }
    Require(details.publicKey.empty() && details.issuer.empty(), "the subject fills only subject fields");
}

void Validators(const std::wstring& commandLine)
{
    int calls = 0;
    std::wstring judged;
    const TesselAuthenticodeHelper::LibraryJudge judge = [&](const std::wstring& library) {
        ++calls;
        judged = library;
        return library.size() % 2 == 0;
    };
    const bool switches = TesselAuthenticodeHelper::SwitchSkippingValidator(commandLine, judge);
    Require(calls <= 1, "one library judged");
    Require(switches == (calls == 1 && judged.size() % 2 == 0), "the verdict is the judge's");
    Require(calls == 0 || !judged.starts_with(L"/"), "a switch is never judged");
    calls = 0;
    const bool comma = TesselAuthenticodeHelper::CommaCuttingValidator(commandLine, judge);
    Require(calls <= 1 && comma == (calls == 1 && judged.size() % 2 == 0), "one library, the judge's verdict");
    Require(calls == 0 || judged.find(L',') == std::wstring::npos, "cut at the comma");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size == 0 || size > 4096) return 0;
    const std::wstring text(data + 1, data + size);
    if (data[0] % 2 == 0) Subject(text);
    else Validators(text);
    return 0;
}
