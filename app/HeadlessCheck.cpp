#include "app/HeadlessCheck.h"

#include <cstdlib>
#include <exception>
#include <string>

#include "app/EsptoolProbe.h"
#include "platform/ThisProcess.h"
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

}  // namespace qelmo
