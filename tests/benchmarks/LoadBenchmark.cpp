// Loads the release of a bundle again and again; beside each load, the digest alone over the same bytes,
// which are already in memory. Prints one line a round: the nanoseconds of the load and those of the digest.
//   load_benchmark BUNDLE ROUNDS

#include <cstdio>
#include <cstdlib>

#include "platform/FilePath.h"
#include "platform/FileReading.h"
#include "platform/Sha256.h"
#include "release/FlasherResources.h"
#include "tests/benchmarks/Stopwatch.h"

int main(int argumentCount, char** arguments) {
    using namespace qelmo;
    if (argumentCount != 3) return 2;
    const std::string bundle = arguments[1];
    const std::string home = currentHomeFolder();
    const std::string firmware = FlasherResources::load(bundle, home).firmwareURL;
    const FileBytes image = RegularFile(firmware).readAll(std::uint64_t{1} << 30);

    for (int round = std::atoi(arguments[2]); round > 0; --round) {
        const Stopwatch load;
        const FlasherResources release = FlasherResources::load(bundle, home);
        const auto loadTime = load.nanoseconds();
        const Stopwatch digest;
        const Sha256Digest value = sha256(image.span());
        const auto digestTime = digest.nanoseconds();
        if (value == Sha256Digest{} || release.checksum.empty()) return 1;
        std::printf("%lld %lld\n", loadTime, digestTime);
    }
    return 0;
}
