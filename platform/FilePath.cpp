#include "platform/FilePath.h"

#include <pwd.h>
#include <unistd.h>

#include <cstdlib>
#include <vector>

namespace qelmo {

std::string joinedPath(std::string_view folder, std::string_view component) {
    std::string path(folder);
    path += '/';
    path += component;
    return path;
}

std::string parentFolder(std::string_view path) {
    const auto slash = path.rfind('/');
    if (slash == std::string_view::npos) return ".";
    return std::string(path.substr(0, slash == 0 ? 1 : slash));
}

std::string homeFolder() {
    if (const char* home = std::getenv("HOME"); home != nullptr && home[0] == '/') return home;

    std::vector<char> buffer(16384);
    passwd entry{};
    passwd* found = nullptr;
    if (getpwuid_r(geteuid(), &entry, buffer.data(), buffer.size(), &found) == 0 && found != nullptr)
        return found->pw_dir;
    return {};
}

}  // namespace qelmo
