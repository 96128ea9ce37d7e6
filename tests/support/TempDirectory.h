#pragma once

#include <filesystem>
#include <random>
#include <string>
#include <system_error>

namespace KestrelTest {

// A new empty directory under the system's temporary directory, removed with
// everything in it when the object goes.
class TempDirectory {
public:
    TempDirectory()
    {
        std::random_device random;
        for (;;) {
            path_ = std::filesystem::temp_directory_path() / ("kestrel-test-" + std::to_string(random()));
            if (std::filesystem::create_directory(path_)) break;
        }
    }
    ~TempDirectory()
    {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TempDirectory(const TempDirectory&) = delete;
    TempDirectory& operator=(const TempDirectory&) = delete;

    const std::filesystem::path& Path() const noexcept { return path_; }
    std::filesystem::path operator/(const std::filesystem::path& name) const { return path_ / name; }

private:
    std::filesystem::path path_;
};

} // namespace KestrelTest
