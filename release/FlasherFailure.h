#pragma once

#include <exception>
#include <string>
#include <utility>

namespace qelmo {

/// A fault that the program itself has found. It carries the complete sentence for the user and nothing else.
class FlasherFailure : public std::exception {
public:
    explicit FlasherFailure(std::string text) : message(std::move(text)) {}

    [[nodiscard]] const char* what() const noexcept override { return message.c_str(); }

    const std::string message;
};

/// The text that a user is shown for any error: a FlasherFailure's whole message (it may hold a NUL, at which
/// what() would end), any other error's what().
[[nodiscard]] inline std::string errorDescription(const std::exception& error) {
    const auto* const failure = dynamic_cast<const FlasherFailure*>(&error);
    return failure == nullptr ? error.what() : failure->message;
}

}  // namespace qelmo
