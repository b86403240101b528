#pragma once

#include <cstdlib>
#include <optional>
#include <string>

namespace qelmo {

/// Sets one environment variable until the end of the scope, or removes it if there is no value.
class ScopedEnvironment {
public:
    ScopedEnvironment(std::string name, const std::optional<std::string>& value) : name_(std::move(name)) {
        if (const char* before = std::getenv(name_.c_str())) before_ = before;
        put(value);
    }
    ScopedEnvironment(const ScopedEnvironment&) = delete;
    ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;
    ~ScopedEnvironment() { put(before_); }

private:
    void put(const std::optional<std::string>& value) const {
        if (value) {
            ::setenv(name_.c_str(), value->c_str(), 1);
        } else {
            ::unsetenv(name_.c_str());
        }
    }

    const std::string name_;
    std::optional<std::string> before_;
};

}  // namespace qelmo
