#include "platform/ChildProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <new>
#include <system_error>
#include <thread>
#include <utility>

#include "platform/SystemError.h"

extern char** environ;

namespace qelmo {

namespace {

/// A pipe's capacity on both systems, so that one read takes everything that is there.
constexpr std::size_t pipeCapacityBytes = 65536;

struct Pipe {
    FileDescriptor reading;
    FileDescriptor writing;
};

/// Both ends are closed in every child. Returns 0 or an errno value.
int openCloseOnExecPipe(Pipe& pipe) {
    std::array<int, 2> ends{};
#ifdef __linux__
    if (::pipe2(ends.data(), O_CLOEXEC) != 0) return errno;
    pipe = {FileDescriptor(ends[0]), FileDescriptor(ends[1])};
#else
    if (::pipe(ends.data()) != 0) return errno;
    pipe = {FileDescriptor(ends[0]), FileDescriptor(ends[1])};
    for (const int end : ends) {
        if (::fcntl(end, F_SETFD, FD_CLOEXEC) != 0) return errno;
    }
#endif
    return 0;
}

/// What the child's start changes: its streams, its descriptors and its signals. Collects the first error.
class SpawnSetUp {
public:
    SpawnSetUp() {
        check(::posix_spawn_file_actions_init(&actions_));
        check(::posix_spawnattr_init(&attributes_));
    }
    SpawnSetUp(const SpawnSetUp&) = delete;
    SpawnSetUp& operator=(const SpawnSetUp&) = delete;
    ~SpawnSetUp() {
        ::posix_spawn_file_actions_destroy(&actions_);
        ::posix_spawnattr_destroy(&attributes_);
    }

    /// The child gets these three descriptors and no other.
    void connectStreams(int input, int output, int errors) {
        check(::posix_spawn_file_actions_adddup2(&actions_, input, STDIN_FILENO));
        check(::posix_spawn_file_actions_adddup2(&actions_, output, STDOUT_FILENO));
        check(::posix_spawn_file_actions_adddup2(&actions_, errors, STDERR_FILENO));
#ifdef __APPLE__
        flags_ |= POSIX_SPAWN_CLOEXEC_DEFAULT;
#else
        check(::posix_spawn_file_actions_addclosefrom_np(&actions_, STDERR_FILENO + 1));
#endif
    }

    void resetSignals() {
        sigset_t none;
        sigset_t all;
        sigemptyset(&none);
        sigfillset(&all);
        sigdelset(&all, SIGKILL);
        sigdelset(&all, SIGSTOP);
        check(::posix_spawnattr_setsigmask(&attributes_, &none));
        check(::posix_spawnattr_setsigdefault(&attributes_, &all));
        flags_ |= POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF;
    }

    void beginSession() {
        flags_ |= POSIX_SPAWN_SETSID;
    }

    /// Returns 0 or an errno value.
    int start(pid_t& processId, const std::string& executable, char* const* arguments,
              char* const* environment) {
        check(::posix_spawnattr_setflags(&attributes_, static_cast<short>(flags_)));
        if (error_ != 0) return error_;
        return ::posix_spawn(&processId, executable.c_str(), &actions_, &attributes_, arguments, environment);
    }

private:
    void check(int error) {
        if (error_ == 0) error_ = error;
    }

    posix_spawn_file_actions_t actions_{};
    posix_spawnattr_t attributes_{};
    int flags_ = 0;
    int error_ = 0;
};

std::vector<char*> pointersTo(const std::vector<std::string>& texts, const std::string* first = nullptr) {
    std::vector<char*> pointers;
    // The system's interface is not const-correct; it does not change the texts.
    if (first != nullptr) pointers.push_back(const_cast<char*>(first->c_str()));
    for (const std::string& text : texts) pointers.push_back(const_cast<char*>(text.c_str()));
    pointers.push_back(nullptr);
    return pointers;
}

template <typename Body>
void startThread(const std::string& executable, Body body) {
    try {
        std::thread(std::move(body)).detach();
    } catch (const std::system_error& error) {
        throwSystemError(error.code().value(), "start", executable);
    }
}

/// Returns the wait status, or nothing when someone else has taken it.
std::optional<int> reap(pid_t processId) {
    int status = 0;
    for (;;) {
        if (::waitpid(processId, &status, 0) == processId) return status;
        if (errno != EINTR) return std::nullopt;
    }
}

}  // namespace

/// Waits until its input has ended, that is, until this process has closed or lost the writing end. Its
/// output is the child's output, to be read.
constexpr const char* keeperScript = "cd /; read -r x; exec /bin/cat <&1 >/dev/null";
constexpr const char* keeperShell = "/bin/sh";

/// The pipe's reading end, with the means to stop those who wait for it.
struct ChildProcess::OutputReader {
    FileDescriptor output;
    /// Nothing is written to it. Its writing end is closed when the output is not wanted any more.
    Pipe wanted;
    std::atomic<bool> cleared = false;

    void clear() noexcept {
        if (!cleared.exchange(true)) wanted.writing.close();
    }

