#pragma once

#include <functional>
#include <streambuf>
#include <string>
#include <string_view>

namespace Tessel::Bridge::Platform {

// A wide stream buffer that collects text and hands it to a sink on every
// flush (and on destruction), so that each platform decides how wide text
// reaches its standard output.
class WideOutputBuffer : public std::wstreambuf {
public:
    using Sink = std::function<void(std::wstring_view)>;

    explicit WideOutputBuffer(Sink sink);
    ~WideOutputBuffer() override;
    WideOutputBuffer(const WideOutputBuffer&) = delete;
    WideOutputBuffer& operator=(const WideOutputBuffer&) = delete;

protected:
    int_type overflow(int_type ch) override;
    std::streamsize xsputn(const char_type* text, std::streamsize count) override;
    int sync() override;

private:
    Sink sink_;
    std::wstring pending_;
};

// Writes wide text to this process's standard output; each platform has one.
WideOutputBuffer::Sink StandardOutputSink();

} // namespace Tessel::Bridge::Platform
