#include "security/trust/CertificateDetails.h"

#include <array>
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

namespace {

// A publisher row in the constructor's order: CN, OU, L, O, S, C, issuer.
using Row = std::array<const wchar_t*, 7>;

// The rows are constant data and one loop builds every table, so start-up
// runs a few instructions per row instead of an initialiser per table.
std::vector<CertificateDetails> Table(std::span<const Row> rows)
{
    std::vector<CertificateDetails> table;
    table.reserve(rows.size());
    for (const Row& row : rows) table.emplace_back(row[0], row[1], row[2], row[3], row[4], row[5], row[6]);
    return table;
}

constexpr Row kTesselRows[] = {
    {L"Tessel Inc.", L"Tessel Cybersecurity", L"Larkford", L"Tessel Inc.", L"California", L"US", kDigiCertCodeSigning},
    {L"Tessel Inc.", L"", L"Larkford", L"Tessel Inc.", L"California", L"US", kDigiCertCodeSigning},
};

constexpr Row kDropboxRows[] = {
    {L"Dropbox, Inc", L"", L"San Francisco", L"Dropbox, Inc", L"California", L"US", kDigiCertCodeSigning},
};

// The organisation's leading blank is part of the row.
constexpr Row kMicrosoftRows[] = {
    {L"Microsoft Corporation", L"", L"Redmond", L" Microsoft Corporation", L"Washington", L"US", L""},
};

constexpr Row kBitdefenderRows[] = {
    {L"Bitdefender SRL", L"", L"Bucharest", L"Bitdefender SRL", L"", L"RO", kDigiCertCodeSigning},
};

} // namespace

namespace TrustedPublishers {

const std::vector<CertificateDetails> kTessel = Table(kTesselRows);
const std::vector<CertificateDetails> kDropbox = Table(kDropboxRows);
const std::vector<CertificateDetails> kMicrosoft = Table(kMicrosoftRows);
const std::vector<CertificateDetails> kBitdefender = Table(kBitdefenderRows);

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
