#include <crt_externs.h>
#include <mach-o/dyld.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <memory>

#include "platform/SystemError.h"
#include "platform/ThisProcess.h"

namespace qelmo {

std::string executablePath() {
    std::uint32_t size = 0;
    _NSGetExecutablePath(nullptr, &size);
    std::string path(size, '\0');
    _NSGetExecutablePath(path.data(), &size);
    const std::unique_ptr<char, decltype(&std::free)> real(::realpath(path.c_str(), nullptr), std::free);
    if (real == nullptr) throwSystemError(errno, "resolve", path.c_str());
    return real.get();
}

std::vector<std::string> processArguments() {
    return {*_NSGetArgv(), *_NSGetArgv() + *_NSGetArgc()};
}

}  // namespace qelmo
