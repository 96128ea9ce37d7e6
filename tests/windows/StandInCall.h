#pragma once

// The caller platform over the real Windows calls with only the
// call-attributes query stood in for: Wine 8's RpcServerInqCallAttributesW
// ends the process.
#include "platform/windows/Win32CallerPlatform.h"

#include <windows.h>
#include <rpc.h>

#include <optional>

namespace KestrelTest {

class StandInCall : public Tessel::Bridge::Platform::Windows::Win32CallerPlatform {
public:
    std::int32_t QueryCallClientProcessId(std::uint32_t& processId) override
    {
        if (!client) return RPC_S_NO_CALL_ACTIVE;
        processId = *client;
        return RPC_S_OK;
    }
    std::optional<std::uint32_t> client; // the process behind the call, if serving one
};

} // namespace KestrelTest
