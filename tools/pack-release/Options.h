#pragma once

#include <cstdint>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>

namespace qelmo {

/// What one run of pack-release is asked to do. Paths are bytes, every other text is well-formed UTF-8.
struct PackRequest {
    std::string bundle;  ///< the bundle's root folder
    std::string image;   ///< path of the merged image
    std::string name;
    std::string version;
    std::string hardware;
    std::int64_t baud = 0;
    std::string frequency;
    std::string after;
    std::string confirmation;
    bool erase = true;                 ///< the whole internal flash is erased before writing
    bool acceptHeaderRewrite = false;  ///< the flashing tool may change the image's header
    bool sign = false;                 ///< the bundle is signed ad hoc afterwards
};

/// A command line that is not understood; one line that names the option.
class OptionError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

inline constexpr std::string_view helpOption = "--help";

/// Reads the arguments behind the program's name. Errors: OptionError.
[[nodiscard]] PackRequest packRequest(std::span<const std::string> arguments);

/// The text for `helpOption`.
[[nodiscard]] std::string packUsage();

}  // namespace qelmo
