#pragma once

#include <unistd.h>

#include <cstddef>
#ifdef __APPLE__
#include <libproc.h>
#include <malloc/malloc.h>
#else
#include <malloc.h>

#include <fstream>
#endif

namespace qelmo {

/// The memory that this process has in use, in bytes.
inline std::size_t residentBytes() {
#ifdef __APPLE__
    proc_taskinfo task{};
    return ::proc_pidinfo(::getpid(), PROC_PIDTASKINFO, 0, &task, sizeof task) > 0 ? task.pti_resident_size
                                                                                   : 0;
#else
    std::size_t all = 0;
    std::size_t resident = 0;
    std::ifstream("/proc/self/statm") >> all >> resident;
    return resident * static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
#endif
}

/// What the allocator has given out of it and not got back, in bytes.
inline std::size_t heapBytesInUse() {
#ifdef __APPLE__
    return ::mstats().bytes_used;
#else
    return ::mallinfo2().uordblks;
#endif
}

}  // namespace qelmo
