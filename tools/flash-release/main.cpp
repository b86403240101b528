// Runs the application's flash job without the window, for tools/device-report. A tool for developers: no
// package and no bundle contains it. The application's own code loads and checks the release and makes the
// arguments and the environment of the tool.

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <exception>
#include <string>
#include <vector>

#include "flashing/BootPorts.h"
#include "flashing/FlashCommand.h"
#include "flashing/FlashTexts.h"
#include "platform/FilePath.h"
#include "platform/LaunchContext.h"
#include "platform/SystemError.h"
#include "platform/ThisProcess.h"
#include "platform/Utf8.h"
#include "release/FlasherFailure.h"
#include "release/FlasherResources.h"

namespace {

using namespace qelmo;

constexpr int misuse = 2;
constexpr const char* usage =
    "usage: flash-release [--check] BUNDLE PORT\n"
    "Flashes the release of BUNDLE to the device at PORT without asking; --check only prints what it would "
    "use.\n";

void requireBootPort(const LaunchContext& context, const std::string& port) {
    if (parentFolder(port) != context.deviceFolder || !isBootPortName(port.substr(port.rfind('/') + 1)))
        throw FlasherFailure(port + " is not the name of a Cardputer's port");
    const std::vector<std::string> ports = listBootPorts(context.deviceFolder);
    if (std::find(ports.begin(), ports.end(), port) == ports.end())
        throw FlasherFailure("there is no " + port);
}

std::string factsOf(const LaunchContext& context, const FlasherResources& release) {
    const FlashManifest& manifest = release.manifest;
    return "release=" + manifest.name + " " + manifest.version + "\npython=" + context.interpreter +
           "\nesptool=" + release.esptoolURL + "\nimage=" + release.firmwareURL +
           "\nsha256=" + release.checksum +
           "\nerase=" + (manifest.flash.eraseAllInternalFlash ? "yes" : "no") + "\n";
}

std::vector<char*> pointersTo(std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    pointers.reserve(texts.size() + 1);
    for (std::string& text : texts) pointers.push_back(text.data());
    pointers.push_back(nullptr);
    return pointers;
}

/// Replaces this process with the tool, as the window would run it. Unlike a job that the window starts, the
/// tool runs in this process, so the caller can end it. The caller restores the old content of the device
/// afterwards.
[[noreturn]] void becomeTool(const LaunchContext& context, const FlasherResources& release,
                             const std::string& port) {
    writeToStandardOutput(FlashTexts::startLine(port) + "\n");
    ToolCommand command = flashCommand(context, release, port);
    command.arguments.insert(command.arguments.begin(), command.executable);
    ::execve(command.executable.c_str(), pointersTo(command.arguments).data(),
             pointersTo(command.environment).data());
    throwSystemError(errno, "start", command.executable);
}

}  // namespace

int main(int argc, char** argv) {
    try {
        const LaunchContext context = LaunchContext::ofThisProcess(argc, argv);
        std::vector<std::string> arguments(argv + std::min(argc, 1), argv + argc);
        const bool checksOnly = !arguments.empty() && arguments.front() == "--check";
        if (checksOnly) arguments.erase(arguments.begin());
        if (arguments.size() != 2) {
            writeToStandardError(usage);
            return misuse;
        }
        requireBootPort(context, arguments[1]);
        const auto release = FlasherResources::load(arguments[0], context.homeFolder);
        if (checksOnly) {
            writeToStandardOutput(factsOf(context, release));
            return EXIT_SUCCESS;
        }
        becomeTool(context, release, arguments[1]);
    } catch (const std::exception& error) {
        writeToStandardError("flash-release: " + shownOnOneLine(errorDescription(error)) + "\n");
        return EXIT_FAILURE;
    }
}
