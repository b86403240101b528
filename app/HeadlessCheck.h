#pragma once

#include "platform/LaunchContext.h"

namespace qelmo {

/// Checks the bundle's icon and release and probes the flashing tool. Opens no window and no serial port.
/// Writes the whole report to standard output and returns 0, or writes one failure text to standard error and
/// returns 1. Waits for the tool without a time-out.
[[nodiscard]] int runHeadlessSelfTest(const LaunchContext& context);

}  // namespace qelmo
