#include "platform/common/WideOutputBuffer.h"

#include "platform/StandardOutput.h"

#include <iostream>
#include <utility>

namespace Tessel::Bridge::Platform {

WideOutputBuffer::WideOutputBuffer(Sink sink) : sink_(std::move(sink)) {}

WideOutputBuffer::~WideOutputBuffer()
{
    WideOutputBuffer::sync();
}

WideOutputBuffer::int_type WideOutputBuffer::overflow(int_type ch)
{
    if (!traits_type::eq_int_type(ch, traits_type::eof())) {
        pending_.push_back(traits_type::to_char_type(ch));
    }
    return traits_type::not_eof(ch);
}

std::streamsize WideOutputBuffer::xsputn(const char_type* text, std::streamsize count)
{
    pending_.append(text, static_cast<std::size_t>(count));
    return count;
}

int WideOutputBuffer::sync()
{
    if (!pending_.empty()) {
        sink_(pending_);
        pending_.clear();
    }
    return 0;
}

WideStandardOutput::WideStandardOutput()
    : buffer_(std::make_unique<WideOutputBuffer>(StandardOutputSink())), previous_(std::wcout.rdbuf(buffer_.get()))
{
}

WideStandardOutput::~WideStandardOutput()
{
    std::wcout.flush();
    std::wcout.rdbuf(previous_);
}

} // namespace Tessel::Bridge::Platform
