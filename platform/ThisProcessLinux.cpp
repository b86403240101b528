#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <string_view>
#include <utility>

#include "platform/FileDescriptor.h"
#include "platform/SystemError.h"
#include "platform/ThisProcess.h"

namespace qelmo {

std::string executablePath() {
    constexpr const char* link = "/proc/self/exe";
    std::string path(256, '\0');
    for (;;) {
        const ssize_t length = ::readlink(link, path.data(), path.size());
        if (length < 0) throwSystemError(errno, "read", link);
        const auto size = static_cast<std::size_t>(length);
        if (size < path.size()) {
            path.resize(size);
            return path;
        }
        path.resize(path.size() * 2);
    }
}

std::vector<std::string> processArguments() {
    constexpr const char* source = "/proc/self/cmdline";
    const FileDescriptor file(::open(source, O_RDONLY | O_CLOEXEC));
    if (!file.isOpen()) throwSystemError(errno, "open", source);

    std::vector<std::string> arguments;
    std::string current;
    std::array<char, 4096> buffer;
    for (;;) {
        const ssize_t got = ::read(file.get(), buffer.data(), buffer.size());
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) throwSystemError(errno, "read", source);
        if (got == 0) return arguments;
        for (const char unit : std::string_view(buffer.data(), static_cast<std::size_t>(got))) {
            if (unit != '\0') {
                current += unit;
            } else {
                arguments.push_back(std::exchange(current, {}));
            }
        }
    }
}

}  // namespace qelmo
