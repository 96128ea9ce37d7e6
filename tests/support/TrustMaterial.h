#pragma once

#include <cstdlib>
#include <filesystem>
#include <stdexcept>

namespace KestrelTest {

// The signing material tests/trust/make-test-material.sh made for this run.
inline std::filesystem::path TrustMaterial()
{
    const char* folder = std::getenv("KESTREL_TRUST_MATERIAL");
    if (folder == nullptr || *folder == '\0') throw std::runtime_error("KESTREL_TRUST_MATERIAL is not set");
    return std::filesystem::absolute(folder);
}

} // namespace KestrelTest
