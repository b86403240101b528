#include "app/HeadlessSelfTest.h"

#include <cstdlib>
#include <exception>

#include "app/EsptoolProbe.h"
#include "platform/MainBundle.h"
#include "platform/ThisProcess.h"
#include "release/FlashButtonTitle.h"
#include "release/FlasherFailure.h"

namespace qelmo {

int runHeadlessSelfTest() {
    try {
        if (!MainBundle::urlForApplicationIcon())
            throw FlasherFailure("AppIcon.icns is missing from the application bundle");
        const auto release = FlasherResources::load(MainBundle::bundleURL());
        const std::string toolVersion = esptoolVersion(release.esptoolURL);
        for (const std::string& line : selfTestReport(release, toolVersion)) writeToStandardOutput(line);
        return EXIT_SUCCESS;
    } catch (const std::exception& error) {
        writeToStandardError("self-test failed: " + errorDescription(error) + "\n");
        return EXIT_FAILURE;
    }
}

std::vector<std::string> selfTestReport(const FlasherResources& release, const std::string& toolVersion) {
    return {"app_bundle=OK\n",
            "release=" + release.manifest.version + "\n",
            "flash_button=" + verifiedFlashButtonTitle(release.manifest) + "\n",
            "binary_size=" + std::to_string(release.manifest.binary.size) + "\n",
            "sha256=" + release.checksum + "\n",
            "flash_address=0x0\n",
            "esptool=" + toolVersion + "\n",
            "serial_access=NONE\n",
            "icon=AppIcon.icns\n"};
}

}  // namespace qelmo
