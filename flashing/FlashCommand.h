#pragma once

#include <string>
#include <vector>

#include "platform/LaunchContext.h"
#include "release/FlasherResources.h"

namespace qelmo {

/// A command line to run. `environment` holds "NAME=value" entries.
struct ToolCommand {
    std::string executable;
    std::vector<std::string> arguments;
    std::vector<std::string> environment;
};

/// The command that writes the whole release at 0x0 to the device at `port` and verifies it. The manifest
/// decides whether the flash is erased first and whether the chip is reset afterwards. PYTHONUNBUFFERED is 1,
/// so that the output of the tool arrives at once.
[[nodiscard]] ToolCommand flashCommand(const LaunchContext& context, const FlasherResources& release,
                                       const std::string& port);

/// The arguments of that command, in the spelling of esptool 4.x.
[[nodiscard]] std::vector<std::string> flashArguments(const FlasherResources& release,
                                                      const std::string& port);

}  // namespace qelmo
