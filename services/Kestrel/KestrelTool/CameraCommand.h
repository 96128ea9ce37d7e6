#pragma once

#include "CameraSession.h"

#include <string>

namespace Tessel::Bridge::Server::Services::Kestrel {

// The "Camera" category on the process's camera session. Replaces result with
// the answer; leaves it untouched for an unknown function. A value that is not
// a decimal number, and platform failures, throw.
void HandleCameraCommand(CameraSession& session, std::wstring function, std::wstring value, std::wstring& result);

} // namespace Tessel::Bridge::Server::Services::Kestrel
