#include "NumberParsing.h"

#include <stdexcept>

namespace Tessel::Bridge::Server::Services::Kestrel {

int StringToInt(const std::wstring& text)
{
    // Each standard library words these errors its own way (libstdc++ says
    // just "stoi"); callers and people reading stderr get one wording.
    try {
        return std::stoi(text);
    } catch (const std::invalid_argument&) {
        throw std::invalid_argument("invalid stoi argument");
    } catch (const std::out_of_range&) {
        throw std::out_of_range("stoi argument out of range");
    }
}

} // namespace Tessel::Bridge::Server::Services::Kestrel
