#pragma once

#include "logging/Export.h"
#include "logging/TraceLogger.h"

#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace Tessel::Bridge::Platform {
class ICallerPlatform;
}

namespace Tessel::Bridge::Server::Services {

// Null checks and path expansion for the security library; both only log,
// neither throws.
class KESTREL_SECURITY_API UtilHelper {
public:
    // A pointer of any type and its name.
    using NullCheckEntry = std::pair<const void*, std::string>;

    UtilHelper();
    // Over another implementation of the platform's calls.
    explicit UtilHelper(std::shared_ptr<Platform::ICallerPlatform> platform);
    ~UtilHelper();

    // Logs a warning for every null pointer; true when there was one.
    bool NullChecker(std::vector<NullCheckEntry> entries, Logging::LoggingContext context);

    // The path with its environment variables expanded (in the calling
    // client's environment inside an RPC call) and made absolute, at most 259
    // characters; empty on any failure.
    std::wstring GetFullExpandedPath(const wchar_t* filePath, Logging::LoggingContext context);

private:
    std::shared_ptr<Platform::ICallerPlatform> platform_;
};

} // namespace Tessel::Bridge::Server::Services
