#include "platform/ThisProcess.h"

#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <span>

#include "platform/FileDescriptor.h"
#include "platform/SystemError.h"

namespace qelmo {

void undoInheritedRestrictions() {
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        // The access mode is reversed on purpose: a stream that was closed must still fail.
        if (::fcntl(stream, F_GETFD) < 0)
            (void)::open("/dev/null", stream == STDIN_FILENO ? O_WRONLY : O_RDONLY);
    }
    (void)std::signal(SIGCHLD, SIG_DFL);
    (void)std::signal(SIGPIPE, SIG_IGN);
    // A write beyond the file size limit then fails like a write to a full disk.
    (void)std::signal(SIGXFSZ, SIG_IGN);
}

void writeToStandardOutput(std::string_view text) {
    if (const int error = writeAll(STDOUT_FILENO, std::as_bytes(std::span(text))); error != 0)
        throwSystemError(error, "write", "standard output");
}

void writeToStandardError(std::string_view text) noexcept {
    (void)writeAll(STDERR_FILENO, std::as_bytes(std::span(text)));
}

}  // namespace qelmo
