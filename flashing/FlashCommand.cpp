#include "flashing/FlashCommand.h"

#include <string_view>

namespace qelmo {

constexpr std::string_view unbuffered = "PYTHONUNBUFFERED=";

ToolCommand flashCommand(const LaunchContext& context, const FlasherResources& release,
                         const std::string& port) {
    std::vector<std::string> environment = context.environment;
    std::erase_if(environment, [](const std::string& entry) { return entry.starts_with(unbuffered); });
    environment.push_back(std::string(unbuffered) + "1");
    return {context.interpreter, flashArguments(release, port), environment};
}

std::vector<std::string> flashArguments(const FlasherResources& release, const std::string& port) {
    const FlashManifest::Flash& flash = release.manifest.flash;
    std::vector<std::string> arguments{
        release.esptoolURL,         "--chip",   "esp32s3",       "--port",  port,        "--baud",
        std::to_string(flash.baud), "--before", "default_reset", "--after", flash.after, "write_flash"};
    if (flash.eraseAllInternalFlash) arguments.emplace_back("--erase-all");
    arguments.insert(arguments.end(),
                     {"--flash_mode", flash.flashMode, "--flash_freq", flash.flashFrequency, "--flash_size",
                      flash.flashSize, "--verify", "0x0", release.firmwareURL});
    return arguments;
}

}  // namespace qelmo
