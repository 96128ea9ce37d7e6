#pragma once

#include "platform/MouseSettings.h"

#include <string>

namespace Tessel::Bridge::Server::Services::Kestrel {

// The "Accessory" category: mouse pointer speed and primary button.
// Replaces result with the answer; leaves it untouched for an unknown function.
// A value that is not a decimal number throws (see StringToInt).
void HandleAccessoryCommand(Platform::IMouseSettings& mouse, const std::wstring& function, const std::wstring& value,
                            std::wstring& result);

} // namespace Tessel::Bridge::Server::Services::Kestrel
