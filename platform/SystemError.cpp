#include "platform/SystemError.h"

#include <string>
#include <system_error>

#include "platform/Utf8.h"

namespace qelmo {

void throwSystemError(int error, std::string_view operation, std::string_view object) {
    // No system accepts a longer path. The rest is cut off.
    constexpr std::size_t longestShown = 4096;
    std::string shown = shownOnOneLine(object.substr(0, longestShown));
    if (object.size() > longestShown) shown += "...";
    throw std::system_error(error, std::generic_category(), std::string(operation) + " " + shown);
}

}  // namespace qelmo
