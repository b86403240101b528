#include "platform/SystemError.h"

#include <system_error>

#include "platform/Utf8.h"

namespace qelmo {

namespace {

std::string shownOnOneLine(std::string_view bytes) {
    std::string text = decodedUtf8(bytes);
    for (char& unit : text) {
        if (static_cast<unsigned char>(unit) < 0x20 || unit == 0x7F) unit = '?';
    }
    return text;
}

}  // namespace

void throwSystemError(int error, std::string_view operation, std::string_view object) {
    throw std::system_error(error, std::generic_category(),
                            std::string(operation) + " " + shownOnOneLine(object));
}

bool holdsNul(std::string_view path) noexcept {
    return path.find('\0') != std::string_view::npos;
}

}  // namespace qelmo
