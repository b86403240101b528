#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace qelmo {

/// The folder of device nodes.
inline constexpr const char* deviceFolder = "/dev";

/// The title of the port menu's only item when there is no port.
inline constexpr const char* noBootPortTitle = "No ESP32-S3 boot port found";

/// The paths of the device nodes that can be a device in boot mode, sorted as bytes. A node is recognised by
/// its name alone; nothing is opened. A folder that cannot be read holds no ports.
[[nodiscard]] std::vector<std::string> listBootPorts();

/// The same from the entry names of /dev.
[[nodiscard]] std::vector<std::string> candidateBootPorts(const std::vector<std::string>& names);

/// The status text for the number of ports found.
[[nodiscard]] std::string bootPortStatus(std::size_t portCount);

/// The log line for the number of ports found.
[[nodiscard]] std::string bootPortReport(std::size_t portCount);

}  // namespace qelmo
