#include "tools/pack-release/ReleaseReplacement.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>

#include "platform/AtomicWrite.h"
#include "platform/FileDescriptor.h"
#include "platform/FilePath.h"
#include "platform/FileReading.h"
#include "platform/SystemError.h"
#include "release/FlasherFailure.h"
#include "release/FlasherResources.h"

namespace qelmo {

namespace fs = std::filesystem;

namespace {

std::string madeResourceFolder(const std::string& bundle) {
    std::string folder = resourceFolder(bundle);
    if (!fs::is_directory(parentFolder(folder)))
        throw FlasherFailure("not an application bundle, because it has no Contents folder: " + bundle);
    if (::mkdir(folder.c_str(), 0755) != 0 && errno != EEXIST) throwSystemError(errno, "create", folder);
    return folder;
}

/// The lock ends with the descriptor, so a killed process leaves no lock.
FileDescriptor lockedFolder(const std::string& folder) {
    FileDescriptor opened(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!opened.isOpen()) throwSystemError(errno, "open", folder);
    if (::flock(opened.get(), LOCK_EX | LOCK_NB) == 0) return opened;
    if (errno == EWOULDBLOCK)
        throw FlasherFailure(
            "another pack-release is working on this bundle; try again when it has finished");
    throwSystemError(errno, "lock", folder);
}

std::optional<FlashManifest> presentManifest(const std::string& path) {
    if (!fs::exists(path)) return std::nullopt;
    try {
        return FlashManifest::decode(RegularFile(path).readAll(manifestLimitBytes).span());
    } catch (const ManifestDecodingError&) {
        return std::nullopt;  // not a release, so there is no image to keep
    }
}

/// Never throws: returns false for a file that cannot be read.
bool holds(const std::string& path, std::span<const std::byte> bytes) {
    try {
        const FileBytes present = RegularFile(path).readAll(bytes.size());
        return std::equal(bytes.begin(), bytes.end(), present.span().begin(), present.span().end());
    } catch (const std::system_error&) {
        return false;
    }
}

/// True for the names of temporary files that a killed pack-release may have left.
bool isOwnTemporaryName(std::string_view name) {
    constexpr std::size_t randomCharacters = 6;
    constexpr std::size_t endLength = temporaryMark.size() + randomCharacters;
    if (name.size() <= endLength) return false;
    const std::string_view target = name.substr(0, name.size() - endLength);
    return name.substr(target.size()).starts_with(temporaryMark) &&
           (target == manifestFileName || isPackedImageName(target));
}

/// True for an image that an earlier run wrote: its digest matches its name.
bool isPackedImage(const std::string& path, std::string_view name) {
    if (!isPackedImageName(name)) return false;
    RegularFile file(path);
    return file.sizeBytes() <= deviceFlashBytes &&
           packedImageName(imageDigest(file.readAll(deviceFlashBytes).span())) == name;
}

/// Removes files that earlier runs left, except the images of the new and the replaced release.
void removeLeftovers(const std::string& folder, const std::string& newImage,
                     const std::optional<FlashManifest>& replaced) {
    // Compares file identity, because a manifest that was written by hand may spell the path differently.
    const auto isKept = [&](const std::string& path) {
        std::error_code none;
        return path == newImage ||
               (replaced && fs::equivalent(path, joinedPath(folder, replaced->binary.path), none));
    };
    for (const std::string& name : namesInFolder(folder)) {
        const std::string path = joinedPath(folder, name);
        if (!fs::is_regular_file(fs::symlink_status(path)) || isKept(path)) continue;
        if (!isOwnTemporaryName(name) && !isPackedImage(path, name)) continue;
        if (::unlink(path.c_str()) != 0) throwSystemError(errno, "remove", path);
    }
}

}  // namespace

std::optional<FlashManifest> replaceRelease(const std::string& bundle, const NewRelease& release) {
    const std::string folder = madeResourceFolder(bundle);
    const FileDescriptor lock = lockedFolder(folder);
    const std::string manifestPath = joinedPath(folder, manifestFileName);
    const std::string imagePath = joinedPath(folder, release.manifest.binary.path);
    const auto manifestBytes = std::as_bytes(std::span(release.manifestText));
    auto replaced = presentManifest(manifestPath);
    const bool imageWasThere = fs::exists(imagePath);
    try {
        writeFileAtomically(imagePath, release.image.span());
        writeFileAtomically(manifestPath, manifestBytes);
        removeLeftovers(folder, imagePath, replaced);
    } catch (const std::exception& error) {
        // A failed write may already have renamed the file. Only the files tell which release is in place.
        if (holds(manifestPath, manifestBytes) && holds(imagePath, release.image.span()))
            throw FlasherFailure("the new release is in place, but: " + errorDescription(error));
        if (!imageWasThere) ::unlink(imagePath.c_str());
        throw;
    }
    return replaced;
}

}  // namespace qelmo
