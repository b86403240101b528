#pragma once

#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <stdexcept>
#include <string>
#include <string_view>

namespace qelmo {

/// A folder for one test. The destructor removes it with everything in it. Other users
/// may list it, because some tests continue as another user.
class TemporaryFolder {
public:
    TemporaryFolder() : path_(std::filesystem::temp_directory_path() / "qelmo-test-XXXXXX") {
        if (::mkdtemp(path_.data()) == nullptr || ::chmod(path_.c_str(), 0755) != 0)
            throw std::runtime_error("The test cannot make a temporary folder");
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    ~TemporaryFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }

    [[nodiscard]] const std::string& path() const { return path_; }
    [[nodiscard]] std::string operator/(std::string_view name) const {
        return path_ + "/" + std::string(name);
    }

private:
    std::string path_;
};

}  // namespace qelmo
