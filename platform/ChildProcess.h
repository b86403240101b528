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
/// Set both handlers, then call `launch`. The child inherits standard input and the working directory and
/// runs in its own session. It keeps running if this process ends for any reason; docs/architecture.md
/// explains how. Its exit is reported even while a grandchild still holds the pipe open.
///
/// Threads: call everything on one thread, unless an operation says otherwise. The object keeps itself alive
///          until the termination handler returns.
/// Errors:  if `launch` fails, it throws std::system_error naming the executable or /bin/sh, and the child
///          does not run. Nothing throws after `launch`.
class ChildProcess : public std::enable_shared_from_this<ChildProcess> {
public:
    /// Called on the reader thread, one call at a time, with the bytes of one read.
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

    /// Keeps `held` open until the child exits, even if this process ends first. The child does not get it.
    void holdUntilExit(FileDescriptor held) { held_ = std::move(held); }

    void launch();

    /// Stops reading: output that is still in the pipe is not delivered. Does not wait for a call of the
    /// output handler that is in progress. Can be called from any thread, any number of times.
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

    // Used by the launching thread only. `launch` moves the handlers to their threads.
    std::optional<std::vector<std::string>> environment_;
    OutputHandler outputHandler_;
    TerminationHandler terminationHandler_;
    FileDescriptor held_;

    // Shared with the reader thread; needs no lock.
    const std::shared_ptr<OutputReader> reader_;

    // Used by the launching thread during `launch`, then by the waiter thread until it reports the exit.
    pid_t keeperId_ = -1;
    int terminationStatus_ = -1;
};

}  // namespace qelmo
