#pragma once

#include <string>
#include <string_view>

namespace qelmo {

/// Returns `bytes` as well-formed UTF-8: each maximal ill-formed part becomes one U+FFFD, as the Unicode
/// Standard recommends (section 3.9, "U+FFFD Substitution of Maximal Subparts"). Never fails.
[[nodiscard]] std::string decodedUtf8(std::string_view bytes);

/// Like `decodedUtf8`, for one line of a message: in addition, each character that would end the line, change
/// the direction of the text or control a terminal becomes a question mark.
[[nodiscard]] std::string shownOnOneLine(std::string_view bytes);

}  // namespace qelmo
