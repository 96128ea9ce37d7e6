#include "security/trust/CertificateDetails.h"

#include <string_view>
#include <utility>

namespace Tessel::Bridge::Security {
namespace {

constexpr const wchar_t* kDigiCertCodeSigning = L"DigiCert SHA2 Assured ID Code Signing CA";

} // namespace

CertificateDetails::CertificateDetails() = default;

CertificateDetails::CertificateDetails(std::wstring cn, std::wstring ou, std::wstring l, std::wstring o, std::wstring s,
                                       std::wstring c, std::wstring issuerName)
    : commonName(std::move(cn)), organizationalUnit(std::move(ou)), organization(std::move(o)), locality(std::move(l)),
      state(std::move(s)), country(std::move(c)), issuer(std::move(issuerName))
{
}

namespace TrustedPublishers {

const std::vector<CertificateDetails> kTessel = {
    {L"Tessel Inc.", L"Tessel Cybersecurity", L"Larkford", L"Tessel Inc.", L"California", L"US", kDigiCertCodeSigning},
    {L"Tessel Inc.", L"", L"Larkford", L"Tessel Inc.", L"California", L"US", kDigiCertCodeSigning},
};

const std::vector<CertificateDetails> kDropbox = {
    {L"Dropbox, Inc", L"", L"San Francisco", L"Dropbox, Inc", L"California", L"US", kDigiCertCodeSigning},
};

// The organisation's leading blank is part of the row.
const std::vector<CertificateDetails> kMicrosoft = {
    {L"Microsoft Corporation", L"", L"Redmond", L" Microsoft Corporation", L"Washington", L"US", L""},
};

const std::vector<CertificateDetails> kBitdefender = {
    {L"Bitdefender SRL", L"", L"Bucharest", L"Bitdefender SRL", L"", L"RO", kDigiCertCodeSigning},
};

} // namespace TrustedPublishers

std::string PublicKeyText(std::span<const std::uint8_t> keyBytes)
{
    static constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    text.reserve(keyBytes.size() * 3);
    for (const std::uint8_t byte : keyBytes) {
        if (!text.empty()) text += ' ';
        text += kDigits[byte >> 4];
        text += kDigits[byte & 0xF];
    }
    return text;
}

void ParseSubject(const std::wstring& subject, CertificateDetails& details)
{
    const std::pair<std::wstring_view, std::wstring CertificateDetails::*> fields[] = {
        {L"CN", &CertificateDetails::commonName}, {L"OU", &CertificateDetails::organizationalUnit},
        {L"O", &CertificateDetails::organization}, {L"L", &CertificateDetails::locality},
        {L"S", &CertificateDetails::state},        {L"C", &CertificateDetails::country}};
    std::wstring_view rest = subject;
    while (!rest.empty()) {
        const std::size_t end = rest.find(L"\r\n");
        const std::wstring_view line = rest.substr(0, end);
        rest = end == std::wstring_view::npos ? std::wstring_view{} : rest.substr(end + 2);
        const std::size_t equals = line.find(L'=');
        if (equals == std::wstring_view::npos) continue;
        for (const auto& [key, field] : fields) {
            if (line.substr(0, equals) == key) details.*field = std::wstring(line.substr(equals + 1));
        }
    }
}

} // namespace Tessel::Bridge::Security
