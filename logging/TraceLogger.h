#pragma once

#include "logging/Export.h"

#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace Tessel::Bridge::Logging {

// A value the caller of an operation hands in and every record of it carries,
// to tie the records of one request together.
using LoggingContext = std::uint64_t;

enum class LogLevel : std::uint8_t { Info, Warning, Error };

struct LogRecord {
    LogLevel level = LogLevel::Info;
    LoggingContext context = 0;
    std::wstring message;
    std::chrono::system_clock::time_point time;
};

// Where records go. Write never throws and returns promptly: false when the
// record could not be taken.
class KESTREL_SECURITY_API ILogSink {
public:
    virtual ~ILogSink() = default;
    virtual bool Write(const LogRecord& record) noexcept = 0;
};

// Keeps every record in memory, for tests and for callers that show them.
class KESTREL_SECURITY_API MemorySink final : public ILogSink {
public:
    bool Write(const LogRecord& record) noexcept override;
    std::vector<LogRecord> Records() const;
    void Clear();

private:
    mutable std::mutex mutex_;
    std::vector<LogRecord> records_;
};

// Appends one UTF-8 line per record to a file, starting a new file when it
// grows past maxBytes (the old one is kept as "<path>.1").
KESTREL_SECURITY_API std::shared_ptr<ILogSink> CreateFileSink(const std::string& path,
                                                             std::uint64_t maxBytes = 10u << 20);
// One UTF-8 line per record on the standard error.
KESTREL_SECURITY_API std::shared_ptr<ILogSink> CreateStandardErrorSink();
// The debugger's output (OutputDebugStringW on Windows; dropped where there is none).
KESTREL_SECURITY_API std::shared_ptr<ILogSink> CreateDebuggerSink();

// The line a text sink writes for a record, without its line end:
// "2026-11-21T09:30:00.123Z ERROR 0x000000000000002a message".
KESTREL_SECURITY_API std::wstring FormatRecordLine(const LogRecord& record);

// Formats wide printf-style texts ("%s" wide, "%S" narrow, as the Windows
// runtime reads them) and hands the records to its sink. Never throws; a
// record the sink cannot take in time is dropped and counted.
class KESTREL_SECURITY_API TraceLogger {
public:
    explicit TraceLogger(std::shared_ptr<ILogSink> sink);

    void LogInfo(LoggingContext context, const wchar_t* format, ...) noexcept;
    void LogWarning(LoggingContext context, const wchar_t* format, ...) noexcept;
    void LogError(LoggingContext context, const wchar_t* format, ...) noexcept;

    // Replaces the sink; an empty pointer drops every record.
    void SetSink(std::shared_ptr<ILogSink> sink) noexcept;
    std::shared_ptr<ILogSink> Sink() const noexcept;
    // Records lost because formatting or the sink failed.
    std::uint64_t DroppedRecords() const noexcept;

private:
    struct State;
    std::shared_ptr<State> state_;
};

class KESTREL_SECURITY_API LogManager {
public:
    // The process's shared logger. Its first sink comes from KESTREL_LOG:
    // "stderr", "debugger", "file:<path>" or "none"; unset, the debugger on
    // Windows and the standard error elsewhere.
    static std::shared_ptr<TraceLogger> GetLogger();
};

} // namespace Tessel::Bridge::Logging
