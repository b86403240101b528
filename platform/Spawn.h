#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

#include "platform/FileDescriptor.h"

namespace qelmo {

/// A pipe. A child gets an end of it only as one of its standard streams.
struct Pipe {
    FileDescriptor reading;
    FileDescriptor writing;

    /// Errors: std::system_error saying that `executable` cannot be started.
    [[nodiscard]] static Pipe open(const std::string& executable);
};

/// The capacity of a pipe on Linux and macOS: one read gets everything that is in it.
inline constexpr std::size_t pipeCapacityBytes = 65536;

/// How to start one child. The child gets `input`, `output` and `errors` as its standard streams, and no
/// other descriptor. Its signal mask is empty and its signal dispositions are the defaults. It inherits the
/// working directory.
struct SpawnRequest {
    std::string executable;              ///< an absolute path; PATH is not searched
    std::vector<std::string> arguments;  ///< after the executable's name
    /// "NAME=value" entries that replace the inherited environment, if given.
    std::optional<std::vector<std::string>> environment;
    int input;
    int output;
    int errors;
    bool ownSession = false;
};

/// Starts a child. Errors: std::system_error naming the executable.
[[nodiscard]] pid_t spawn(const SpawnRequest& request);

/// Waits for the child. Returns its exit status, or the number of the signal that ended it, or 255 if its
/// status was collected elsewhere. Returns 0 only if the child succeeded.
[[nodiscard]] int reap(pid_t processId);

/// A child that has exited, and everything that it wrote to its two output streams.
struct FinishedProcess {
    int terminationStatus;  ///< the exit status, or the number of the signal that ended the child
    std::string output;
};

/// When the output is read. Use `afterExit` only for output that fits into the pipe: a child that fills the
/// pipe never exits.
enum class ReadOutput { afterExit, whileRunning };

/// Runs one child and blocks the calling thread until the child has exited and its output has ended. The
/// child inherits standard input, environment and working directory. There is no time-out.
/// Errors: std::system_error naming the executable if it cannot be started.
[[nodiscard]] FinishedProcess runToEnd(const std::string& executable,
                                       const std::vector<std::string>& arguments, ReadOutput order);

}  // namespace qelmo
