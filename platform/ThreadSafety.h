#pragma once

#include <mutex>

// clang checks every use of a field against its GUARDED_BY. Other compilers do not know these attributes.
#ifdef __clang__
#define QELMO_THREAD_RULE(rule) __attribute__((rule))
#else
#define QELMO_THREAD_RULE(rule)
#endif

/// Put this after the name of a field that may be used only while `mutex` is locked.
#define GUARDED_BY(mutex) QELMO_THREAD_RULE(guarded_by(mutex))

namespace qelmo {

/// A mutex that clang's thread-safety analysis recognises.
class QELMO_THREAD_RULE(capability("mutex")) Mutex : public std::mutex {};

/// Keeps the mutex locked until the end of the scope.
class QELMO_THREAD_RULE(scoped_lockable) MutexLock {
public:
    explicit MutexLock(Mutex& mutex) QELMO_THREAD_RULE(acquire_capability(mutex)) : lock_(mutex) {}
    ~MutexLock() QELMO_THREAD_RULE(release_capability()) {}

private:
    const std::lock_guard<std::mutex> lock_;
};

}  // namespace qelmo
