#pragma once

#include "platform/RegistryAndServices.h"

#include <cstdint>
#include <string>

namespace Tessel::Bridge::Server::Services::Kestrel {

// The "Notification" category: the signed-in user's toast switch, and the
// restart of the push-notification user service that makes a change count.
// Replaces result with the answer; leaves it untouched for an unknown function.
// The setter's value that is not a decimal number throws (see StringToInt)
// before the registry is touched.
void HandleNotificationCommand(Platform::IRegistry& registry, Platform::IServiceManager& services,
                               Platform::IPause& pause, std::wstring function, std::wstring value,
                               std::wstring& result);

// Stops the first service whose name contains fragment (if it runs), starts it
// and waits until it runs. True only when it was seen running in time.
bool RestartServiceByName(Platform::IServiceManager& services, Platform::IPause& pause, const std::wstring& fragment);

// Polls the service up to 30 times a second apart; true as soon as it is in
// the wanted state, false after the last pause or at a failed query.
bool WaitForServiceState(Platform::IService& service, Platform::IPause& pause, std::uint32_t wanted);

} // namespace Tessel::Bridge::Server::Services::Kestrel
