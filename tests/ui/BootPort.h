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

/// Whether tests may make ports in this /dev; says on standard error when they may not.
[[nodiscard]] bool devIsPrivate();

}  // namespace qelmo
