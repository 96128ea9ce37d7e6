// A component of the product that links against KestrelTool.exe's exports.
// Windows runs code of an executable only in its own process, so the component
// is a library KestrelTool loads: here, in the display vendor plug-in's place.
// "IsPlatformSupported" answers 1 when every check held.
#include "consumer/ConsumerChecks.h"

#include <cstdint>

// Wine 8 ends the process in its RpcServerInqCallAttributesW stub, so the
// caller is not asked for.
extern "C" std::int32_t IsPlatformSupported() { return RunConsumerChecks(false) == 0 ? 1 : 0; }

extern "C" std::int32_t Start() { return 0; }
