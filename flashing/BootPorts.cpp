#include "flashing/BootPorts.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <system_error>

#include "platform/FilePath.h"
#include "platform/FileReading.h"

namespace qelmo {

namespace {

/// The chip's own USB port and the three USB-serial bridges, as macOS names their call-out nodes, and on
/// Linux the kernel's names for the same devices.
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

bool isCandidate(std::string_view name) {
    return std::any_of(candidatePrefixes.begin(), candidatePrefixes.end(),
                       [name](std::string_view prefix) { return name.starts_with(prefix); });
}

}  // namespace

std::vector<std::string> listBootPorts() {
    try {
        return candidateBootPorts(namesInFolder(deviceFolder));
    } catch (const std::system_error&) {
        return {};
    }
}

std::vector<std::string> candidateBootPorts(const std::vector<std::string>& names) {
    std::vector<std::string> ports;
    for (const std::string& name : names) {
        if (isCandidate(name)) ports.push_back(joinedPath(deviceFolder, name));
    }
    std::sort(ports.begin(), ports.end());
    return ports;
}

std::string bootPortStatus(std::size_t portCount) {
    if (portCount == 0) return "WAITING FOR G0 BOOT PORT";
    return portCount == 1 ? "READY" : "CHOOSE CARDPUTER PORT";
}

std::string bootPortReport(std::size_t portCount) {
    if (portCount == 0)
        return "No boot port found. Put the Cardputer ADV into G0 boot mode, connect USB, then press "
               "REFRESH BUILD.";
    return "Found " + std::to_string(portCount) + " candidate boot port" + (portCount == 1 ? "" : "s") + ".";
}

}  // namespace qelmo
