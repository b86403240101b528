#pragma once

#include <exception>
#include <string>
#include <utility>

namespace qelmo {

/// A fault that the program itself detected. It carries only the complete sentence for the user.
class FlasherFailure : public std::exception {
public:
    explicit FlasherFailure(std::string text) : message(std::move(text)) {}

    [[nodiscard]] const char* what() const noexcept override { return message.c_str(); }

    const std::string message;
};

/// The text shown to the user for any error: the whole message of a FlasherFailure (which may contain a NUL,
/// where what() would end), or what() of any other error.
[[nodiscard]] inline std::string errorDescription(const std::exception& error) {
    const auto* const failure = dynamic_cast<const FlasherFailure*>(&error);
    return failure == nullptr ? error.what() : failure->message;
}

}  // namespace qelmo
