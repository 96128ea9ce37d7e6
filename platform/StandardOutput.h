#pragma once

#include <iosfwd>
#include <memory>

namespace Tessel::Bridge::Platform {

class WideOutputBuffer;

// While an instance lives, std::wcout writes to standard output as UTF-8 (a
// Windows console is given the wide text itself), whatever the C locale and
// the standard library's own wide-to-narrow conversion would do. The
// destructor flushes and gives std::wcout its previous buffer back.
class WideStandardOutput {
public:
    WideStandardOutput();
    ~WideStandardOutput();
    WideStandardOutput(const WideStandardOutput&) = delete;
    WideStandardOutput& operator=(const WideStandardOutput&) = delete;

private:
    std::unique_ptr<WideOutputBuffer> buffer_;
    std::wstreambuf* previous_;
};

} // namespace Tessel::Bridge::Platform
