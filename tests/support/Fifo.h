#pragma once

#include <sys/stat.h>

#include <fstream>
#include <stdexcept>
#include <string>

#include "tests/support/TemporaryFolder.h"

namespace qelmo {

/// A gate for a child process: a child that reads the FIFO waits until the test opens the gate.
class Fifo {
public:
    Fifo() {
        if (::mkfifo(path_.c_str(), 0600) != 0) throw std::runtime_error("The test cannot make a FIFO");
    }

    [[nodiscard]] const std::string& path() const { return path_; }

    /// Waits until the child has reached the gate, then lets it pass.
    void open() const { const std::ofstream writingEnd(path_); }

private:
    const TemporaryFolder folder_;
    const std::string path_ = folder_ / "fifo";
};

}  // namespace qelmo
