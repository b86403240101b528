#pragma once

#include <string>
#include <vector>

#include "platform/LaunchContext.h"
#include "release/FlasherResources.h"

namespace qelmo {

/// What is run. `environment` holds "NAME=value" entries.
struct ToolCommand {
    std::string executable;
    std::vector<std::string> arguments;
    std::vector<std::string> environment;
};

/// The command that writes the release whole at 0x0 to the device at `port`, erased before if the manifest
/// says so, verifies it and resets the chip. PYTHONUNBUFFERED is 1, so that the tool's output is not
/// buffered.
[[nodiscard]] ToolCommand flashCommand(const LaunchContext& context, const FlasherResources& release,
                                       const std::string& port);

/// The arguments of that command. The spelling is that of esptool 4.x.
[[nodiscard]] std::vector<std::string> flashArguments(const FlasherResources& release,
                                                      const std::string& port);

}  // namespace qelmo
