#pragma once

namespace qelmo {

/// The program: reads the argument list once and chooses between the headless self-test and the window.
struct QelmoFlasherMain {
    /// Returns only when the window was quit normally; otherwise it ends the process with its status.
    static void main();
};

}  // namespace qelmo
