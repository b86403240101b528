#include "flashing/BootPorts.h"

#include <algorithm>
#include <array>
#include <system_error>

#include "platform/FilePath.h"
#include "platform/FileReading.h"

namespace qelmo {

/// Name prefixes of the chip's own USB port and of USB-serial bridges: those of the call-out nodes of macOS
/// and, on Linux, also those of the kernel.
constexpr auto candidatePrefixes = std::to_array<std::string_view>({
    "cu.usbmodem",
    "cu.usbserial",
    "cu.SLAB_USBtoUART",
    "cu.wchusbserial",
#ifdef __linux__
    "ttyACM",
    "ttyUSB",
#endif
});

std::vector<std::string> listBootPorts(const std::string& deviceFolder) {
    std::vector<std::string> ports;
    try {
        for (const std::string& name : namesInFolder(deviceFolder)) {
            if (isBootPortName(name)) ports.push_back(joinedPath(deviceFolder, name));
        }
    } catch (const std::system_error&) {
        return {};
    }
    std::sort(ports.begin(), ports.end());
    return ports;
}

bool isBootPortName(std::string_view name) {
    return std::any_of(candidatePrefixes.begin(), candidatePrefixes.end(),
                       [name](std::string_view prefix) { return name.starts_with(prefix); });
}

std::string bootPortReport(std::size_t portCount) {
    if (portCount == 0)
        return "No boot port found. Put the Cardputer ADV into G0 boot mode, connect USB, then press "
               "REFRESH BUILD.";
    return "Found " + std::to_string(portCount) + " candidate boot port" + (portCount == 1 ? "" : "s") + ".";
}

}  // namespace qelmo
