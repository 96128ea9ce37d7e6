#pragma once

// The whole public interface of the security library and its logging.
#include "logging/TraceLogger.h"
#include "security/access/BridgeAccessManager.h"
#include "security/client/ClientInformation.h"
#include "security/rpc/RpcSecurityHelper.h"
#include "security/trust/TesselAuthenticodeFacade.h"
#include "security/util/UtilHelper.h"
