#include "platform/MainBundle.h"

#include "platform/FilePath.h"
#include "platform/FileReading.h"
#include "platform/ThisProcess.h"

namespace qelmo {

std::string MainBundle::bundleURL() {
    return bundleOfExecutable(executablePath());
}

std::optional<std::string> MainBundle::urlForResource(std::string_view name, std::string_view extension) {
    std::string file(name);
    file += '.';
    file += extension;
    std::string path = joinedPath(resourceFolder(bundleURL()), file);
    if (!exists(path)) return std::nullopt;
    return path;
}

std::optional<std::string> MainBundle::urlForApplicationIcon() {
    return urlForResource("AppIcon", "icns");
}

std::string resourceFolder(std::string_view bundleURL) {
    return joinedPath(joinedPath(bundleURL, "Contents"), "Resources");
}

std::string bundleOfExecutable(std::string_view executablePath) {
    std::string folder = parentFolder(executablePath);
    constexpr std::string_view inside = "/Contents/MacOS";
    if (folder.size() > inside.size() && folder.ends_with(inside))
        folder.resize(folder.size() - inside.size());
    return folder;
}

}  // namespace qelmo
