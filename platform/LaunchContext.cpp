#include "platform/LaunchContext.h"

#include <algorithm>
#include <filesystem>
#include <system_error>
#ifdef __APPLE__
#include <mach-o/dyld.h>

#include <cstdint>
#endif

#include "platform/FilePath.h"
#include "platform/SystemError.h"

extern char** environ;

namespace qelmo {

namespace {

/// Absolute, with links resolved. Errors: std::system_error.
std::string executablePath() {
    std::error_code error;
#ifdef __APPLE__
    std::uint32_t sizeBytes = 0;
    _NSGetExecutablePath(nullptr, &sizeBytes);
    std::string path(sizeBytes, '\0');
    _NSGetExecutablePath(path.data(), &sizeBytes);
    path.resize(path.find('\0'));
    const std::filesystem::path real = std::filesystem::canonical(path, error);
#else
    const char* const path = "/proc/self/exe";
    const std::filesystem::path real = std::filesystem::read_symlink(path, error);
#endif
    if (error) throwSystemError(error.value(), "read", path);
    return real;
}

}  // namespace

bool LaunchContext::hasArgument(std::string_view argument) const {
    return std::find(arguments.begin(), arguments.end(), argument) != arguments.end();
}

LaunchContext LaunchContext::ofThisProcess(int argumentCount, const char* const* arguments) {
    LaunchContext context;
    context.arguments.assign(arguments, arguments + argumentCount);
    for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry)
        context.environment.emplace_back(*entry);
    context.bundleURL = bundleOfExecutable(executablePath());
    context.homeFolder = currentHomeFolder();
    return context;
}

}  // namespace qelmo
