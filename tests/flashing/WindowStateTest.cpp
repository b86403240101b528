#include "flashing/WindowState.h"

#include <gtest/gtest.h>

#include <array>
#include <ostream>

#include "tests/support/ReleaseFixture.h"

namespace qelmo {

/// A state as a test shows it: status, the flash button's title, what is enabled, whether it is busy, panel.
inline void PrintTo(const WindowState& state, std::ostream* out) {
    constexpr std::array colours{"accent", "warning", "danger"};
    *out << state.status << " (" << colours.at(static_cast<std::size_t>(state.statusColour)) << ") ["
         << state.flashTitle << "] " << (state.canFlash ? "flash " : "")
         << (state.canRefresh ? "refresh " : "") << (state.canChoosePort ? "port " : "")
         << (state.isBusy ? "busy " : "") << "| " << state.release;
}

namespace {

struct Row {
    std::string event;
    WindowState after;
    std::string shown;
};

TEST(WindowState, IsCompleteAfterEveryEvent) {
    const ReleaseFixture fixture;
    const FlasherResources release = fixture.load();
    const WindowState opened;
    const WindowState loaded = opened.withRelease(release);
    const WindowState ready = loaded.withPorts(1, true);
    const WindowState refused = ready.withRefusedRelease("Why.");
    const WindowState flashing = ready.flashing();

    const std::string panel = "Varnox  //  1.0.0\n65537 bytes  •  SHA-256 " + release.checksum.substr(0, 16) +
                              "…  •  ESP32-S3 / 8 MB / DIO / 80 MHz";
    const std::string verified = " [FLASH VERIFIED VARNOX] ";
    const std::string wrong = "RELEASE VALIDATION FAILED\nWhy.";
    const std::vector<Row> rows{
        {"the window is made", opened,
         "STARTING (warning) [VALIDATING RELEASE] refresh port | Validating embedded release…"},
        {"the release is loaded", loaded, "STARTING (warning)" + verified + "refresh port | " + panel},
        {"no port", loaded.withPorts(0, true),
         "WAITING FOR G0 BOOT PORT (warning)" + verified + "refresh | " + panel},
        {"one port", ready, "READY (accent)" + verified + "flash refresh port | " + panel},
        {"two ports", loaded.withPorts(2, true),
         "CHOOSE CARDPUTER PORT (accent)" + verified + "flash refresh port | " + panel},
        {"a port after none", loaded.withPorts(0, true).withPorts(1, true), testing::PrintToString(ready)},
        {"the first release is refused", opened.withRefusedRelease("Why."),
         "NOT READY (danger) [VALIDATING RELEASE] refresh port | " + wrong},
        {"a later release is refused", refused, "NOT READY (danger)" + verified + "refresh port | " + wrong},
        {"one port without a release", refused.withPorts(1, false),
         "READY (accent)" + verified + "refresh port | " + wrong},
        {"a job begins", flashing, "FLASHING — DO NOT DISCONNECT (warning)" + verified + "busy | " + panel},
        {"the tool cannot be started", flashing.launchFailed(),
         "FLASHER COULD NOT START (danger)" + verified + "flash refresh port | " + panel},
        {"the tool succeeds", flashing.flashed(true),
         "FLASH COMPLETE (accent)" + verified + "flash refresh port | " + panel},
        {"the tool fails", flashing.flashed(false),
         "FLASH FAILED (danger)" + verified + "flash refresh port | " + panel},
    };
    for (const Row& row : rows) EXPECT_EQ(testing::PrintToString(row.after), row.shown) << row.event;
}

}  // namespace
}  // namespace qelmo
