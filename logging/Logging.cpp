#include "logging/TraceLogger.h"

#include "logging/WideFormat.h"
#include "platform/DebuggerOutput.h"
#include "platform/common/StdioFile.h"
#include "platform/common/Utf8.h"

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <mutex>

namespace Tessel::Bridge::Logging {
namespace {

// How long a writer waits for a sink held by another thread before it gives
// the record up: logging must never hold its caller for long.
constexpr std::chrono::seconds kSinkPatience{2};

const wchar_t* LevelName(LogLevel level)
{
    switch (level) {
    case LogLevel::Info: return L"INFO";
    case LogLevel::Warning: return L"WARNING";
    case LogLevel::Error: return L"ERROR";
    }
    return L"?";
}

// A sink writing whole UTF-8 lines, one write and flush per record, so that
// lines of concurrent writers never interleave.
class LineSink : public ILogSink {
public:
    bool Write(const LogRecord& record) noexcept override
    {
        try {
            const std::string line = Platform::Utf8::Encode(FormatRecordLine(record)) + "\n";
            std::unique_lock lock(mutex_, kSinkPatience);
            if (!lock.owns_lock()) return false;
            return WriteLine(line);
        } catch (...) {
            return false;
        }
    }

protected:
    virtual bool WriteLine(const std::string& line) = 0;

private:
    std::timed_mutex mutex_;
};

class StandardErrorSink final : public LineSink {
    bool WriteLine(const std::string& line) override
    {
        return std::fwrite(line.data(), 1, line.size(), stderr) == line.size() && std::fflush(stderr) == 0;
    }
};

class FileSink final : public LineSink {
public:
    FileSink(std::string path, std::uint64_t maxBytes) : path_(std::move(path)), maxBytes_(maxBytes) {}

private:
    bool WriteLine(const std::string& line) override
    {
        if (!file_) Open();
        if (file_ && written_ + line.size() > maxBytes_ && written_ > 0) {
            // Keep one earlier file; a failed rename only means the log goes on growing.
            file_.reset();
            const std::string kept = path_ + ".1";
            std::remove(kept.c_str());
            std::rename(path_.c_str(), kept.c_str());
            Open();
        }
        if (!file_) return false;
        const bool written = std::fwrite(line.data(), 1, line.size(), file_.get()) == line.size() && std::fflush(file_.get()) == 0;
        written_ += line.size();
        return written;
    }

    void Open()
    {
        file_.reset(std::fopen(path_.c_str(), "ab"));
        if (!file_) return;
        std::fseek(file_.get(), 0, SEEK_END);
        const long size = std::ftell(file_.get());
        written_ = size > 0 ? static_cast<std::uint64_t>(size) : 0;
    }

