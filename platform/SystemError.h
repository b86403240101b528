#pragma once

#include <string_view>

namespace qelmo {

/// Throws std::system_error for an errno value; its what() reads "operation object: reason", on one line.
///
/// `object` is usually a path: it is bytes from the disk or the manifest, so what cannot be shown as text
/// (ill-formed UTF-8, control characters) is replaced before it goes into the message.
[[noreturn]] void throwSystemError(int error, std::string_view operation, std::string_view object);

}  // namespace qelmo
