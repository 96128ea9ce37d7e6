#pragma once

#include "platform/ShellAndAutomation.h"

#include <string>

namespace Tessel::Bridge::Server::Services::Kestrel {

// Where the application with this display name (compared ignoring case) lives:
// its shortcut's target or its package's install folder; "-1" when the first
// application of that name has neither. The last of the two properties in the
// application's store wins.
std::wstring GetApplicationLocation(Platform::IShell& shell, const std::wstring& displayName);

} // namespace Tessel::Bridge::Server::Services::Kestrel
