#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

#include "platform/FileDescriptor.h"

namespace qelmo {

/// Both ends are closed in every child.
struct Pipe {
    FileDescriptor reading;
    FileDescriptor writing;

    /// Errors: std::system_error saying that `executable` cannot be started.
    [[nodiscard]] static Pipe open(const std::string& executable);
};

/// A pipe's capacity on both systems, so that one read takes everything that is there.
inline constexpr std::size_t pipeCapacityBytes = 65536;

/// What one child is started with. It gets its three streams and no other descriptor, no signal mask and no
/// changed signal disposition; it inherits the working directory.
struct SpawnRequest {
    std::string executable;              ///< an absolute path; nothing is searched
    std::vector<std::string> arguments;  ///< after the executable's name
    /// "NAME=value" entries in place of the inherited ones.
    std::optional<std::vector<std::string>> environment;
    int input;
    int output;
    int errors;
    bool ownSession = false;
};

/// Errors: std::system_error naming the executable.
[[nodiscard]] pid_t spawn(const SpawnRequest& request);

/// Waits for the child. Returns its exit status, or the number of the signal that ended it; 255 when somebody
/// else has taken its status. So 0 is nothing but success.
[[nodiscard]] int reap(pid_t processId);

/// A child that has exited, and everything that it wrote to both of its output streams.
struct FinishedProcess {
    int terminationStatus;  ///< the exit status, or the number of the signal that ended the child
    std::string output;
};

/// Whether the output is read when the child has exited (it must fit a pipe then) or while it runs.
enum class ReadOutput { afterExit, whileRunning };

/// Runs one child on the calling thread until it has exited and its output has ended. It inherits standard
/// input, environment and working directory. There is no time-out.
/// Errors: std::system_error naming the executable when it cannot be started.
[[nodiscard]] FinishedProcess runToEnd(const std::string& executable,
                                       const std::vector<std::string>& arguments, ReadOutput order);

}  // namespace qelmo
