#include "platform/common/Utf8.h"
#include "platform/common/WideOutputBuffer.h"

#include <cerrno>
#include <string>

#include <unistd.h>

namespace Tessel::Bridge::Platform {

WideOutputBuffer::Sink StandardOutputSink()
{
    return [](std::wstring_view text) {
        const std::string bytes = Utf8::Encode(text);
        std::string_view rest = bytes;
        while (!rest.empty()) {
            const ssize_t n = ::write(STDOUT_FILENO, rest.data(), rest.size());
            if (n < 0 && errno == EINTR) continue;
            if (n <= 0) return;
            rest.remove_prefix(static_cast<std::size_t>(n));
        }
    };
}

} // namespace Tessel::Bridge::Platform
