#pragma once

#include <string>
#include <vector>

namespace qelmo {

/// The program: reads the argument list once and chooses between the headless self-test and the window.
struct QelmoFlasherMain {
    /// Returns only when the window was quit normally; otherwise it ends the process with its status.
    /// `environment` is the one with which the program was started.
    static void main(const std::vector<std::string>& environment);
};

}  // namespace qelmo
