#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace qelmo {

/// The title of the port menu's only item when there is no port.
inline constexpr const char* noBootPortTitle = "No ESP32-S3 boot port found";

/// The paths of the ports in `deviceFolder` that may be a Cardputer in boot mode, sorted as bytes. A port is
/// recognised by its name only; nothing is opened. The list is empty if the folder cannot be read.
[[nodiscard]] std::vector<std::string> listBootPorts(const std::string& deviceFolder);

/// True if a device node with this name may be a Cardputer in boot mode.
[[nodiscard]] bool isBootPortName(std::string_view name);

/// The log line for the number of ports found.
[[nodiscard]] std::string bootPortReport(std::size_t portCount);

}  // namespace qelmo
