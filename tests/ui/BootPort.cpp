#include "tests/ui/BootPort.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <stdexcept>

#include "platform/ChildProcess.h"
#include "platform/FileDescriptor.h"

namespace qelmo {

BootPort::BootPort(const std::string& name) : path_("/dev/" + name) {
    const FileDescriptor file(::open(path_.c_str(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, 0600));
    if (!file.isOpen()) throw std::runtime_error("The test cannot make " + path_);
}

BootPort::~BootPort() {
    struct stat status {};
    if (::lstat(path_.c_str(), &status) == 0 && S_ISREG(status.st_mode)) ::unlink(path_.c_str());
}

bool devIsPrivate() {
    const auto check = ChildProcess::create(QELMO_PRIVATE_DEV, {"--check"});
    check->launch();
    check->waitUntilExit();
    return check->terminationStatus() == 0;
}

}  // namespace qelmo
