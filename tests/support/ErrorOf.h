#pragma once

#include <exception>
#include <string>

namespace qelmo {

/// The text of the error that `action` throws, "" when it throws none.
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
