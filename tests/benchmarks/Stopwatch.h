#pragma once

#include <chrono>

namespace qelmo {

/// The time since its creation.
class Stopwatch {
public:
    [[nodiscard]] long long nanoseconds() const {
        return std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::steady_clock::now() - start_)
            .count();
    }
    [[nodiscard]] double seconds() const { return static_cast<double>(nanoseconds()) * 1e-9; }

private:
    const std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

}  // namespace qelmo
