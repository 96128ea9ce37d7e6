#pragma once

#include <string>

namespace Tessel::Bridge::Server::Services::Kestrel {

// The standard decimal string-to-int conversion: leading white space, an
// optional sign, the longest run of digits; trailing text is ignored ("5abc"
// is 5). Throws std::invalid_argument("invalid stoi argument") when no digit
// can be read and std::out_of_range("stoi argument out of range") when the
// number does not fit 32 bits, with these messages on every standard library.
int StringToInt(const std::wstring& text);

} // namespace Tessel::Bridge::Server::Services::Kestrel