    void deliver(const OutputHandler& handler) const {
        std::vector<char> buffer(pipeCapacityBytes);
        for (;;) {
            std::array<pollfd, 2> events{pollfd{output.get(), POLLIN, 0},
                                         pollfd{wanted.reading.get(), POLLIN, 0}};
            (void)::poll(events.data(), events.size(), -1);
            if (cleared) return;
            if (events[0].revents == 0) continue;

            const ssize_t got = ::read(output.get(), buffer.data(), buffer.size());
            if (got < 0 && errno == EINTR) continue;
            if (got <= 0) return;
            if (cleared) return;
            handler({buffer.data(), static_cast<std::size_t>(got)});
        }
    }
};

std::shared_ptr<ChildProcess> ChildProcess::create(std::string executable,
                                                   std::vector<std::string> arguments) {
    return std::shared_ptr<ChildProcess>(new ChildProcess(std::move(executable), std::move(arguments)));
}

ChildProcess::ChildProcess(std::string executable, std::vector<std::string> arguments)
    : executable_(std::move(executable)),
      arguments_(std::move(arguments)),
      reader_(std::make_shared<OutputReader>()) {}

void ChildProcess::launchSupervised() {
    std::promise<pid_t> started;
    try {
        openPipe();
        // Both threads wait before the child exists, so that nothing can fail once it runs.
        startReader();
        startWaiter(started.get_future());
        startKeeper();
        spawn(Session::own);
    } catch (...) {
        clearOutputHandler();
        writingEnd_.close();
        held_.close();
        endKeeper();
        started.set_value(-1);
        rethrowAsLaunchError();
    }
    started.set_value(processId_);
}

void ChildProcess::clearOutputHandler() noexcept {
    reader_->clear();
}

void ChildProcess::launch() {
    openPipe();
    spawn(Session::inherited);
}

void ChildProcess::waitUntilExit() {
    waitStatus_ = reap(processId_);
}

std::string ChildProcess::readToEndOfOutput() {
    std::string bytes;
    std::vector<char> buffer(pipeCapacityBytes);
    for (;;) {
        const ssize_t got = ::read(reader_->output.get(), buffer.data(), buffer.size());
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) return bytes;
        bytes.append(buffer.data(), static_cast<std::size_t>(got));
    }
}

int ChildProcess::terminationStatus() const noexcept {
    constexpr int unknown = 255;
    if (!waitStatus_) return unknown;
    return WIFEXITED(*waitStatus_) ? WEXITSTATUS(*waitStatus_) : WTERMSIG(*waitStatus_);
}

void ChildProcess::throwLaunchError(int error, std::string_view reason) const {
    throwSystemError(error, "start", executable_ + std::string(reason));
}

void ChildProcess::rethrowAsLaunchError() const {
    try {
        throw;
    } catch (const std::bad_alloc&) {
        throwLaunchError(ENOMEM);
    }
}

void ChildProcess::requireNoNul() const {
    if (holdsNul(executable_)) throwLaunchError(EINVAL);
    if (std::any_of(arguments_.begin(), arguments_.end(), holdsNul))
        throwLaunchError(EINVAL, " (an argument holds a NUL character)");
}

void ChildProcess::openPipe() {
    requireNoNul();
    Pipe output;
    const int error = openCloseOnExecPipe(output);
    if (error != 0) throwLaunchError(error);
    reader_->output = std::move(output.reading);
    writingEnd_ = std::move(output.writing);
}

void ChildProcess::startReader() {
    if (const int error = openCloseOnExecPipe(reader_->wanted); error != 0) throwLaunchError(error);
    if (!outputHandler_) return;
    startThread(executable_, [reader = reader_, handler = std::exchange(outputHandler_, nullptr)] {
        reader->deliver(handler);
    });
}

void ChildProcess::startWaiter(std::future<pid_t> started) {
    startThread(executable_, [self = shared_from_this(), started = std::move(started),
                              handler = std::exchange(terminationHandler_, nullptr)]() mutable {
        const pid_t processId = started.get();
        if (processId < 0) return;
        self->waitStatus_ = reap(processId);
        self->endKeeper();
        if (handler) handler(self);
    });
}

void ChildProcess::startKeeper() {
    SpawnSetUp setUp;
    const int input = reader_->wanted.reading.get();
    setUp.connectStreams(input, reader_->output.get(), held_.isOpen() ? held_.get() : input);
    setUp.resetSignals();
    setUp.beginSession();
    const std::vector<std::string> arguments{keeperShell, "-c", keeperScript};
    const int error =
        setUp.start(keeperId_, keeperShell, pointersTo(arguments).data(), pointersTo({}).data());
    held_.close();
    if (error != 0) throwSystemError(error, "start", keeperShell);
}

void ChildProcess::endKeeper() noexcept {
    if (keeperId_ < 0) return;
    ::kill(keeperId_, SIGKILL);
    (void)reap(std::exchange(keeperId_, -1));
}

void ChildProcess::spawn(Session session) {
    SpawnSetUp setUp;
    setUp.connectStreams(STDIN_FILENO, writingEnd_.get(), writingEnd_.get());
    if (session == Session::own) setUp.beginSession();
    setUp.resetSignals();
    const auto arguments = pointersTo(arguments_, &executable_);
    const auto environment = environment_ ? pointersTo(*environment_) : std::vector<char*>{};
    const int error =
        setUp.start(processId_, executable_, arguments.data(), environment_ ? environment.data() : environ);
    // The child has its own copies; as long as ours is open, the output would not end.
    writingEnd_.close();
    if (error != 0) throwLaunchError(error);
}

}  // namespace qelmo
