#pragma once

#include <string>

#include "platform/FileDescriptor.h"

namespace qelmo {

/// Claims a port for one flash job among all windows and users of this computer.
///
/// The claim is a lock in the port's folder, in the place of the device's number. It lasts until the returned
/// descriptor and its copies in other processes are closed. The port itself is not opened. A port that is
/// gone, or a system without such locks, is not claimed: the descriptor is then of no use, or none.
/// Errors: FlasherFailure when another job has the port; std::system_error when the folder cannot be opened.
[[nodiscard]] FileDescriptor claimPort(const std::string& port);

}  // namespace qelmo
