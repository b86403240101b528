#pragma once

#include <string>
#include <vector>

#include "release/FlasherResources.h"

namespace qelmo {

/// Checks the bundle's icon and release and probes the flashing tool, without any window and without touching
/// a serial port. Writes the report to standard output and returns 0, or writes one failure text to standard
/// error and returns 1. The report is all or nothing, unless standard
/// output itself fails. Waits for the tool without a time-out.
[[nodiscard]] int runHeadlessSelfTest();

/// The nine report lines, each with its line feed.
[[nodiscard]] std::vector<std::string> selfTestReport(const FlasherResources& release,
                                                      const std::string& toolVersion);

}  // namespace qelmo
