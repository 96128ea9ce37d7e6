#pragma once

#include "logging/TraceLogger.h"

#include <memory>
#include <string>
#include <vector>

namespace KestrelTest {

// The shared logger's records go to memory while the object lives.
class CapturedLog {
public:
    CapturedLog() : saved_(Logger()->Sink()) { Logger()->SetSink(sink); }
    ~CapturedLog() { Logger()->SetSink(saved_); }
    CapturedLog(const CapturedLog&) = delete;
    CapturedLog& operator=(const CapturedLog&) = delete;

    // Each record as "<E|W|I> <message>".
    std::vector<std::wstring> Lines() const
    {
        using Tessel::Bridge::Logging::LogLevel;
        std::vector<std::wstring> lines;
        for (const auto& record : sink->Records()) {
            lines.push_back(std::wstring(record.level == LogLevel::Error ? L"E " : record.level == LogLevel::Warning ? L"W " : L"I ") + record.message);
        }
        return lines;
    }

    const std::shared_ptr<Tessel::Bridge::Logging::MemorySink> sink = std::make_shared<Tessel::Bridge::Logging::MemorySink>();

private:
    static std::shared_ptr<Tessel::Bridge::Logging::TraceLogger> Logger() { return Tessel::Bridge::Logging::LogManager::GetLogger(); }
    std::shared_ptr<Tessel::Bridge::Logging::ILogSink> saved_;
};

} // namespace KestrelTest
