#pragma once

#include <string_view>

namespace qelmo {

/// Throws std::system_error for an errno value. Its what() reads "operation object: reason", on one line.
///
/// `object` is usually a path and may hold arbitrary bytes from the disk or the manifest. Ill-formed UTF-8
/// and control characters are replaced in the message.
[[noreturn]] void throwSystemError(int error, std::string_view operation, std::string_view object);

}  // namespace qelmo
