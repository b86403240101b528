#include "platform/ChildProcess.h"

#include <poll.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <csignal>
#include <system_error>
#include <thread>

#include "platform/Spawn.h"
#include "platform/SystemError.h"

namespace qelmo {

namespace {

/// Waits until this process closes the other end of its input or ends, then discards the child's output.
constexpr const char* keeperScript = "cd /; read -r x; exec /bin/cat <&1 >/dev/null";

/// Detached, because the process may exit before the body returns. The body owns everything that it uses.
template <typename Body>
void startThread(const std::string& executable, Body body) {
    try {
        std::thread(std::move(body)).detach();
    } catch (const std::system_error& error) {
        throwSystemError(error.code().value(), "start", executable);
    }
}

}  // namespace

/// The pipe's reading end, and the means to end the wait for output.
struct ChildProcess::OutputReader {
    FileDescriptor output;
    /// Nothing is ever written to this pipe. Its writing end is closed when no more output is wanted.
    Pipe wanted;
    std::atomic<bool> cleared = false;

    void deliver(const OutputHandler& handler) const {
        std::vector<char> buffer(pipeCapacityBytes);
        for (;;) {
            std::array<pollfd, 2> events{pollfd{output.get(), POLLIN, 0},
                                         pollfd{wanted.reading.get(), POLLIN, 0}};
            (void)::poll(events.data(), events.size(), -1);
            if (cleared) return;
            if (events[0].revents == 0) continue;
            const ssize_t got = ::read(output.get(), buffer.data(), buffer.size());
            if (got <= 0 || cleared) return;
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

void ChildProcess::launch() {
    std::promise<pid_t> started;
    try {
        Pipe output = Pipe::open(executable_);
        reader_->output = std::move(output.reading);
        // Everything else starts before the child does, so that nothing can fail once the child runs.
        startReader();
        startWaiter(started.get_future());
        startKeeper();
        const int writingEnd = output.writing.get();
        started.set_value(
            spawn({executable_, arguments_, environment_, STDIN_FILENO, writingEnd, writingEnd, true}));
    } catch (...) {
        clearOutputHandler();
        held_.close();
        endKeeper();
        started.set_value(-1);
        throw;
    }
}

void ChildProcess::clearOutputHandler() noexcept {
    if (!reader_->cleared.exchange(true)) reader_->wanted.writing.close();
}

void ChildProcess::startReader() {
    reader_->wanted = Pipe::open(executable_);
    startThread(executable_, [reader = reader_, handler = std::exchange(outputHandler_, nullptr)] {
        reader->deliver(handler);
    });
}

void ChildProcess::startWaiter(std::future<pid_t> started) {
    startThread(executable_, [self = shared_from_this(), started = std::move(started),
                              handler = std::exchange(terminationHandler_, nullptr)]() mutable {
        const pid_t processId = started.get();
        if (processId < 0) return;
        self->terminationStatus_ = reap(processId);
        self->endKeeper();
        handler(self);
    });
}

void ChildProcess::startKeeper() {
    const int input = reader_->wanted.reading.get();
    keeperId_ = spawn({"/bin/sh",
                       {"-c", keeperScript},
                       std::vector<std::string>{},
                       input,
                       reader_->output.get(),
                       held_.isOpen() ? held_.get() : input,
                       true});
    held_.close();
}

void ChildProcess::endKeeper() noexcept {
    if (keeperId_ < 0) return;
    ::kill(keeperId_, SIGKILL);
    (void)reap(std::exchange(keeperId_, -1));
}

}  // namespace qelmo
