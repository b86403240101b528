// The application's flash job without its window, for tools/device-report. A developer's program: no package
// and no bundle holds it. Release, checks, arguments and child process are the application's own code.

#include <algorithm>
#include <cstdlib>
#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

#include "flashing/BootPorts.h"
#include "flashing/FlashCommand.h"
#include "flashing/FlashTexts.h"
#include "flashing/ToolProcess.h"
#include "platform/ThisProcess.h"
#include "platform/Utf8.h"
#include "release/FlasherFailure.h"
#include "release/FlasherResources.h"
#include "tools/flash-release/TaskQueue.h"

namespace {

using namespace qelmo;

constexpr int misuse = 2;
constexpr const char* usage =
    "usage: flash-release [--check] BUNDLE PORT\n"
    "Flashes the release of BUNDLE to the device at PORT without asking; --check only says what it would "
    "use.\n";

void requireBootPort(const std::string& port) {
    const std::string name = port.substr(port.rfind('/') + 1);
    if (candidateBootPorts({name}) != std::vector{port})
        throw FlasherFailure(port + " is not the name of a Cardputer's port");
    const std::vector<std::string> ports = listBootPorts();
    if (std::find(ports.begin(), ports.end(), port) == ports.end())
        throw FlasherFailure("there is no " + port);
}

std::string factsOf(const FlasherResources& release) {
    const FlashManifest& manifest = release.manifest;
    return "release=" + manifest.name + " " + manifest.version + "\npython=" + pythonPath +
           "\nesptool=" + release.esptoolURL + "\nimage=" + release.firmwareURL +
           "\nsha256=" + release.checksum +
           "\nerase=" + (manifest.flash.eraseAllInternalFlash ? "yes" : "no") + "\n";
}

/// The job goes on when nobody reads its output any more, and nothing thrown leaves the reader thread.
void showText(const std::string& text) {
    try {
        writeToStandardOutput(text);
    } catch (const std::system_error&) {
        return;
    }
}

/// Runs the flash job as the window does and returns the tool's status.
int flash(const FlasherResources& release, const std::string& port) {
    const auto queue = std::make_shared<TaskQueue>();
    std::optional<int> status;
    const auto process = setUpToolProcess(pythonPath, flashArguments(release, port), queue,
                                          {showText, [&status](const std::shared_ptr<ChildProcess>& ended) {
                                               status = ended->terminationStatus();
                                           }});
    writeToStandardOutput(FlashTexts::startLine(port) + "\n");
    process->launchSupervised();
    while (!status) queue->runNext();
    return *status;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        normalizeProcess();
        std::vector<std::string> arguments(argv + std::min(argc, 1), argv + argc);
        const bool checksOnly = !arguments.empty() && arguments.front() == "--check";
        if (checksOnly) arguments.erase(arguments.begin());
        if (arguments.size() != 2) {
            writeToStandardError(usage);
            return misuse;
        }
        requireBootPort(arguments[1]);
        const auto release = FlasherResources::load(arguments[0]);
        if (checksOnly) {
            writeToStandardOutput(factsOf(release));
            return EXIT_SUCCESS;
        }
        const bool succeeded = flash(release, arguments[1]) == 0;
        writeToStandardOutput(std::string(succeeded ? FlashTexts::completeLine : FlashTexts::failedLine) +
                              "\n");
        return succeeded ? EXIT_SUCCESS : EXIT_FAILURE;
    } catch (const std::exception& error) {
        writeToStandardError("flash-release: " + shownOnOneLine(errorDescription(error)) + "\n");
        return EXIT_FAILURE;
    }
}
