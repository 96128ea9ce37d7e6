#pragma once

#include "platform/emulated/EmulatedPc.h"

namespace Tessel::Bridge::Platform::Emulated {

// The "registry" area of the built-in PC: toasts switched on for the user.
State BuiltInRegistry();
// The "services" area of the built-in PC: a running per-user push-notification
// service that stops and starts within a second, and a virtual clock at 0.
State BuiltInServices();

} // namespace Tessel::Bridge::Platform::Emulated
