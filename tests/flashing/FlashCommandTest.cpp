#include "flashing/FlashCommand.h"

#include <gmock/gmock.h>

#include "tests/support/ReleaseFixture.h"

namespace qelmo {
namespace {

using testing::ElementsAre;

constexpr const char* port = "/dev/cu.usbmodem101";

std::string joined(const std::vector<std::string>& arguments) {
    std::string text;
    for (const std::string& argument : arguments) text += argument + "|";
    return text;
}

TEST(FlashCommand, RunsTheToolWithTheOptionsOfTheManifestUnchanged) {
    ReleaseFixture fixture;
    fixture.manifest.set("flash.after", R"("no reset ")").set("flash.flashFrequency", R"("")");
    LaunchContext context;
    context.interpreter = "/some/python";
    const std::string similar = "PYTHONUNBUFFERED2=x";
    context.environment = {"PYTHONUNBUFFERED=", "A=1", similar, "PYTHONUNBUFFERED=0"};
    const ToolCommand command = flashCommand(context, fixture.load(), port);
    const std::string beforeErase = fixture.tool() +
                                    "|--chip|esp32s3|--port|/dev/cu.usbmodem101|--baud|921600|"
                                    "--before|default_reset|--after|no reset |write_flash|";
    const std::string afterErase =
        "--flash_mode|dio|--flash_freq||--flash_size|8MB|--verify|0x0|" + fixture.image() + "|";
    EXPECT_EQ(command.executable, "/some/python");
    EXPECT_EQ(joined(command.arguments), beforeErase + "--erase-all|" + afterErase);
    EXPECT_THAT(command.environment, ElementsAre("A=1", similar, "PYTHONUNBUFFERED=1"));

    fixture.manifest.set("flash.eraseAllInternalFlash", "false");
    EXPECT_EQ(joined(flashArguments(fixture.load(), port)), beforeErase + afterErase);
}

}  // namespace
}  // namespace qelmo
