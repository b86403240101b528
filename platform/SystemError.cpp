#include "platform/SystemError.h"

#include <string>
#include <system_error>

#include "platform/Utf8.h"

namespace qelmo {

void throwSystemError(int error, std::string_view operation, std::string_view object) {
    throw std::system_error(error, std::generic_category(),
                            std::string(operation) + " " + shownOnOneLine(object));
}

bool holdsNul(std::string_view path) noexcept {
    return path.find('\0') != std::string_view::npos;
}

}  // namespace qelmo
