#include "platform/Spawn.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>

#include "platform/FilePath.h"
#include "platform/SystemError.h"

extern char** environ;

namespace qelmo {

namespace {

/// The arguments of posix_spawn. Keeps the first error that occurs while they are set up.
class SpawnSetUp {
public:
    explicit SpawnSetUp(const SpawnRequest& request) {
        check(::posix_spawn_file_actions_init(&actions_));
        check(::posix_spawnattr_init(&attributes_));
        connectStreams(request.input, request.output, request.errors);
        resetSignals();
        if (request.ownSession) flags_ |= POSIX_SPAWN_SETSID;
        check(::posix_spawnattr_setflags(&attributes_, static_cast<short>(flags_)));
    }
    SpawnSetUp(const SpawnSetUp&) = delete;
    SpawnSetUp& operator=(const SpawnSetUp&) = delete;
    ~SpawnSetUp() {
        ::posix_spawn_file_actions_destroy(&actions_);
        ::posix_spawnattr_destroy(&attributes_);
    }

    /// Returns 0 or an errno value.
    int start(pid_t& processId, char* const* arguments, char* const* environment) {
        if (error_ != 0) return error_;
        return ::posix_spawn(&processId, arguments[0], &actions_, &attributes_, arguments, environment);
    }

private:
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

    void check(int error) {
        if (error_ == 0) error_ = error;
    }

    posix_spawn_file_actions_t actions_{};
    posix_spawnattr_t attributes_{};
    int flags_ = 0;
    int error_ = 0;
};

/// posix_spawn takes pointers to non-const text but does not change it.
void appendPointers(std::vector<char*>& pointers, const std::vector<std::string>& texts) {
    for (const std::string& text : texts) pointers.push_back(const_cast<char*>(text.c_str()));
    pointers.push_back(nullptr);
}

std::string readToEnd(int descriptor) {
    std::string bytes;
    std::vector<char> buffer(pipeCapacityBytes);
    for (;;) {
        const ssize_t got = ::read(descriptor, buffer.data(), buffer.size());
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) return bytes;
        bytes.append(buffer.data(), static_cast<std::size_t>(got));
    }
}

}  // namespace

Pipe Pipe::open(const std::string& executable) {
    std::array<int, 2> ends{};
#ifdef __linux__
    if (::pipe2(ends.data(), O_CLOEXEC) != 0) throwSystemError(errno, "start", executable);
    return {FileDescriptor(ends[0]), FileDescriptor(ends[1])};
#else
    if (::pipe(ends.data()) != 0) throwSystemError(errno, "start", executable);
    Pipe pipe{FileDescriptor(ends[0]), FileDescriptor(ends[1])};
    for (const int end : ends) {
        if (::fcntl(end, F_SETFD, FD_CLOEXEC) != 0) throwSystemError(errno, "start", executable);
    }
    return pipe;
#endif
}

pid_t spawn(const SpawnRequest& request) {
    if (holdsNul(request.executable)) throwSystemError(EINVAL, "start", request.executable);
    if (std::any_of(request.arguments.begin(), request.arguments.end(), holdsNul))
        throwSystemError(EINVAL, "start", request.executable + " (an argument holds a NUL character)");

    SpawnSetUp setUp(request);
    std::vector<char*> arguments{const_cast<char*>(request.executable.c_str())};
    appendPointers(arguments, request.arguments);
    std::vector<char*> environment;
    if (request.environment) appendPointers(environment, *request.environment);
    pid_t processId = -1;
    const int error =
        setUp.start(processId, arguments.data(), request.environment ? environment.data() : environ);
    if (error != 0) throwSystemError(error, "start", request.executable);
    return processId;
}

int reap(pid_t processId) {
    constexpr int unknown = 255;
    int status = 0;
    while (::waitpid(processId, &status, 0) != processId) {
        if (errno != EINTR) return unknown;
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : WTERMSIG(status);
}

FinishedProcess runToEnd(const std::string& executable, const std::vector<std::string>& arguments,
                         ReadOutput order) {
    Pipe pipe = Pipe::open(executable);
    const int output = pipe.writing.get();
    const pid_t child = spawn({executable, arguments, {}, STDIN_FILENO, output, output});
    // The child has its own copy. The output does not end while ours is open.
    pipe.writing.close();

    FinishedProcess finished{};
    if (order == ReadOutput::whileRunning) finished.output = readToEnd(pipe.reading.get());
    finished.terminationStatus = reap(child);
    if (order == ReadOutput::afterExit) finished.output = readToEnd(pipe.reading.get());
    return finished;
}

}  // namespace qelmo
