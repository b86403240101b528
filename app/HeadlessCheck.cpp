#include "app/HeadlessCheck.h"

#include <array>
#include <cstdlib>
#include <exception>

#include "platform/Spawn.h"
#include "platform/ThisProcess.h"
#include "platform/Utf8.h"
#include "release/FlasherFailure.h"
#include "release/ReleaseTexts.h"

namespace qelmo {

int runHeadlessSelfTest(const LaunchContext& context) {
    try {
        if (!applicationIconURL(context.bundleURL))
            throw FlasherFailure("AppIcon.icns is missing from the application bundle");
        const auto release = FlasherResources::load(context.bundleURL, context.homeFolder);
        const std::string toolVersion = esptoolVersion(context.interpreter, release.esptoolURL);
        for (const std::string& line : {
                 std::string("app_bundle=OK"),
                 "release=" + release.manifest.version,
                 "flash_button=" + verifiedFlashButtonTitle(release.manifest),
                 "binary_size=" + std::to_string(release.manifest.binary.size),
                 "sha256=" + release.checksum,
                 std::string("flash_address=0x0"),
                 "esptool=" + toolVersion,
                 std::string("serial_access=NONE"),
                 std::string("icon=AppIcon.icns"),
             })
            writeToStandardOutput(line + "\n");
        return EXIT_SUCCESS;
    } catch (const std::exception& error) {
        writeToStandardError("self-test failed: " + errorDescription(error) + "\n");
        return EXIT_FAILURE;
    }
}

std::string esptoolVersion(const std::string& interpreter, const std::string& esptoolURL) {
    // The version command prints far less than a pipe holds.
    const FinishedProcess process = runToEnd(interpreter, {esptoolURL, "version"}, ReadOutput::afterExit);
    const std::string output = decodedUtf8(process.output);
    if (process.terminationStatus != 0) throw FlasherFailure("Espressif tool check failed: " + output);
    return versionFromOutput(output);
}

/// The newline characters of Unicode; well-formed UTF-8 can be searched for them as byte sequences.
constexpr auto lineSeparators =
    std::to_array<std::string_view>({"\n", "\v", "\f", "\r", "\u0085", "\u2028", "\u2029"});

std::string versionFromOutput(std::string_view output) {
    const auto separatorAtEnd = [](std::string_view text) -> std::size_t {
        for (const std::string_view separator : lineSeparators) {
            if (text.ends_with(separator)) return separator.size();
        }
        return 0;
    };
    while (const std::size_t length = separatorAtEnd(output)) output.remove_suffix(length);
    if (output.empty()) return "unknown";
    std::size_t lineStart = output.size();
    while (lineStart > 0 && separatorAtEnd(output.substr(0, lineStart)) == 0) --lineStart;
    return std::string(output.substr(lineStart));
}

}  // namespace qelmo
