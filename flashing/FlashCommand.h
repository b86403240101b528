#pragma once

#include <string>
#include <vector>

#include "release/FlasherResources.h"

namespace qelmo {

/// The system's interpreter, which runs the flashing tool. A fixed path; nothing is searched.
inline constexpr const char* pythonPath = "/usr/bin/python3";

/// The interpreter's arguments that write the release whole at 0x0 to the device at `port`, erased before if
/// the manifest says so, verify it and reset the chip. The spelling is that of esptool 4.x.
[[nodiscard]] std::vector<std::string> flashArguments(const FlasherResources& release,
                                                      const std::string& port);

}  // namespace qelmo
