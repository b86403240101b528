#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <set>
#include <thread>

#include "tests/release/HostileRelease.h"
#include "tests/support/OrdinaryUser.h"
#include "tests/support/ReleaseFixture.h"
#include "tests/support/Waiting.h"

namespace qelmo {
namespace {

namespace fs = std::filesystem;

constexpr const char* wrongSize = "The embedded firmware size does not match its manifest.";
constexpr const char* incompleteImage = "The embedded file is not a complete QELMO firmware image.";
constexpr const char* wrongDigest = "The embedded firmware checksum is not trusted.";

// fault: the image is one byte shorter or longer than its manifest says, at each boundary
// seen: "The embedded firmware size does not match its manifest.", "The embedded file is not a complete QELMO firmware
//     image."
TEST(HostileImage, PassesOnlyWithItsOwnLengthAndOnlyBeyond65536Bytes) {
    for (const std::size_t length : {0U, 1U, 2U, 65535U, 65536U, 65537U, 65538U, 69999U, 70000U, 70001U}) {
        ReleaseFixture release;
        release.setImage(std::string(length, '\xE9'));
        EXPECT_EQ(release.failure(), length > 65536 ? "" : incompleteImage) << length;
        for (const std::string& size :
             {std::to_string(length + 1), length == 0 ? "-1" : std::to_string(length - 1)}) {
            release.manifest.set("binary.size", size);
            EXPECT_EQ(release.failure(), wrongSize) << length << " as " << size;
        }
    }
}

/// Puts something that is no regular file into the image's and the manifest's place in turn.
template <typename Make>
void expectRefused(Make make, const std::string& words, const std::string& reason) {
    const ReleaseFixture release;
    release.writeManifest(release.manifest.text());
    for (const std::string& path : {release.image(), release.manifestFile()}) {
        fs::remove(path);
        make(path);
        try {
            (void)FlasherResources::load(release.bundle());
            ADD_FAILURE() << "loaded";
        } catch (const std::system_error& error) {
            EXPECT_EQ(error.what(), words + " " + path + ": " + reason);
        }
    }
}

// fault: the image or the manifest is a FIFO, a socket, a device or a folder
// seen: "read (not a regular file)", "Invalid argument", "Is a directory"
TEST(HostileImage, ThatIsNoRegularFileIsRefusedAtOnceAndAManifestToo) {
    const std::string words = "read (not a regular file)";
    const std::string reason = "Invalid argument";
    expectRefused([](const std::string& path) { ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0); }, words, reason);
    expectRefused([](const std::string& path) { ASSERT_EQ(::mknod(path.c_str(), S_IFSOCK | 0600, 0), 0); },
                  words, reason);
    expectRefused([](const std::string& path) { fs::create_symlink("/dev/zero", path); }, words, reason);
    expectRefused([](const std::string& path) { fs::create_symlink("/dev/full", path); }, words, reason);
    expectRefused([](const std::string& path) { fs::create_directory(path); }, "read", "Is a directory");
}

// fault: the image is a file of 1 TB
// seen: "The embedded firmware size does not match its manifest.", "File too large"
TEST(HostileImageDeathTest, OfOneTerabyteIsRefusedWithoutBeingRead) {
    ReleaseFixture release;
    fs::resize_file(release.image(), 1ULL << 40);
    release.writeManifest(release.manifest.text());
    EXPECT_EXIT(failWithin(16, [&] { (void)FlasherResources::load(release.bundle()); }),
                testing::ExitedWithCode(0), "^The embedded firmware size does not match its manifest.$");
    release.writeManifest(release.manifest.set("binary.size", std::to_string(1ULL << 40)).text());
    EXPECT_EXIT(failWithin(16, [&] { (void)FlasherResources::load(release.bundle()); }),
                testing::ExitedWithCode(0), "^read .*/release-complete.bin: File too large$");
}

TEST(HostileImageDeathTest, OfTheLargestLengthIsReadOnceAndOneByteMoreNotAtAll) {
    ReleaseFixture release;
    constexpr std::uint64_t largest = 256ULL << 20;
    for (const std::uint64_t size : {largest, largest + 1}) {
        fs::resize_file(release.image(), size);
        // No image at 65,536, so that the rest is not worth a digest.
        writeTestFile(release.image(), "\xE9");
        fs::resize_file(release.image(), size);
        release.writeManifest(release.manifest.set("binary.size", std::to_string(size)).text());
        EXPECT_EXIT(failWithin(272, [&] { (void)FlasherResources::load(release.bundle()); }),
                    testing::ExitedWithCode(0),
                    size == largest ? incompleteImage : "^read .*/release-complete.bin: File too large$");
    }
}

/// Changes the image without a pause, in another thread, as long as it lives.
template <typename Change>
class Meanwhile {
public:
    explicit Meanwhile(Change change)
        : thread_([this, change] {
              while (!ended_) change();
          }) {}
    Meanwhile(const Meanwhile&) = delete;
    Meanwhile& operator=(const Meanwhile&) = delete;
    ~Meanwhile() {
        ended_ = true;
        thread_.join();
    }

private:
    std::atomic<bool> ended_ = false;
    std::thread thread_;
};

/// Loads the release again and again, at least 500 times and until it passed and was refused: each verdict is
/// one of `refusals`, or a success with the digest of the image that the manifest describes.
template <typename Change>
void expectOnlyWhileChanging(const ReleaseFixture& release, const std::set<std::string>& refusals,
                             Change change) {
    const std::string digest = ReleaseFixture::digestOf(ReleaseFixture::smallestImage());
    std::set<std::string> seen;
    int loads = 0;
    const Meanwhile<Change> meanwhile(change);
    EXPECT_TRUE(eventually([&] {
        std::string verdict = "passed";
        try {
            EXPECT_EQ(FlasherResources::load(release.bundle()).checksum, digest);
        } catch (const std::exception& error) {
            verdict = error.what();
            EXPECT_TRUE(refusals.contains(verdict)) << verdict;
        }
        seen.insert(verdict);
        return ++loads >= 500 && seen.contains("passed") && seen.size() > 1;
    })) << testing::PrintToString(seen);
}

// fault: the image grows and shrinks while it is being read
// seen: "The embedded firmware size does not match its manifest.", "read (the file is being changed) …: Resource
//     temporarily unavailable"
TEST(HostileImage, ThatGrowsAndShrinksWhileItIsReadPassesOnlyWhole) {
    const ReleaseFixture release;
    release.writeManifest(release.manifest.text());
    const std::string image = release.image();
    expectOnlyWhileChanging(
        release,
        {wrongSize, wrongDigest, incompleteImage,
         "read (the file is being changed) " + image + ": Resource temporarily unavailable"},
        [image] {
            // Grows by one byte, becomes too short, then gets back its length and its magic.
            if (::truncate(image.c_str(), 65538) != 0 || ::truncate(image.c_str(), 30000) != 0) return;
            writeTestFile(image, ReleaseFixture::smallestImage());
        });
}

// fault: the image is replaced while it is being read
// seen: "The embedded firmware checksum is not trusted.", "The embedded firmware size does not match its manifest."
TEST(HostileImage, ThatIsReplacedWhileItIsReadPassesOnlyAsTheOneOfTheManifest) {
    const ReleaseFixture release;
    release.writeManifest(release.manifest.text());
    std::string damaged = ReleaseFixture::smallestImage();
    damaged[65535] = 1;
    writeTestFile(release.resources() + "/good", ReleaseFixture::smallestImage());
    writeTestFile(release.resources() + "/damaged", damaged);
    writeTestFile(release.resources() + "/short", damaged.substr(1));
    expectOnlyWhileChanging(release, {wrongDigest, wrongSize},
                            [&release, next = release.resources() + "/next"] {
                                for (const char* name : {"/damaged", "/good", "/short", "/good"}) {
                                    fs::create_hard_link(release.resources() + name, next);
                                    fs::rename(next, release.image());
                                }
                            });
}

// fault: the resource folder may not be entered
// seen: "The embedded flash manifest is missing."
TEST(HostileImageDeathTest, InAFolderThatMayNotBeEnteredHasNoManifest) {
    const ReleaseFixture release;
    release.writeManifest(release.manifest.text());
    ASSERT_EQ(::chmod(release.resources().c_str(), 0), 0);
    EXPECT_EXIT(failAsOrdinaryUser([&] { (void)FlasherResources::load(release.bundle()); }),
                testing::ExitedWithCode(0), "^The embedded flash manifest is missing.$");
    ASSERT_EQ(::chmod(release.resources().c_str(), 0111), 0);
    EXPECT_EXIT(failAsOrdinaryUser([&] { (void)FlasherResources::load(release.bundle()); }),
                testing::ExitedWithCode(1), "^$");
}

}  // namespace
}  // namespace qelmo
