#include "KestrelVerify.h"

#include "platform/TextConversion.h"
#include "platform/common/Hex.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <exception>
#include <filesystem>
#include <mutex>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <system_error>
#include <thread>
#include <vector>

namespace Tessel::Bridge::Server::Services::Kestrel {

namespace {

namespace fs = std::filesystem;
using Platform::CatalogMembership;
using Platform::SignatureCheck;

constexpr int kAllTrusted = 0;
constexpr int kNotAllTrusted = 1;
constexpr int kBadUsage = 2;
constexpr unsigned kMaxJobs = 256;

constexpr const wchar_t* kUsage =
    L"usage: KestrelVerify [--json] [--recursive] [-j N] [--roots FILE] [--catalogs DIR] [--] PATH...\n";
constexpr const wchar_t* kHelp =
    L"Says for each file whether Windows would trust it, and lists its Authenticode signatures:\n"
    L"those of a security catalog that lists the file first, then the embedded ones.\n"
    L"\n"
    L"  --json          one JSON object per file, one per line\n"
    L"  --recursive     verify every file under the directories named\n"
    L"  -j N            verify N files at a time (default: one per processor)\n"
    L"  --roots FILE    trust the root certificates of this PEM file (not on Windows)\n"
    L"  --catalogs DIR  look for security catalogs (.cat) in this folder (not on Windows)\n"
    L"  --help          print this text\n"
    L"  --version       print the version\n"
    L"\n"
    L"Exit status: 0 every file trusted, 1 some file not trusted,\n"
    L"2 bad usage or a file that cannot be read.\n";

std::wstring Wide(std::string_view utf8)
{
    return Platform::WideFromUtf8(std::string(utf8).c_str());
}

std::wstring PathText(const fs::path& path)
{
    const std::u8string text = path.u8string();
    return Wide(std::string_view(reinterpret_cast<const char*>(text.data()), text.size()));
}

fs::path PathOf(std::string_view utf8)
{
    std::u8string text(utf8.size(), u8'\0');
    std::transform(utf8.begin(), utf8.end(), text.begin(), [](char c) { return static_cast<char8_t>(c); });
    return fs::path(text);
}

std::wstring Hex(std::uint32_t value)
{
    static constexpr wchar_t kDigits[] = L"0123456789ABCDEF";
    std::wstring text = L"0x";
    for (int shift = 28; shift >= 0; shift -= 4) text += kDigits[(value >> shift) & 0xF];
    return text;
}

const wchar_t* CodeName(std::uint32_t code)
{
    namespace R = Platform::TrustResult;
    switch (code) {
    case R::kTrusted: return L"ERROR_SUCCESS";
    case R::kNoSignature: return L"TRUST_E_NOSIGNATURE";
    case R::kExpired: return L"CERT_E_EXPIRED";
    case R::kUntrustedRoot: return L"CERT_E_UNTRUSTEDROOT";
    case R::kWrongUsage: return L"CERT_E_WRONG_USAGE";
    case R::kChaining: return L"CERT_E_CHAINING";
    case R::kSubjectFormUnknown: return L"TRUST_E_SUBJECT_FORM_UNKNOWN";
    case R::kBadDigest: return L"TRUST_E_BAD_DIGEST";
    case R::kBadSignature: return L"TRUST_E_CERT_SIGNATURE";
    case R::kFileError: return L"CRYPT_E_FILE_ERROR";
    case R::kNoIndex: return L"CRYPT_E_NOT_FOUND";
    default: return nullptr;
    }
}

std::wstring Padded(long long value, std::size_t width)
{
    std::wstring text = std::to_wstring(value);
    return std::wstring(width > text.size() ? width - text.size() : 0, L'0') + text;
}

// ISO 8601 in UTC, to the second: "2020-07-01T00:00:00Z".
std::wstring IsoTime(std::int64_t secondsSince1970)
{
    using namespace std::chrono;
    const sys_seconds time{seconds(secondsSince1970)};
    const sys_days day = floor<days>(time);
    const year_month_day date(day);
    const hh_mm_ss<seconds> clock(time - day);
    return Padded(static_cast<int>(date.year()), 4) + L'-' + Padded(static_cast<unsigned>(date.month()), 2) + L'-' +
           Padded(static_cast<unsigned>(date.day()), 2) + L'T' + Padded(clock.hours().count(), 2) + L':' +
           Padded(clock.minutes().count(), 2) + L':' + Padded(clock.seconds().count(), 2) + L'Z';
}

// A JSON string. Output is UTF-8, so only what JSON forbids raw is escaped;
// a code unit that is no Unicode character (a lone surrogate) becomes U+FFFD.
void AppendJson(std::wstring& json, std::wstring_view text)
{
    static constexpr wchar_t kDigits[] = L"0123456789abcdef";
    json += L'"';
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto unit = static_cast<std::uint32_t>(text[i]);
        switch (unit) {
        case '"': json += L"\\\""; continue;
        case '\\': json += L"\\\\"; continue;
        case '\b': json += L"\\b"; continue;
        case '\f': json += L"\\f"; continue;
        case '\n': json += L"\\n"; continue;
        case '\r': json += L"\\r"; continue;
        case '\t': json += L"\\t"; continue;
        default: break;
        }
        if (unit < 0x20) {
            json += L"\\u00";
            json += kDigits[unit >> 4];
            json += kDigits[unit & 0xF];
        } else if (unit >= 0xD800 && unit <= 0xDBFF && sizeof(wchar_t) == 2 && i + 1 < text.size() &&
                   static_cast<std::uint32_t>(text[i + 1]) >= 0xDC00 && static_cast<std::uint32_t>(text[i + 1]) <= 0xDFFF) {
            json += text.substr(i++, 2);
        } else if ((unit >= 0xD800 && unit <= 0xDFFF) || unit > 0x10FFFF) {
            json += L"\\ufffd";
        } else {
            json += text[i];
        }
    }
    json += L'"';
}

void AppendJsonOrNull(std::wstring& json, const std::optional<std::wstring>& text)
{
    if (text) {
        AppendJson(json, *text);
    } else {
        json += L"null";
    }
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

std::wstring KeyHash(const Platform::Signer& signer)
{
    return Platform::HexDigits(Platform::Sha256Of(signer.publicKey), false);
}

struct Signature {
    bool throughCatalog = false;
    std::uint32_t index = 0;
    SignatureCheck check;
};

struct FileVerdict {
    bool trusted = false;
    std::optional<CatalogMembership> catalog;
    std::vector<Signature> signatures;
};

// The signatures of one kind, by index; the loop stops as the verifier's
// count of secondary signatures says, as WinVerifyTrust's callers do.
template <typename Verify>
void ListSignatures(bool throughCatalog, const Verify& verify, FileVerdict& verdict)
{
    for (std::uint32_t index = 0;; ++index) {
        Signature signature{throughCatalog, index, verify(index)};
        verdict.trusted = verdict.trusted || Platform::TrustResult::CountsAsTrusted(signature.check.result);
        const std::uint32_t following = signature.check.secondarySignatures;
        verdict.signatures.push_back(std::move(signature));
        if (following < index + 1) return;
    }
}

std::wstring Text(const std::wstring& path, const FileVerdict& verdict)
{
    std::wstring text = path + (verdict.trusted ? L": trusted by Windows\n" : L": not trusted by Windows\n");
    if (verdict.catalog) text += L"  catalog " + verdict.catalog->catalogPath + L" lists " + verdict.catalog->memberTag + L'\n';
    for (const Signature& signature : verdict.signatures) {
        text += signature.throughCatalog ? L"  catalog " : L"  embedded ";
        text += std::to_wstring(signature.index) + L": " + Hex(signature.check.result);
        if (const auto& signer = signature.check.signer) text += L" key=" + KeyHash(*signer) + L" subject=" + OneLine(signer->subject);
        text += L'\n';
    }
    return text;
}

std::wstring Json(const std::wstring& path, const FileVerdict& verdict)
{
    std::wstring json = L"{\"path\":";
    AppendJson(json, path);
    json += verdict.trusted ? L",\"trusted\":true,\"signatures\":[" : L",\"trusted\":false,\"signatures\":[";
    for (const Signature& signature : verdict.signatures) {
        const SignatureCheck& check = signature.check;
        if (&signature != &verdict.signatures.front()) json += L',';
        json += signature.throughCatalog ? L"{\"kind\":\"catalog\"" : L"{\"kind\":\"embedded\"";
        json += L",\"index\":" + std::to_wstring(signature.index) + L",\"code\":" + std::to_wstring(check.result) +
                L",\"code_hex\":\"" + Hex(check.result) + L"\",\"code_name\":";
        const wchar_t* name = CodeName(check.result);
        AppendJsonOrNull(json, name ? std::optional<std::wstring>(name) : std::nullopt);
        if (signature.throughCatalog && verdict.catalog) {
            json += L",\"catalog_path\":";
            AppendJson(json, verdict.catalog->catalogPath);
            json += L",\"member_tag\":";
            AppendJson(json, verdict.catalog->memberTag);
        }
        json += L",\"signer\":";
        if (check.signer) {
            json += L"{\"subject\":";
            AppendJsonOrNull(json, check.signer->subjectUnreadable ? std::nullopt : std::optional(check.signer->subject));
            json += L",\"key_sha256\":\"" + KeyHash(*check.signer) + L"\"}";
        } else {
            json += L"null";
        }
        json += L",\"digest_algorithm\":";
        AppendJsonOrNull(json, check.digestAlgorithm.empty() ? std::nullopt : std::optional(Wide(check.digestAlgorithm)));
        json += L",\"timestamp\":";
        if (check.timestamp) {
            json += check.timestamp->kind == Platform::Timestamp::Kind::Rfc3161 ? L"{\"kind\":\"rfc3161\",\"time\":\""
                                                                                : L"{\"kind\":\"countersignature\",\"time\":\"";
            json += IsoTime(check.timestamp->time) + L"\"}";
        } else {
            json += L"null";
        }
        json += L'}';
    }
    json += L"]}\n";
    return json;
}

// One file's answer, made on a worker and printed in turn by the main thread.
struct Report {
    enum class Outcome { Trusted, NotTrusted, Failed };
    Outcome outcome = Outcome::Failed;
    std::wstring out;
    std::wstring err;
};

// A code that says the file itself could not be opened or read: WinTrust's
// own, or a Win32 error (not found, access denied, sharing violation), bare or
// as an HRESULT.
bool IsReadFailure(std::uint32_t code)
{
    const std::uint32_t win32 = (code & 0xFFFF0000) == 0x80070000 ? code & 0xFFFF : code;
    return code == Platform::TrustResult::kFileError || win32 == 2 || win32 == 3 || win32 == 5 || win32 == 32;
}

Report Verify(Platform::ISignatureVerifier& verifier, const std::wstring& path, bool json)
{
    Report report;
    const auto unreadable = [&](std::uint32_t code) {
        report.err = L"KestrelVerify: cannot read " + path + L" (error " + (code > 0xFFFF ? Hex(code) : std::to_wstring(code)) + L")\n";
        return report;
    };
    try {
        FileVerdict verdict;
        Platform::CatalogLookupFailure failure;
        verdict.catalog = verifier.FindCatalog(path, failure);
        // The catalog lookup opens and hashes every file first.
        if (!verdict.catalog && failure.step == Platform::CatalogLookupFailure::Step::HashFile) return unreadable(failure.error);
        if (verdict.catalog) {
            const CatalogMembership& catalog = *verdict.catalog;
            ListSignatures(true, [&](std::uint32_t i) { return verifier.VerifyThroughCatalog(catalog, path, i); }, verdict);
        }
        ListSignatures(false, [&](std::uint32_t i) { return verifier.VerifyEmbedded(path, i); }, verdict);
        if (!verdict.catalog && IsReadFailure(verdict.signatures.front().check.result)) return unreadable(verdict.signatures.front().check.result);
        report.outcome = verdict.trusted ? Report::Outcome::Trusted : Report::Outcome::NotTrusted;
        report.out = json ? Json(path, verdict) : Text(path, verdict);
    } catch (const std::exception& e) {
        report = {Report::Outcome::Failed, {}, L"KestrelVerify: " + path + L": " + Wide(e.what()) + L'\n'};
    }
    return report;
}

// Reports by position, handed from the workers to the printing thread, which
// is woken only for the report it waits for.
class ReportQueue {
public:
    explicit ReportQueue(std::size_t count) : reports_(count) {}

    void Put(std::size_t position, Report report)
    {
        bool awaited = false;
        {
            const std::lock_guard lock(mutex_);
            reports_[position] = std::move(report);
            awaited = position == next_;
        }
        if (awaited) ready_.notify_one();
    }

    // The reports from the next one on that are done, at least one.
    std::vector<Report> TakeDone()
    {
        std::unique_lock lock(mutex_);
        ready_.wait(lock, [&] { return reports_[next_].has_value(); });
        std::vector<Report> done;
        for (; next_ < reports_.size() && reports_[next_]; ++next_) {
            done.push_back(std::move(*reports_[next_]));
            reports_[next_].reset();
        }
        return done;
    }

private:
    std::mutex mutex_;
    std::condition_variable ready_;
    std::vector<std::optional<Report>> reports_;
    std::size_t next_ = 0;
};

class JoiningThreads {
public:
    JoiningThreads() = default;
    JoiningThreads(const JoiningThreads&) = delete;
    JoiningThreads& operator=(const JoiningThreads&) = delete;
    ~JoiningThreads()
    {
        for (std::thread& thread : threads_) thread.join();
    }
    template <typename Work>
    bool Start(Work work)
    {
        try {
            threads_.emplace_back(std::move(work));
            return true;
        } catch (const std::system_error&) {
            return false;
        }
    }
    bool Empty() const { return threads_.empty(); }

private:
    std::vector<std::thread> threads_;
};

struct Options {
    Platform::TrustSources sources;
    std::vector<std::string> paths;
    bool json = false;
    bool recursive = false;
    unsigned jobs = 0; // 0: one per processor
    bool help = false;
    bool version = false;
};

std::optional<unsigned> JobCount(std::string_view text)
{
    if (text.empty() || text.size() > 3 || text.find_first_not_of("0123456789") != std::string_view::npos) return std::nullopt;
    unsigned count = 0;
    for (const char digit : text) count = count * 10 + static_cast<unsigned>(digit - '0');
    if (count == 0 || count > kMaxJobs) return std::nullopt;
    return count;
}

// What is wrong with the command line, if anything.
std::optional<std::wstring> ParseOptions(int argc, const char* const argv[], Options& options)
{
    bool optionsEnd = false;
    for (int i = 1; i < argc; ++i) {
        const std::string_view word = argv[i];
        const bool option = !optionsEnd && word.starts_with("-") && word.size() > 1;
        const auto value = [&]() -> const char* { return i + 1 < argc ? argv[++i] : nullptr; };
        if (!option) {
            options.paths.emplace_back(word);
        } else if (word == "--") {
            optionsEnd = true;
        } else if (word == "--help") {
            options.help = true;
        } else if (word == "--version") {
            options.version = true;
        } else if (word == "--json") {
            options.json = true;
        } else if (word == "--recursive") {
            options.recursive = true;
        } else if (word == "--roots" || word == "--catalogs") {
            const char* path = value();
            if (path == nullptr) return Wide(word) + L" needs a value";
            (word == "--roots" ? options.sources.roots : options.sources.catalogs) = PathOf(path);
        } else if (word.starts_with("-j")) {
            const char* count = word.size() > 2 ? argv[i] + 2 : value();
            const std::optional<unsigned> jobs = count ? JobCount(count) : std::nullopt;
            if (!jobs) return L"-j needs a number of files at a time from 1 to " + std::to_wstring(kMaxJobs);
            options.jobs = *jobs;
        } else {
            return L"unknown option " + Wide(word);
        }
    }
    if (!options.help && !options.version && options.paths.empty()) return L"no file to verify";
    return std::nullopt;
}

// The files the paths name: a file as named, a directory's regular files
// below it in sorted order. What is wrong, if anything.
std::optional<std::wstring> ExpandPaths(const Options& options, std::vector<std::wstring>& files)
{
    for (const std::string& word : options.paths) {
        const fs::path path = PathOf(word);
        std::error_code error;
        // Anything else, also a missing file, goes to the verifier, which
        // knows the paths of the platform (and of an emulated PC).
        if (!fs::is_directory(path, error)) {
            files.push_back(Wide(word));
            continue;
        }
        if (!options.recursive) return Wide(word) + L" is a directory: --recursive verifies the files under it";
        std::vector<fs::path> found;
        for (fs::recursive_directory_iterator it(path, error), end; !error && it != end; it.increment(error)) {
            std::error_code type;
            if (it->is_regular_file(type)) found.push_back(it->path());
        }
        if (error) return L"cannot list " + Wide(word) + L": " + Wide(error.message());
        // By code point (UTF-8 bytes), the same order on every system.
        std::vector<std::pair<std::u8string, fs::path>> sorted;
        for (fs::path& file : found) sorted.emplace_back(file.u8string(), std::move(file));
        std::sort(sorted.begin(), sorted.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
        for (const auto& [key, file] : sorted) files.push_back(PathText(file));
    }
    return std::nullopt;
}

std::wstring Summary(std::size_t trusted, std::size_t notTrusted, std::size_t failed)
{
    const std::size_t count = trusted + notTrusted + failed;
    std::wstring line = std::to_wstring(count) + (count == 1 ? L" file: " : L" files: ") + std::to_wstring(trusted) +
                        L" trusted, " + std::to_wstring(notTrusted) + L" not trusted";
    if (failed > 0) line += L", " + std::to_wstring(failed) + L" could not be read";
    return line + L'\n';
}

} // namespace

int RunKestrelVerify(int argc, const char* const argv[], const VerifierFactory& createVerifier, std::wostream& out,
                     std::wostream& err)
{
    Options options;
    std::vector<std::wstring> files;
    std::optional<std::wstring> problem = ParseOptions(argc, argv, options);
    if (!problem && options.help) {
        out << kUsage << kHelp << std::flush;
        return kAllTrusted;
    }
    if (!problem && options.version) {
        out << L"KestrelVerify " L"" KESTREL_VERSION L"\n" << std::flush;
        return kAllTrusted;
    }
    if (!problem) problem = ExpandPaths(options, files);
    if (problem) {
        err << L"KestrelVerify: " << *problem << L'\n' << kUsage;
        return kBadUsage;
    }

    const unsigned processors = std::max(1U, std::thread::hardware_concurrency());
    const std::size_t workers = std::min<std::size_t>(options.jobs != 0 ? options.jobs : processors, std::max<std::size_t>(files.size(), 1));
    // Trust sources that cannot be used (an unreadable roots file, a
    // malformed emulated PC) end the run before a verdict.
    std::vector<std::unique_ptr<Platform::ISignatureVerifier>> verifiers;
    try {
        for (std::size_t i = 0; i < workers; ++i) verifiers.push_back(createVerifier(options.sources));
    } catch (const std::exception& e) {
        err << L"KestrelVerify: " << Wide(e.what()) << L'\n';
        return kBadUsage;
    }

    ReportQueue queue(files.size());
    std::atomic<std::size_t> next{0};
    const auto work = [&](Platform::ISignatureVerifier& verifier) {
        for (std::size_t at = next++; at < files.size(); at = next++) queue.Put(at, Verify(verifier, files[at], options.json));
    };
    std::size_t counts[3] = {};
    {
        JoiningThreads threads;
        for (auto& verifier : verifiers) {
            if (!threads.Start([&work, &verifier] { work(*verifier); })) break;
        }
        if (threads.Empty()) work(*verifiers.front());
        for (std::size_t printed = 0; printed < files.size();) {
            for (const Report& report : queue.TakeDone()) {
                ++counts[static_cast<int>(report.outcome)];
                out << report.out;
                err << report.err;
                ++printed;
            }
            out.flush();
        }
    }
    using Outcome = Report::Outcome;
    const std::size_t trusted = counts[static_cast<int>(Outcome::Trusted)];
    const std::size_t notTrusted = counts[static_cast<int>(Outcome::NotTrusted)];
    const std::size_t failed = counts[static_cast<int>(Outcome::Failed)];
    if (!options.json) out << Summary(trusted, notTrusted, failed);
    out.flush();
    if (failed > 0) return kBadUsage;
    return notTrusted > 0 ? kNotAllTrusted : kAllTrusted;
}

} // namespace Tessel::Bridge::Server::Services::Kestrel
