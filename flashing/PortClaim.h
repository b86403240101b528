#pragma once

#include <string>

#include "platform/FileDescriptor.h"

namespace qelmo {

/// Claims a port for one flash job, across all windows and users of this computer.
///
/// The claim is a file lock on one byte of the folder that contains the port, at the offset that equals the
/// device number of the port. The claim lasts until the returned descriptor and its copies in other
/// processes are closed. The port itself is not opened. If the port no longer exists, or the system has no
/// such locks, nothing is claimed. The returned descriptor may then be empty.
/// Errors: FlasherFailure if another job has the port; std::system_error if the folder cannot be opened.
[[nodiscard]] FileDescriptor claimPort(const std::string& port);

}  // namespace qelmo
