#pragma once

#include <filesystem>
#include <string>
#include <string_view>

#include "release/FlasherResources.h"
#include "tests/support/ErrorOf.h"
#include "tests/support/ManifestText.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/TestFiles.h"

namespace qelmo {

/// A bundle with a valid release, and a home folder with a flashing tool, in a temporary folder. A test makes
/// its changes and then calls `load` or `failure`.
class ReleaseFixture {
public:
    ReleaseFixture() {
        std::filesystem::create_directories(resources());
        std::filesystem::create_directories(std::filesystem::path(tool()).parent_path());
        writeTestFile(tool(), "print('4.7.0')\n");
        setImage(smallestImage());
    }

    /// 65,537 bytes: the shortest image that can be complete.
    [[nodiscard]] static std::string smallestImage() {
        std::string image(65537, '\0');
        image[0] = image[65536] = '\xE9';
        return image;
    }

    [[nodiscard]] static std::string digestOf(std::string_view image) { return imageDigest(bytesOf(image)); }

    void setImage(std::string_view bytes) {
        writeTestFile(image(), bytes);
        manifest.set("binary.size", std::to_string(bytes.size()));
        manifest.set("binary.sha256", '"' + digestOf(bytes) + '"');
    }

    void writeManifest(std::string_view text) const { writeTestFile(manifestFile(), text); }

    /// Loads the release from the files as they are.
    [[nodiscard]] FlasherResources loadFiles() const { return FlasherResources::load(bundle(), home()); }

    /// Writes the manifest as it is now and loads the release.
    [[nodiscard]] FlasherResources load() const {
        writeManifest(manifest.text());
        return loadFiles();
    }

    [[nodiscard]] std::string failureOfFiles() const {
        return errorOf([this] { (void)loadFiles(); });
    }

    [[nodiscard]] std::string failure() const {
        return errorOf([this] { (void)load(); });
    }

    [[nodiscard]] std::string home() const { return folder_ / "home"; }
    [[nodiscard]] std::string bundle() const { return folder_ / "QELMO Varnox Flasher.app"; }
    [[nodiscard]] std::string resources() const { return bundle() + "/Contents/Resources"; }
    [[nodiscard]] std::string manifestFile() const {
        return resources() + "/qelmo-varnox-flash-manifest.json";
    }
    [[nodiscard]] std::string image() const { return resources() + "/release-complete.bin"; }
    [[nodiscard]] std::string tool() const {
        return home() + "/.platformio/packages/tool-esptoolpy/esptool.py";
    }

    ManifestText manifest;

private:
    TemporaryFolder folder_;
};

}  // namespace qelmo
