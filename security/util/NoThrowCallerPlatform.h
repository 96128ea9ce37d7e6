#pragma once

#include "platform/CallerIdentity.h"

#include <memory>

namespace Tessel::Bridge::Security {

// The library's operations never throw, whatever the platform layer under
// them does (the emulated PC throws on a malformed state file). This wraps a
// caller platform so that a call that throws answers as the Windows call
// fails: its failure value, and ERROR_INTERNAL_ERROR as status and last error.
std::shared_ptr<Platform::ICallerPlatform> NoThrow(std::shared_ptr<Platform::ICallerPlatform> platform);

constexpr std::uint32_t kPlatformThrew = 1359; // ERROR_INTERNAL_ERROR

} // namespace Tessel::Bridge::Security
