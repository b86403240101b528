#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace qelmo {

/// The title of the port menu's only item when there is no port.
inline constexpr const char* noBootPortTitle = "No ESP32-S3 boot port found";

/// The paths of the device nodes in `deviceFolder` that can be a device in boot mode, sorted as bytes. A node
/// is recognised by its name alone; nothing is opened. A folder that cannot be read holds no ports.
[[nodiscard]] std::vector<std::string> listBootPorts(const std::string& deviceFolder);

/// Whether a device node of this name can be one.
[[nodiscard]] bool isBootPortName(std::string_view name);

/// The log line for the number of ports found.
[[nodiscard]] std::string bootPortReport(std::size_t portCount);

}  // namespace qelmo
