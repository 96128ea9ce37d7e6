#pragma once

#include <string>
#include <typeinfo>

namespace Tessel::Bridge::Platform {

// A class's run-time type name as Windows' compiler prints it: the class
// keyword and the full name ("class A::B"), whatever compiler built us.
std::string ClassTypeName(const std::type_info& type);

} // namespace Tessel::Bridge::Platform
