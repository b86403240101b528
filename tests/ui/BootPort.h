#pragma once

#include <string>

namespace qelmo {

/// A boot port that is there as long as this value lives: a plain file in the private /dev of the tests.
class BootPort {
public:
    /// `name` without the folder. Throws when something with this name exists already.
    explicit BootPort(const std::string& name);
    BootPort(const BootPort&) = delete;
    BootPort& operator=(const BootPort&) = delete;
    ~BootPort();

    [[nodiscard]] const std::string& path() const { return path_; }

private:
    const std::string path_;
};

/// Why /dev must not be touched by a test, or the empty text when it was made for tests.
[[nodiscard]] std::string reasonAgainstThisDev();

}  // namespace qelmo
