#include "flashing/FlashCommand.h"

#include <gmock/gmock.h>

#include <clocale>

#include "flashing/BootPorts.h"
#include "tests/support/ReleaseFixture.h"
#include "tests/support/ScopedEnvironment.h"

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
    context.environment = {"A=1"};
    const ToolCommand command = flashCommand(context, fixture.load(), port);
    const std::string beforeErase = fixture.tool() +
                                    "|--chip|esp32s3|--port|/dev/cu.usbmodem101|--baud|921600|"
                                    "--before|default_reset|--after|no reset |write_flash|";
    const std::string afterErase =
        "--flash_mode|dio|--flash_freq||--flash_size|8MB|--verify|0x0|" + fixture.image() + "|";
    EXPECT_EQ(command.executable, "/some/python");
    EXPECT_EQ(joined(command.arguments), beforeErase + "--erase-all|" + afterErase);
    EXPECT_THAT(command.environment, ElementsAre("A=1", "PYTHONUNBUFFERED=1"));

    fixture.manifest.set("flash.eraseAllInternalFlash", "false");
    EXPECT_EQ(joined(flashArguments(fixture.load(), port)), beforeErase + afterErase);
}

TEST(FlashCommand, ReplacesTheVariableThatBuffersOutputWhateverItsValueAndNoSimilarOne) {
    for (const char* before : {"PYTHONUNBUFFERED=", "PYTHONUNBUFFERED=0", "PYTHONUNBUFFERED=1"})
        EXPECT_THAT(unbufferedEnvironment({before, "PYTHONUNBUFFERED2=x", "XPYTHONUNBUFFERED=y", before}),
                    ElementsAre("PYTHONUNBUFFERED2=x", "XPYTHONUNBUFFERED=y", "PYTHONUNBUFFERED=1"));
}

#ifdef __linux__
TEST(Numbers, AreDigitsAloneInALanguageThatGroupsThem) {
    const ScopedEnvironment locales("LOCPATH", QELMO_LOCALES);
    const ScopedEnvironment german("LC_ALL", "de_DE.UTF-8");
    ASSERT_NE(std::setlocale(LC_ALL, ""), nullptr);
    EXPECT_STRNE(std::localeconv()->grouping, "");
    EXPECT_EQ(bootPortReport(1000), "Found 1000 candidate boot ports.");
    for (const char* baud : {"9223372036854775807", "-1"}) {
        ReleaseFixture fixture;
        fixture.manifest.set("flash.baud", baud);
        EXPECT_EQ(flashArguments(fixture.load(), port).at(6), baud);
    }
    std::setlocale(LC_ALL, "C");
}
#endif

}  // namespace
}  // namespace qelmo
