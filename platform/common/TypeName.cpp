#include "platform/TypeName.h"

#if __has_include(<cxxabi.h>)
#include <cxxabi.h>

#include <cstdlib>
#include <memory>
#endif

namespace Tessel::Bridge::Platform {

std::string ClassTypeName(const std::type_info& type)
{
#if __has_include(<cxxabi.h>)
    // The Itanium ABI's names are mangled; demangled they lack the keyword.
    int status = 0;
    const std::unique_ptr<char, decltype(&std::free)> demangled(abi::__cxa_demangle(type.name(), nullptr, nullptr, &status),
                                                                &std::free);
    return std::string("class ") + (status == 0 && demangled ? demangled.get() : type.name());
#else
    return type.name();
#endif
}

} // namespace Tessel::Bridge::Platform
