#include "platform/MainBundle.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "platform/ChildProcess.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/TestFiles.h"

namespace qelmo {
namespace {

using namespace std::string_literals;
namespace fs = std::filesystem;

/// Copies the reporting executable to `path` and returns that path.
std::string installReporter(const std::string& path) {
    fs::create_directories(fs::path(path).parent_path());
    fs::copy_file(QELMO_PROCESS_REPORT, path);
    return path;
}

/// Executable, bundle and icon as the program started at `path` sees them, with a NUL between.
std::string reportOf(const std::string& path) {
    const auto process = ChildProcess::create(path, {"bundle"});
    process->launch();
    process->waitUntilExit();
    return process->readToEndOfOutput();
}

TEST(MainBundle, IsTheFolderAroundContents) {
    EXPECT_EQ(bundleOfExecutable("/Applications/A.app/Contents/MacOS/A"), "/Applications/A.app");
    EXPECT_EQ(bundleOfExecutable("/my apps/\u00FC\xFF.app/Contents/MacOS/A"), "/my apps/\u00FC\xFF.app");
}

TEST(MainBundle, IsTheInnerBundleOfTwo) {
    EXPECT_EQ(bundleOfExecutable("/A.app/Contents/MacOS/B.app/Contents/MacOS/B"),
              "/A.app/Contents/MacOS/B.app");
}

TEST(MainBundle, IsTheExecutablesOwnFolderAnywhereElse) {
    EXPECT_EQ(bundleOfExecutable("/usr/local/bin/A"), "/usr/local/bin");
    EXPECT_EQ(bundleOfExecutable("/A"), "/");
    EXPECT_EQ(bundleOfExecutable("/A.app/Contents/Helpers/A"), "/A.app/Contents/Helpers");
    EXPECT_EQ(bundleOfExecutable("/A.app/Contents/macos/A"), "/A.app/Contents/macos");
    EXPECT_EQ(bundleOfExecutable("/A.app/myContents/MacOS/A"), "/A.app/myContents/MacOS");
}

TEST(MainBundle, KeepsItsResourcesInContentsResources) {
    EXPECT_EQ(resourceFolder("/A.app"), "/A.app/Contents/Resources");
}

TEST(MainBundle, IsFoundFromTheRunningExecutableWhateverItsPath) {
    const TemporaryFolder folder;
    const std::string bundle = folder / "my \u00FC \xFF.app";
    const std::string executable = installReporter(bundle + "/Contents/MacOS/A");
    EXPECT_EQ(reportOf(executable), executable + "\0"s + bundle + "\0none"s);

    fs::create_directories(resourceFolder(bundle));
    const std::string icon = resourceFolder(bundle) + "/AppIcon.icns";
    writeTestFile(icon, "");
    EXPECT_EQ(reportOf(executable), executable + "\0"s + bundle + "\0"s + icon);
}

TEST(MainBundle, IsThatOfTheRealExecutableWhenStartedThroughALink) {
    const TemporaryFolder folder;
    const std::string bundle = folder / "A.app";
    const std::string executable = installReporter(bundle + "/Contents/MacOS/A");
    fs::create_symlink(executable, folder / "link");
    EXPECT_EQ(reportOf(folder / "link"), executable + "\0"s + bundle + "\0none"s);
}

TEST(MainBundle, LooksForResourcesBelowAPlainFolderToo) {
    const TemporaryFolder folder;
    const std::string executable = installReporter(folder / "A");
    fs::create_directories(resourceFolder(folder.path()));
    const std::string icon = resourceFolder(folder.path()) + "/AppIcon.icns";
    writeTestFile(icon, "");
    EXPECT_EQ(reportOf(executable), executable + "\0"s + folder.path() + "\0"s + icon);
}

TEST(MainBundle, IsFoundAtAPathOfManyHundredBytes) {
    const TemporaryFolder folder;
    const std::string bundle = folder / (std::string(200, 'a') + "/" + std::string(200, 'b') + ".app");
    const std::string executable = installReporter(bundle + "/Contents/MacOS/A");
    EXPECT_EQ(reportOf(executable), executable + "\0"s + bundle + "\0none"s);
}

}  // namespace
}  // namespace qelmo
