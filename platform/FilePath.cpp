#include "platform/FilePath.h"

#include <pwd.h>
#include <unistd.h>

#include <cstdlib>
#include <vector>

namespace qelmo {

std::string joinedPath(std::string_view folder, std::string_view component) {
    return std::string(folder).append("/").append(component);
}

std::string parentFolder(std::string_view path) {
    const auto slash = path.rfind('/');
    if (slash == std::string_view::npos) return ".";
    return std::string(path.substr(0, slash == 0 ? 1 : slash));
}

bool holdsNul(std::string_view path) noexcept {
    return path.find('\0') != std::string_view::npos;
}

std::string currentHomeFolder() {
    if (const char* home = std::getenv("HOME"); home != nullptr && home[0] == '/') return home;

    std::vector<char> buffer(16384);
    passwd entry{};
    passwd* found = nullptr;
    if (getpwuid_r(geteuid(), &entry, buffer.data(), buffer.size(), &found) == 0 && found != nullptr)
        return found->pw_dir;
    return {};
}

std::string bundleOfExecutable(std::string_view executablePath) {
    std::string folder = parentFolder(executablePath);
    constexpr std::string_view inside = "/Contents/MacOS";
    if (folder.size() > inside.size() && folder.ends_with(inside))
        folder.resize(folder.size() - inside.size());
    return folder;
}

std::string resourceFolder(std::string_view bundleURL) {
    return joinedPath(joinedPath(bundleURL, "Contents"), "Resources");
}

}  // namespace qelmo
