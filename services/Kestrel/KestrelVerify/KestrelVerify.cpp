#include "KestrelVerify.h"

#include "platform/TextConversion.h"
#include "platform/common/Hex.h"

#include <ostream>
#include <stdexcept>
#include <string>
#include <vector>

namespace Tessel::Bridge::Server::Services::Kestrel {

namespace {

using Platform::SignatureCheck;

constexpr int kAllTrusted = 0;
constexpr int kNotAllTrusted = 1;
constexpr int kBadUsage = 2;

constexpr const wchar_t* kUsage = L"usage: KestrelVerify [--roots FILE] [--catalogs DIR] [--] FILE...\n";

std::wstring Hex(std::uint32_t value)
{
    static constexpr wchar_t kDigits[] = L"0123456789ABCDEF";
    std::wstring text = L"0x";
    for (int shift = 28; shift >= 0; shift -= 4) text += kDigits[(value >> shift) & 0xF];
    return text;
}

// The subject on one line: its CR LF separated parts joined by ", ".
std::wstring OneLine(const std::wstring& subject)
{
    std::wstring line;
    for (std::size_t at = 0; at < subject.size(); ++at) {
        if (subject.compare(at, 2, L"\r\n") == 0) {
            line += L", ";
            ++at;
        } else {
            line += subject[at];
        }
    }
    return line;
}

// One line per signature; the loop stops as the verifier's count of
// secondary signatures says, as WinVerifyTrust's callers do.
template <typename Verify>
bool ListSignatures(const wchar_t* kind, const Verify& verify, std::vector<std::wstring>& lines)
{
    bool trusted = false;
    for (std::uint32_t index = 0;; ++index) {
        const SignatureCheck check = verify(index);
        std::wstring line = L"  " + std::wstring(kind) + L' ' + std::to_wstring(index) + L": " + Hex(check.result);
        if (check.signer) {
            line += L" key=" + Platform::HexDigits(Platform::Sha256Of(check.signer->publicKey), false) + L" subject=" + OneLine(check.signer->subject);
        }
        lines.push_back(std::move(line));
        trusted = trusted || Platform::TrustResult::CountsAsTrusted(check.result);
        if (check.secondarySignatures < index + 1) return trusted;
    }
}

bool VerifyFile(Platform::ISignatureVerifier& verifier, const std::wstring& path, std::wostream& out)
{
    std::vector<std::wstring> lines;
    bool trusted = false;
    Platform::CatalogLookupFailure failure;
    if (const auto catalog = verifier.FindCatalog(path, failure)) {
        lines.push_back(L"  catalog " + catalog->catalogPath + L" lists " + catalog->memberTag);
        trusted = ListSignatures(L"catalog", [&](std::uint32_t i) { return verifier.VerifyThroughCatalog(*catalog, path, i); }, lines);
    }
    trusted = ListSignatures(L"embedded", [&](std::uint32_t i) { return verifier.VerifyEmbedded(path, i); }, lines) || trusted;
    out << path << (trusted ? L": trusted by Windows\n" : L": not trusted by Windows\n");
    for (const std::wstring& line : lines) out << line << L'\n';
    return trusted;
}

} // namespace

int RunKestrelVerify(int argc, const char* const argv[], const VerifierFactory& createVerifier, std::wostream& out,
                     std::wostream& err)
{
    Platform::TrustSources sources;
    std::vector<std::wstring> files;
    bool options = true;
    for (int i = 1; i < argc; ++i) {
        const std::string word = argv[i];
        if (options && word == "--") {
            options = false;
        } else if (options && (word == "--roots" || word == "--catalogs")) {
            if (i + 1 >= argc) {
                err << L"KestrelVerify: " << Platform::WideFromUtf8(argv[i]) << L" needs a value\n" << kUsage;
                return kBadUsage;
            }
            (word == "--roots" ? sources.roots : sources.catalogs) = argv[++i];
        } else if (options && word.starts_with("-") && word.size() > 1) {
            err << L"KestrelVerify: unknown option " << Platform::WideFromUtf8(argv[i]) << L'\n' << kUsage;
            return kBadUsage;
        } else {
            files.push_back(Platform::WideFromUtf8(argv[i]));
        }
    }
    if (files.empty()) {
        err << kUsage;
        return kBadUsage;
    }

    // Trust sources that cannot be used (an unreadable roots file, a
    // malformed emulated PC) end the run before a verdict.
    try {
        const std::unique_ptr<Platform::ISignatureVerifier> verifier = createVerifier(sources);
        bool allTrusted = true;
        for (const std::wstring& file : files) allTrusted = VerifyFile(*verifier, file, out) && allTrusted;
        out.flush();
        return allTrusted ? kAllTrusted : kNotAllTrusted;
    } catch (const std::exception& e) {
        out.flush();
        err << L"KestrelVerify: " << Platform::WideFromUtf8(e.what()) << L'\n';
        return kBadUsage;
    }
}

} // namespace Tessel::Bridge::Server::Services::Kestrel
