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

/// One child process with both output streams on one pipe.
///
/// The executable is an absolute path (nothing is searched) and gets exactly the given arguments after its
/// name. The child inherits standard input, the working directory and, unless another is set, the
/// environment; no other descriptor, no signal mask and no changed signal disposition.
///
/// It is used in one of two ways:
///  - supervised: set both handlers, then `launchSupervised`. Output and exit are reported from background
///    threads, the exit even when a grandchild still holds the pipe. The child outlives this process,
///    whatever ends it;
///  - waited for: `launch`, `waitUntilExit`, `readToEndOfOutput`, all on the calling thread.
///
/// How a supervised child outlives this process:
///  - It has a session of its own. A signal to this process's group, a closed terminal, or the death of this
///    process while the child is stopped does not reach it. A process group is not enough: a stopped group
///    that becomes an orphan gets SIGHUP, and a background group may not read from its terminal. The child
///    has no controlling terminal, and should open serial ports with O_NOCTTY.
///  - A keeper, a shell in a session of its own, has the output's reading end, too. Its input is a pipe that
///    only this process can write to. When this process is gone or has stopped reading, the keeper reads the
///    output until its end, and exits. If the child was reaped before, the keeper is killed and reaped. The
///    keeper needs /bin/sh and /bin/cat, which both systems have.
///
/// Threads: everything is called on one thread, except where an operation says otherwise. A supervised
///          process keeps itself alive until its termination handler has returned.
/// Errors:  both launches throw std::system_error naming the executable, and then nothing runs; afterwards
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

    /// Keeps `held` open until a supervised child has ended, whatever becomes of this process. The child does
    /// not get it.
    void holdUntilExit(FileDescriptor held) { held_ = std::move(held); }

    void launchSupervised();

    /// From now on no chunk is handed out, and this process reads nothing that is still in the pipe. A call
    /// of the output handler that is under way is not waited for. Callable from any thread, any number of
    /// times.
    void clearOutputHandler() noexcept;

    void launch();
    void waitUntilExit();
    [[nodiscard]] std::string readToEndOfOutput();

    /// The exit status, or the number of the signal that ended the child (never 0 then). Valid after the
    /// exit.
    [[nodiscard]] int terminationStatus() const noexcept;

private:
    struct OutputReader;

    ChildProcess(std::string executable, std::vector<std::string> arguments);

    [[noreturn]] void throwLaunchError(int error, std::string_view reason = {}) const;
    [[noreturn]] void rethrowAsLaunchError() const;
    void requireNoNul() const;
    void openPipe();
    void startReader();
    void startWaiter(std::future<pid_t> started);
    void startKeeper();
    void endKeeper() noexcept;
    enum class Session { inherited, own };
    void spawn(Session session);

    const std::string executable_;
    const std::vector<std::string> arguments_;

    // The launching thread's. The handlers move to their threads with the launch.
    std::optional<std::vector<std::string>> environment_;
    OutputHandler outputHandler_;
    TerminationHandler terminationHandler_;
    FileDescriptor writingEnd_;
    FileDescriptor held_;
    pid_t processId_ = -1;

    // Shared with the reader thread; safe by itself.
    const std::shared_ptr<OutputReader> reader_;

    // The launching thread's, then the reaping thread's until the exit has been reported.
    pid_t keeperId_ = -1;
    std::optional<int> waitStatus_;
};

}  // namespace qelmo
