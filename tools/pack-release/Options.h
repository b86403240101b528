#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>

namespace qelmo {

/// What one run of pack-release has to do. Paths are bytes; all other texts are well-formed UTF-8.
struct PackRequest {
    std::string bundle;  ///< the bundle's root folder
    std::string image;   ///< path of the merged image
    std::string name;
    std::string version;
    std::string hardware = "Cardputer ADV";
    std::int64_t baud = 921600;
    std::string frequency = "80m";
    std::string after = "hard_reset";
    std::string confirmation;
    bool erase = true;                 ///< the whole internal flash is erased before writing
    bool acceptHeaderRewrite = false;  ///< the flashing tool may change the image's header
    bool sign = false;                 ///< the bundle is signed ad hoc afterwards
};

/// A fault in the command line; the message names the option.
class OptionError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Reads the arguments after the program's name. Returns nothing if they ask for help. Errors: OptionError.
[[nodiscard]] std::optional<PackRequest> packRequest(std::span<const std::string> arguments);

/// The text of --help.
[[nodiscard]] std::string packUsage();

}  // namespace qelmo
