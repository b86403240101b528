#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

#include "tests/release/HostileRelease.h"
#include "tests/support/ReleaseFixture.h"

namespace qelmo {
namespace {

namespace fs = std::filesystem;

// What the system calls the longest path, with its final NUL.
constexpr std::size_t longestPath = 4096;

/// The refusal of a release whose manifest names the image by `json`; "" when it passes.
std::string refusalOf(ReleaseFixture& release, const std::string& json) {
    release.manifest.set("binary.path", '"' + json + '"');
    return release.failure();
}

// fault: binary.path leads out of the resource folder, is absolute, or is a folder
// seen: "Is a directory", "Not a directory", "No such file or directory"
TEST(HostilePath, ThatIsNoFileOfTheFolderIsRefusedWithThePathAsWritten) {
    ReleaseFixture release;
    const std::string folder = release.resources() + "/";
    for (const char* path : {"", ".", "..", "../..", "/", "//", "./."})
        EXPECT_EQ(refusalOf(release, path), "read " + folder + path + ": Is a directory");
    for (const char* path :
         {"/etc/hostname", "../release-complete.bin", "Release-complete.bin", " release-complete.bin",
          "release-complete.bin ", "~/release-complete.bin", "$HOME", "%s%n", "*"})
        EXPECT_EQ(refusalOf(release, path), "open " + folder + path + ": No such file or directory");
    EXPECT_EQ(refusalOf(release, "release-complete.bin/"), "open " + release.image() + "/: Not a directory");
    EXPECT_EQ(refusalOf(release, "release-complete.bin/../release-complete.bin"),
              "open " + release.image() + "/../release-complete.bin: Not a directory");
}

// fault: binary.path leads to a device outside of the bundle
// seen: "read (not a regular file) …: Invalid argument"
TEST(HostilePath, ToADeviceOutsideIsRefused) {
    ReleaseFixture release;
    std::string up;
    for (int level = 0; level < 40; ++level) up += "../";
    for (const char* device : {"dev/zero", "dev/full"})
        EXPECT_EQ(refusalOf(release, up + device), "read (not a regular file) " + release.resources() + "/" +
                                                       up + device + ": Invalid argument");
}

TEST(HostilePath, OfAnyCharactersIsTakenAsItStands) {
    ReleaseFixture release;
    for (const std::string name :
         {" two  words ", "\u05D0\u05D1\u05D2", "e\u0301 \u00E9 \U0001F600", "<b>&amp;", "'\\$(id)`;|*?%s",
          "\u202Enib", "line\nfeed", "-rf", "...", "\u0085\u2028"}) {
        fs::create_hard_link(release.image(), release.resources() + "/" + name);
        std::string json;
        for (const char unit : name)
            json += unit == '\n' ? "\\n" : unit == '\\' ? "\\\\" : std::string(1, unit);
        release.manifest.set("binary.path", '"' + json + '"');
        EXPECT_EQ(release.load().firmwareURL, release.resources() + "/" + name);
    }
}

// fault: binary.path holds control characters or line breaks
TEST(HostilePath, WithControlCharactersIsShownOnOneLine) {
    ReleaseFixture release;
    for (int unit = 1; unit < 0x20; ++unit) {
        std::string escape = "\\u0000";
        escape[4] = "01"[unit / 16];
        escape[5] = "0123456789abcdef"[unit % 16];
        EXPECT_EQ(refusalOf(release, "a" + escape + "b"),
                  "open " + release.resources() + "/a?b: No such file or directory");
    }
    for (const char* unit : {"\u0085", "\u2028", "\u2029", "\u202E", "\u2066"})
        EXPECT_EQ(refusalOf(release, "a" + std::string(unit) + "b"),
                  "open " + release.resources() + "/a?b: No such file or directory");
    EXPECT_EQ(refusalOf(release, "a\\u007Fb"),
              "open " + release.resources() + "/a?b: No such file or directory");
    EXPECT_EQ(refusalOf(release, "\\u0000"), "open " + release.resources() + "/?: Invalid argument");
    EXPECT_EQ(refusalOf(release, "release-complete.bin\\u0000"),
              "open " + release.image() + "?: Invalid argument");
}

// fault: binary.path is longer than the system takes
// seen: "File name too long"
TEST(HostilePath, OfTheSystemsLongestPathPassesAndALongerOneIsRefused) {
    ReleaseFixture release;
    const std::string name = "release-complete.bin";
    const std::size_t longest = longestPath - 1 - release.resources().size() - 1;
    // Slashes in a row are one.
    const auto ofLength = [&](std::size_t length) { return std::string(length - name.size(), '/') + name; };
    EXPECT_EQ(refusalOf(release, ofLength(longest)), "");
    for (const std::string& path : {std::string(3000, 'x'), ofLength(longest + 1)}) {
        const std::string refusal = refusalOf(release, path);
        EXPECT_EQ(refusal, "open " + release.resources() + "/" + path + ": File name too long");
        EXPECT_THAT(refusal, IsOneLineOfAtMost(2 * longestPath));
    }
}

TEST(HostilePath, OfAMillionCharactersIsCutInTheRefusal) {
    ReleaseFixture release;
    const std::string refusal = refusalOf(release, std::string(1'000'000, 'x'));
    EXPECT_THAT(refusal, testing::AllOf(testing::StartsWith("open " + release.resources() + "/xxx"),
                                        testing::EndsWith("xxx...: File name too long")));
    EXPECT_THAT(refusal, IsOneLineOfAtMost(2 * longestPath));
}

// fault: the image is a symbolic link
// seen: "No such file or directory", "Too many levels of symbolic links", "Is a directory"
TEST(HostilePath, ThatIsALinkIsFollowedAndNamedByItself) {
    ReleaseFixture release;
    const std::string link = release.resources() + "/link";
    const auto refusalWithLinkTo = [&](const std::string& target) {
        fs::remove(link);
        fs::create_symlink(target, link);
        return refusalOf(release, "link");
    };
    EXPECT_EQ(refusalWithLinkTo("release-complete.bin"), "");
    EXPECT_EQ(release.load().firmwareURL, link);
    EXPECT_EQ(refusalWithLinkTo("none"), "open " + link + ": No such file or directory");
    EXPECT_EQ(refusalWithLinkTo("link"), "open " + link + ": Too many levels of symbolic links");
    EXPECT_EQ(refusalWithLinkTo(".."), "read " + link + ": Is a directory");
    // A file of no length by the system's word, although it has content.
    EXPECT_EQ(refusalWithLinkTo("/proc/self/maps"),
              "The embedded firmware size does not match its manifest.");
    release.manifest.set("binary.size", "0");
    EXPECT_EQ(refusalWithLinkTo("/proc/self/maps"),
              "read (the file is being changed) " + link + ": Resource temporarily unavailable");
}

TEST(HostilePath, OfTheBundleMayBeAnyBytesAndIsShownAsTextInARefusal) {
    ReleaseFixture release;
    for (const auto& [name, shown] : {std::pair<std::string, std::string>{" a  b ", " a  b "},
                                      {"\xFF\xC0\xAF.app", "\uFFFD\uFFFD\uFFFD.app"},
                                      {"\u05D0\n", "\u05D0?"},
                                      {"<b>&", "<b>&"}}) {
        const TemporaryFolder folder;
        release.writeManifest(release.manifest.set("binary.path", R"("release-complete.bin")").text());
        fs::copy(release.bundle(), folder / name, fs::copy_options::recursive);
        const std::string resources = "/Contents/Resources/";
        EXPECT_EQ(FlasherResources::load(folder / name).firmwareURL,
                  (folder / name) + resources + "release-complete.bin");
        fs::remove((folder / name) + resources + "release-complete.bin");
        try {
            (void)FlasherResources::load(folder / name);
            ADD_FAILURE() << "loaded";
        } catch (const std::system_error& error) {
            EXPECT_EQ(error.what(), "open " + (folder / shown) + resources +
                                        "release-complete.bin: No such file or directory");
        }
    }
}

}  // namespace
}  // namespace qelmo
