#pragma once

#include "platform/DisplayConfiguration.h"

#include <string>

namespace Tessel::Bridge::Server::Services::Kestrel {

// The "DisplayHDR" category: advanced colour of the active displays. A target
// qualifies when it supports advanced colour and wide colour is not enforced;
// the others are never reported nor switched.
// Replaces result with the answer; leaves it untouched for an unknown function.
// The setter's value that is not a decimal number throws (see StringToInt)
// before any display is touched.
void HandleDisplayHdrCommand(Platform::IDisplayConfiguration& display, std::wstring function, std::wstring value,
                             std::wstring& result);

// True in supported when some target qualifies; the walk stops at the first
// one. Fails when the configuration cannot be read or a query fails first.
bool ReadHdrSupport(Platform::IDisplayConfiguration& display, bool& supported);

// The enabled bit (1 or 0) of the last qualifying target, -1 when none
// qualifies. Fails when the configuration cannot be read or any query fails.
bool ReadHdrState(Platform::IDisplayConfiguration& display, int& state);

// Puts every qualifying target in the wanted state, asking only those not in
// it already. True when a qualifying target was met before the walk stopped
// (at a failed query or a refused change).
bool WriteHdrState(Platform::IDisplayConfiguration& display, bool enable);

} // namespace Tessel::Bridge::Server::Services::Kestrel
