#pragma once

#include <sys/types.h>

#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/FileDescriptor.h"

namespace qelmo {

/// One child process with both output streams on one pipe, supervised from background threads.
///
/// Set both handlers, then `launch`. The child inherits standard input and the working directory, has a
/// session of its own, and outlives this process, whatever ends it: docs/architecture.md tells how. Its exit
/// is reported even when a grandchild still holds the pipe.
///
/// Threads: everything is called on one thread, except where an operation says otherwise. The object keeps
///          itself alive until its termination handler has returned.
/// Errors:  `launch` throws std::system_error naming the executable, and then nothing runs; afterwards
///          nothing throws.
class ChildProcess : public std::enable_shared_from_this<ChildProcess> {
public:
    /// Called on the reader thread, one call at a time, with everything that could be read at once.
    using OutputHandler = std::function<void(std::string_view bytes)>;
    /// Called once, on the waiter thread, after the child has been reaped.
    using TerminationHandler = std::function<void(const std::shared_ptr<ChildProcess>& process)>;

    [[nodiscard]] static std::shared_ptr<ChildProcess> create(std::string executable,
                                                              std::vector<std::string> arguments);
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    /// "NAME=value" entries that replace the inherited environment.
    void setEnvironment(std::vector<std::string> environment) { environment_ = std::move(environment); }
    void setOutputHandler(OutputHandler handler) { outputHandler_ = std::move(handler); }
    void setTerminationHandler(TerminationHandler handler) { terminationHandler_ = std::move(handler); }

    /// Keeps `held` open until the child has ended, even if this process ends. The child does not get it.
    void holdUntilExit(FileDescriptor held) { held_ = std::move(held); }

    void launch();

    /// From now on this process reads nothing that is still in the pipe. A call of the output handler that is
    /// under way is not waited for. Callable from any thread, any number of times.
    void clearOutputHandler() noexcept;

    /// The exit status, or the number of the signal that ended the child. Valid after the exit.
    [[nodiscard]] int terminationStatus() const noexcept { return terminationStatus_; }

private:
    struct OutputReader;

    ChildProcess(std::string executable, std::vector<std::string> arguments);

    void startReader();
    void startWaiter(std::future<pid_t> started);
    void startKeeper();
    void endKeeper() noexcept;

    const std::string executable_;
    const std::vector<std::string> arguments_;

    // The launching thread's. The handlers move to their threads with the launch.
    std::optional<std::vector<std::string>> environment_;
    OutputHandler outputHandler_;
    TerminationHandler terminationHandler_;
    FileDescriptor held_;

    // Shared with the reader thread; safe by itself.
    const std::shared_ptr<OutputReader> reader_;

    // The launching thread's, then the reaping thread's until the exit has been reported.
    pid_t keeperId_ = -1;
    int terminationStatus_ = -1;
};

}  // namespace qelmo
