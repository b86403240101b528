// Releases that are made to cost memory or time, or that change while they are read.

#include <gmock/gmock.h>
#include <sys/resource.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "tests/support/ReleaseFixture.h"

namespace qelmo {
namespace {

namespace fs = std::filesystem;

constexpr const char* wrongSize = "The embedded firmware size does not match its manifest.";
constexpr std::size_t longestManifest = 2U << 20;

long peakKiB() {
    rusage used{};
    ::getrusage(RUSAGE_SELF, &used);
    return used.ru_maxrss;
}

/// Loads the release in a separate process, with at most `limitMiB` MiB of memory and 60 s.
void expectRefusalWithin(long limitMiB, const ReleaseFixture& release, const std::string& refusal) {
    const auto load = [&] {
        constexpr rlimit cpuSeconds{60, 60};
        ::setrlimit(RLIMIT_CPU, &cpuSeconds);
        const long before = peakKiB();
        std::fputs(release.failureOfFiles().c_str(), stderr);
        std::fflush(stderr);
        std::_Exit(peakKiB() - before > limitMiB * 1024 ? 1 : 0);
    };
    EXPECT_EXIT(load(), testing::ExitedWithCode(0), '^' + refusal);
}

TEST(HostileManifest, OfTheLargestLengthIsReadAndOneByteMoreIsNot) {
    const ReleaseFixture release;
    std::string text = release.manifest.text();
    text.resize(longestManifest, ' ');
    release.writeManifest(text);
    EXPECT_EQ(release.failureOfFiles(), "");
    release.writeManifest(text + ' ');
    EXPECT_EQ(release.failureOfFiles(), "read " + release.manifestFile() + ": File too large");
}

// fault: the manifest is nested as deeply as its length allows, or contains only small values
// seen: "The flash manifest is not valid JSON: …", "expected an object, found an array"
TEST(HostileManifestDeathTest, OfTheWorstFormIsRefusedWithinBoundedMemory) {
    const ReleaseFixture release;
    const auto repeated = [](std::string_view part) {
        std::string text;
        while (text.size() + part.size() < longestManifest - 4) text += part;
        return text;
    };
    const std::string half(longestManifest / 2, '[');
    const char* unfinished = "The flash manifest is not valid JSON: parse error at line 1, column ";
    const char* anArray = "The flash manifest: expected an object, found an array$";
    const std::pair<std::string, const char*> worst[] = {{repeated("["), unfinished},
                                                         {repeated(R"({"":)"), unfinished},
                                                         {half + std::string(half.size(), ']'), anArray},
                                                         {"[" + repeated("{},") + "{}]", anArray}};
    for (const auto& [text, refusal] : worst) {
        release.writeManifest(text);
        expectRefusalWithin(400, release, refusal);
    }
}

// fault: the manifest or the image is a file of 1 TB, or the image is one byte longer than allowed
// seen: "read …: File too large", "The embedded firmware size does not match its manifest."
TEST(HostileReleaseDeathTest, OfAHugeLengthIsRefusedWithoutBeingRead) {
    ReleaseFixture release;
    release.writeManifest(release.manifest.text());
    fs::resize_file(release.image(), 1ULL << 40);
    expectRefusalWithin(16, release, wrongSize);
    constexpr std::uint64_t size = (256ULL << 20) + 1;
    fs::resize_file(release.image(), size);
    release.writeManifest(release.manifest.set("binary.size", std::to_string(size)).text());
    expectRefusalWithin(16, release, "read .*/release-complete.bin: File too large$");
    fs::resize_file(release.manifestFile(), 1ULL << 40);
    expectRefusalWithin(16, release, "read .*/qelmo-varnox-flash-manifest.json: File too large$");
}

// fault: the image becomes shorter while it is read
// seen: "The embedded firmware size does not match its manifest."
TEST(HostileImage, IsRefusedWhenItHoldsLessThanItsReportedLength) {
    ReleaseFixture release;
    fs::remove(release.image());
    const std::string shorterThanItsLength = "/sys/devices/system/cpu/online";
    fs::create_symlink(shorterThanItsLength, release.image());
    release.manifest.set("binary.size", std::to_string(fs::file_size(shorterThanItsLength)));
    EXPECT_EQ(release.failure(), wrongSize);
}

}  // namespace
}  // namespace qelmo
