#pragma once

#include <exception>
#include <string>

namespace qelmo {

/// The text of the error that `action` throws, or "" if it throws none.
template <typename Action>
[[nodiscard]] std::string errorOf(Action action) {
    try {
        action();
    } catch (const std::exception& error) {
        return error.what();
    }
    return "";
}

}  // namespace qelmo
