// The trust rules' text inputs: a signer's subject, a host's command line for
// the two argument validators, and a value for the two path patterns. Input:
// a selector byte, then Latin-1 text.
#include "FuzzSupport.h"

#include "security/trust/CertificateDetails.h"
#include "security/trust/TesselAuthenticodeHelper.h"

#include <string>

using KestrelFuzz::Require;
using namespace Tessel::Bridge::Security;

namespace {

bool IsWord(wchar_t ch)
{
    return (ch >= L'a' && ch <= L'z') || (ch >= L'A' && ch <= L'Z') || (ch >= L'0' && ch <= L'9') || ch == L'_';
}

// The absolute-or-variable pattern, by hand, for ASCII text.
bool StartsAbsoluteOrVariable(const std::wstring& value)
{
    if (value.size() >= 2 && IsWord(value[0]) && value[1] == L':') return true;
    if (!value.empty() && value[0] == L'\\') return true;
    if (value.starts_with(L"http:") || value.starts_with(L"https:")) return true;
    if (value.size() < 3 || value[0] != L'%') return false;
    std::size_t at = 1;
    while (at < value.size() && (IsWord(value[at]) || value[at] == L'(' || value[at] == L')' || value[at] == L'|')) ++at;
    return at > 1 && at < value.size() && value[at] == L'%';
}

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

void Patterns(const std::wstring& value)
{
    Require(TesselAuthenticodeHelper::HasParentDirectoryStep(value) == (value.find(L"..") != std::wstring::npos),
            "a parent step is any \"..\"");
    // \w beyond ASCII depends on the locale.
    for (const wchar_t ch : value) {
        if (ch > 0x7F) return;
    }
    Require(TesselAuthenticodeHelper::IsAbsoluteOrVariablePath(value) == StartsAbsoluteOrVariable(value),
            "absolute or variable as written");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size == 0 || size > 4096) return 0;
    const std::wstring text(data + 1, data + size);
    switch (data[0] % 3) {
    case 0: Subject(text); break;
    case 1: Validators(text); break;
    default: Patterns(text); break;
    }
    return 0;
}
