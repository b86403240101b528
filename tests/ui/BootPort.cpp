#include "tests/ui/BootPort.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string_view>

#include "platform/FileDescriptor.h"

namespace qelmo {

namespace {

/// What is mounted on /dev last: the kernel's own folder of devices is a "devtmpfs".
std::string typeOfDev() {
    std::ifstream mounts("/proc/self/mounts");
    std::string type;
    for (std::string line; std::getline(mounts, line);) {
        std::istringstream words(line);
        std::string source, target, itsType;
        words >> source >> target >> itsType;
        if (target == "/dev") type = itsType;
    }
    return type;
}

bool belongsToAPrivateDev(const std::filesystem::directory_entry& entry) {
    constexpr auto devices = std::to_array<std::string_view>(
        {"null", "zero", "full", "random", "urandom", "tty", "ptmx", "console"});
    const std::string name = entry.path().filename();
    for (const auto device : devices)
        if (name == device) return true;
    // Links lead to the test's own descriptors and terminals.
    return entry.is_symlink() || (!entry.is_character_file() && !entry.is_block_file());
}

}  // namespace

BootPort::BootPort(const std::string& name) : path_("/dev/" + name) {
    const FileDescriptor file(::open(path_.c_str(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, 0600));
    if (!file.isOpen()) throw std::runtime_error("The test cannot make " + path_);
}

BootPort::~BootPort() {
    struct stat status {};
    if (::lstat(path_.c_str(), &status) == 0 && S_ISREG(status.st_mode)) ::unlink(path_.c_str());
}

std::string reasonAgainstThisDev() {
    if (const std::string type = typeOfDev(); type != "tmpfs")
        return "/dev is not one that was made for tests (" + type + ")";
    for (const auto& entry : std::filesystem::directory_iterator("/dev"))
        if (!belongsToAPrivateDev(entry)) return "/dev holds a real device: " + entry.path().string();
    return "";
}

}  // namespace qelmo