    std::string path_;
    std::uint64_t maxBytes_;
    Platform::UniqueStdioFile file_;
    std::uint64_t written_ = 0;
};

class DebuggerSink final : public ILogSink {
public:
    bool Write(const LogRecord& record) noexcept override
    {
        try {
            Platform::WriteToDebugger(FormatRecordLine(record) + L"\n");
            return true;
        } catch (...) {
            return false;
        }
    }
};

std::shared_ptr<ILogSink> SinkFromEnvironment()
{
    const char* setting = std::getenv("KESTREL_LOG");
    const std::string chosen = setting != nullptr && *setting != '\0' ? setting : Platform::DefaultLogDestination();
    if (chosen == "none") return nullptr;
    if (chosen == "stderr") return CreateStandardErrorSink();
    if (chosen == "debugger") return CreateDebuggerSink();
    if (chosen.rfind("file:", 0) == 0 && chosen.size() > 5) return CreateFileSink(chosen.substr(5));
    // An unknown setting still logs somewhere a user will see it.
    return CreateStandardErrorSink();
}

} // namespace

bool MemorySink::Write(const LogRecord& record) noexcept
{
    try {
        const std::lock_guard lock(mutex_);
        records_.push_back(record);
        return true;
    } catch (...) {
        return false;
    }
}

std::vector<LogRecord> MemorySink::Records() const
{
    const std::lock_guard lock(mutex_);
    return records_;
}

void MemorySink::Clear()
{
    const std::lock_guard lock(mutex_);
    records_.clear();
}

std::shared_ptr<ILogSink> CreateFileSink(const std::string& path, std::uint64_t maxBytes)
{
    return std::make_shared<FileSink>(path, maxBytes);
}

std::shared_ptr<ILogSink> CreateStandardErrorSink()
{
    return std::make_shared<StandardErrorSink>();
}

std::shared_ptr<ILogSink> CreateDebuggerSink()
{
    return std::make_shared<DebuggerSink>();
}

std::wstring FormatRecordLine(const LogRecord& record)
{
    const auto since = record.time.time_since_epoch();
    const auto seconds = std::chrono::floor<std::chrono::seconds>(since);
    const auto milliseconds = std::chrono::duration_cast<std::chrono::milliseconds>(since - seconds).count();
    const std::chrono::year_month_day day{std::chrono::floor<std::chrono::days>(std::chrono::sys_seconds(seconds))};
    const std::chrono::hh_mm_ss time{seconds - std::chrono::floor<std::chrono::days>(seconds)};
    return FormatWideArgs(L"%04d-%02u-%02uT%02d:%02d:%02d.%03dZ %s 0x%016llx ", static_cast<int>(day.year()),
                          static_cast<unsigned>(day.month()), static_cast<unsigned>(day.day()),
                          static_cast<int>(time.hours().count()), static_cast<int>(time.minutes().count()),
                          static_cast<int>(time.seconds().count()), static_cast<int>(milliseconds),
                          LevelName(record.level), static_cast<unsigned long long>(record.context)) +
           record.message;
}

struct TraceLogger::State {
    mutable std::mutex mutex; // guards sink only while it is copied or replaced
    std::shared_ptr<ILogSink> sink;
    std::atomic<std::uint64_t> dropped{0};

    std::shared_ptr<ILogSink> Current() const
    {
        const std::lock_guard lock(mutex);
        return sink;
    }

    void Log(LogLevel level, LoggingContext context, const wchar_t* format, std::va_list arguments) noexcept
    {
        try {
            const std::shared_ptr<ILogSink> target = Current();
            if (!target) return;
            LogRecord record{level, context, FormatWide(format, arguments), std::chrono::system_clock::now()};
            if (!target->Write(record)) ++dropped;
        } catch (...) {
            ++dropped;
        }
    }
};

TraceLogger::TraceLogger(std::shared_ptr<ILogSink> sink) : state_(std::make_shared<State>())
{
    state_->sink = std::move(sink);
}

#define KESTREL_LOG_AT(level)                          \
    std::va_list arguments;                            \
    va_start(arguments, format);                       \
    state_->Log(level, context, format, arguments);    \
    va_end(arguments)

void TraceLogger::LogInfo(LoggingContext context, const wchar_t* format, ...) noexcept
{
    KESTREL_LOG_AT(LogLevel::Info);
}

void TraceLogger::LogWarning(LoggingContext context, const wchar_t* format, ...) noexcept
{
    KESTREL_LOG_AT(LogLevel::Warning);
}

void TraceLogger::LogError(LoggingContext context, const wchar_t* format, ...) noexcept
{
    KESTREL_LOG_AT(LogLevel::Error);
}

#undef KESTREL_LOG_AT

void TraceLogger::SetSink(std::shared_ptr<ILogSink> sink) noexcept
{
    const std::lock_guard lock(state_->mutex);
    state_->sink = std::move(sink);
}

std::shared_ptr<ILogSink> TraceLogger::Sink() const noexcept
{
    return state_->Current();
}

std::uint64_t TraceLogger::DroppedRecords() const noexcept
{
    return state_->dropped.load();
}

std::shared_ptr<TraceLogger> LogManager::GetLogger()
{
    static const std::shared_ptr<TraceLogger> logger = std::make_shared<TraceLogger>(SinkFromEnvironment());
    return logger;
}

} // namespace Tessel::Bridge::Logging
