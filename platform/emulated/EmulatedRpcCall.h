#pragma once

#include "platform/CallerIdentity.h"

#include <cstdint>

namespace Tessel::Bridge::Platform::Emulated {

// An RPC call a server on the emulated PC serves on this thread, from the
// client process with this id, for as long as the object lives.
class ServedCall {
public:
    explicit ServedCall(std::uint32_t clientProcessId);
    ServedCall(const ServedCall&) = delete;
    ServedCall& operator=(const ServedCall&) = delete;
    ~ServedCall();

private:
    const ServedCall* outer_;
    std::uint32_t clientProcessId_;
    friend class CallerPlatform;
};

// A handle of the emulated process with this id, as a server holds one for a
// process it started (for the known-process map).
NativeHandle HeldProcessHandle(std::uint32_t processId);

} // namespace Tessel::Bridge::Platform::Emulated
