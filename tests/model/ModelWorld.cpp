#include "tests/model/ModelWorld.h"

#include <cerrno>
#include <filesystem>
#include <system_error>

#include "platform/MainBundle.h"

namespace qelmo {

namespace {

/// The main bundle's resource folder is a link to the fixture's.
std::filesystem::path resourceLink() {
    return resourceFolder(MainBundle::bundleURL());
}

std::string systemsWords(int error) {
    return ": " + std::generic_category().message(error);
}

std::string imageWith(std::size_t place, char unit) {
    std::string image = ReleaseFixture::smallestImage();
    image[place] = unit;
    return image;
}

}  // namespace

ModelWorld::ModelWorld() : ports_(deviceNames().size()) {
    setBundle(BundleState::firstRelease);
    setTool(true);
}

ModelWorld::~ModelWorld() {
    std::filesystem::remove(resourceLink());
}

Surroundings ModelWorld::surroundings() const {
    const std::string image = resourceLink() / "release-complete.bin";
    return {release_.tool(), image, "open " + image + systemsWords(ENOENT),
            "The flash manifest is not valid JSON: it holds a NUL byte",
            "start /usr/bin/python3" + systemsWords(E2BIG)};
}

void ModelWorld::setBundle(BundleState state) {
    std::filesystem::remove(resourceLink());
    std::filesystem::create_directory_symlink(release_.resources(), resourceLink());
    release_.manifest = {};
    release_.setImage(ReleaseFixture::smallestImage());
    const auto set = [this](const char* field, const char* json) { release_.manifest.set(field, json); };
    switch (state) {
        case BundleState::otherRelease:
            set("version", R"("2.0.0")");
            [[fallthrough]];
        case BundleState::otherBytes:
            release_.setImage(imageWith(100, 'x'));
            break;
        case BundleState::otherVersion:
            set("version", R"("1.0.1")");
            break;
        case BundleState::otherOptions:
            set("flash.baud", "115200");
            set("flash.eraseAllInternalFlash", "false");
            set("flash.confirmationText", R"("FLASH R&D")");
            break;
        case BundleState::wrongSchemaAndChip:
            set("chipFamily", R"("ESP32")");
            [[fallthrough]];
        case BundleState::wrongSchema:
            set("schemaVersion", "2");
            break;
        case BundleState::wrongChip:
            set("chipFamily", R"("ESP32")");
            break;
        case BundleState::wrongAddress:
            set("binary.offset", "4096");
            break;
        case BundleState::wrongFlashSize:
            set("flash.flashSize", R"("4MB")");
            break;
        case BundleState::wrongFlashMode:
            set("flash.flashMode", R"("qio")");
            break;
        case BundleState::wrongLength:
            set("binary.size", "65538");
            break;
        case BundleState::wrongShape:
            release_.setImage(imageWith(65536, 'x'));
            break;
        case BundleState::wrongDigest:
            writeTestFile(release_.image(), imageWith(100, 'x'));
            break;
        default:
            break;
    }
    release_.writeManifest(release_.manifest.text());
    if (state == BundleState::notJson) release_.writeManifest(std::string("{\0}", 3));
    if (state == BundleState::noManifest) std::filesystem::remove(release_.manifestFile());
    if (state == BundleState::noImage) std::filesystem::remove(release_.image());
    if (state == BundleState::noFolder) std::filesystem::remove(resourceLink());
}

void ModelWorld::plug(std::size_t device) {
    if (ports_[device] == nullptr) ports_[device] = std::make_unique<BootPort>(deviceNames()[device]);
}

void ModelWorld::unplug(std::size_t device) {
    ports_[device].reset();
}

void ModelWorld::setTool(bool isThere) const {
    std::filesystem::remove(release_.tool());
    if (!isThere) return;
    writeTestFile(release_.tool(), "import os, sys\nopen('" + argumentsFile() +
                                       "', 'w').write('\\n'.join(sys.argv))\nfor command in open('" +
                                       gate_.path() + "'): exec(command)\n");
}

void ModelWorld::setLaunch(bool isPossible) {
    noLaunch_.reset();
    // No environment may hold so long a value; the system refuses to start anything with it.
    if (!isPossible) noLaunch_.emplace("QELMO_TEST_TOO_LONG", std::string(200'000, 'x'));
}

std::string ModelWorld::meetTool() {
    commands_.open(gate_.path());
    return readTestFile(argumentsFile());
}

void ModelWorld::lastCommand(const std::string& python) {
    command(python);
    commands_.close();
    commands_.clear();
}

}  // namespace qelmo
