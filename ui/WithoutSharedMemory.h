#pragma once

#include <QByteArray>

namespace qelmo {

/// While it lives, the toolkit's connection to an X server is made without shared memory. With it, the server
/// hands over a descriptor for every new window, and when none is left an alert waits for it forever.
/// The environment, which the tool inherits, is afterwards as it was.
class WithoutSharedMemory {
public:
    WithoutSharedMemory() {
        if (!wasSet_) qputenv(name, "1");
    }
    WithoutSharedMemory(const WithoutSharedMemory&) = delete;
    WithoutSharedMemory& operator=(const WithoutSharedMemory&) = delete;
    ~WithoutSharedMemory() {
        if (!wasSet_) qunsetenv(name);
    }

private:
    static constexpr const char* name = "QT_XCB_NO_MITSHM";
    const bool wasSet_ = qEnvironmentVariableIsSet(name);
};

}  // namespace qelmo
