#include "platform/TextConversion.h"

#include "platform/common/Utf8.h"

namespace Tessel::Bridge::Platform {

std::wstring WideFromUtf8(const char* text)
{
    return Utf8::Decode(text);
}

} // namespace Tessel::Bridge::Platform
