#include "flashing/FlashCommand.h"

#include <string_view>

namespace qelmo {

ToolCommand flashCommand(const LaunchContext& context, const FlasherResources& release,
                         const std::string& port) {
    return {context.interpreter, flashArguments(release, port), unbufferedEnvironment(context.environment)};
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

std::vector<std::string> unbufferedEnvironment(std::vector<std::string> inherited) {
    constexpr std::string_view name = "PYTHONUNBUFFERED=";
    std::erase_if(inherited, [name](const std::string& entry) { return entry.starts_with(name); });
    inherited.push_back(std::string(name) + "1");
    return inherited;
}

}  // namespace qelmo
