#pragma once

#include "platform/ShellAndAutomation.h"

#include <string>

namespace Tessel::Bridge::Server::Services::Kestrel {

// Where the application with this display name (compared ignoring case) lives:
// its shortcut's target or its package's install folder; "-1" when the first
// application of that name has neither. The last of the two properties in the
// application's store wins.
std::wstring GetApplicationLocation(Platform::IShell& shell, const std::wstring& displayName);

// Types the text of the file at path into a new, visible word-processor
// document brought to the front; "1". When the file cannot be read or the
// word processor cannot be started, the plain text editor opens the path
// instead: "1" when it starts, "0" when not.
std::wstring WriteToDoc(Platform::IAutomation& automation, Platform::IDesktop& desktop, const std::wstring& path);

} // namespace Tessel::Bridge::Server::Services::Kestrel
