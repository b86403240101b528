#include "flashing/PortClaim.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdint>

#include "flashing/FlashTexts.h"
#include "platform/FilePath.h"
#include "platform/SystemError.h"
#include "release/FlasherFailure.h"

namespace qelmo {

FileDescriptor claimPort(const std::string& port) {
    struct stat device {};
    if (::stat(port.c_str(), &device) != 0) return {};
    const std::string folder = parentFolder(port);
    FileDescriptor claim(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!claim.isOpen()) throwSystemError(errno, "open", folder);

    // An exclusive lock needs a descriptor that is open for writing, and a folder has none. So each job takes
    // a shared lock, then asks whether an exclusive lock would conflict with another job's. Of two jobs that
    // start at once, both may be refused.
    struct flock lock {};
    lock.l_type = F_RDLCK;
    lock.l_whence = SEEK_SET;
    lock.l_start = static_cast<off_t>(static_cast<std::uint32_t>(device.st_rdev));
    lock.l_len = 1;
    if (::fcntl(claim.get(), F_OFD_SETLK, &lock) != 0) return claim;
    lock.l_type = F_WRLCK;
    if (::fcntl(claim.get(), F_OFD_GETLK, &lock) == 0 && lock.l_type != F_UNLCK)
        throw FlasherFailure(FlashTexts::portInUse(port));
    return claim;
}

}  // namespace qelmo
