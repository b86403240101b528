#pragma once

#include <optional>
#include <set>
#include <string>
#include <vector>

#include "tests/model/Steps.h"

namespace qelmo {

/// Everything that can be seen of the window from outside. Both sides of the comparison fill one in.
struct WindowState {
    bool alive = false;  ///< what follows means something only then, except `command`
    bool visible = false;
    std::string panel, panelColour;
    std::string status, statusColour;
    std::vector<std::string> menu;
    int chosen = -1;
    bool menuEnabled = false;
    std::string refreshTitle;
    bool refreshEnabled = false;
    std::string flashTitle;
    bool flashEnabled = false;
    bool animating = false;
    std::string validated;  ///< version, size and digest of the release that is held, or nothing
    bool running = false;
    std::vector<std::string> ports;
    std::string log, logColour;
    std::string alert;  ///< all of the open alert, or nothing

    std::string command;  ///< of the tool that runs now, one argument a line

    /// One thing a line.
    [[nodiscard]] std::vector<std::string> lines() const;
};

/// An alert in one text.
[[nodiscard]] std::string alertText(const std::string& message, const std::string& details, bool critical,
                                    const std::vector<std::string>& buttons,
                                    const std::string& defaultButton);

/// What the model cannot know by itself: where things lie, and the system's own words.
struct Surroundings {
    std::string tool, image;
    std::string noImage, notJson, noLaunch;
};

/// What the window does, said a second time and as simply as possible, without a toolkit, files or children.
/// It shares no text and no rule with the application: what both say was written down twice.
class WindowModel {
public:
    explicit WindowModel(Surroundings surroundings) : surroundings_(std::move(surroundings)) {}

    void apply(const Step& step);
    /// What has been posted until now reaches the log.
    void runPosted();

    [[nodiscard]] const WindowState& state() const { return state_; }
    [[nodiscard]] bool alertIsOpen() const { return !state_.alert.empty(); }
    [[nodiscard]] bool toolRuns() const { return !state_.command.empty(); }
    /// The log's length when everything that has been posted is in it.
    [[nodiscard]] std::size_t logLength() const { return state_.log.size() + posted_.size(); }
    /// False when nothing would come of this step now.
    [[nodiscard]] bool canChange(const Step& step) const;

private:
    struct Release {
        std::string version, size, digest, title;
        std::string baud = "921600";
        bool erase = true;
    };
    /// A release or the reason against it.
    struct Verdict {
        std::optional<Release> release;
        std::string reason;
    };

    [[nodiscard]] Verdict verdict() const;
    [[nodiscard]] std::string command() const;

    void start();
    void validate(bool userInitiated);
    void listPorts();
    void pressFlash();
    void answer(Answer answer);
    void startJob();
    void endJob(Ending ending);
    void letGo();

    void giveControlsBack();
    void show(const char* status, const char* colour);
    void showError(const std::string& reason);
    void post(const std::string& text) { posted_ += text; }

    const Surroundings surroundings_;

    // The world.
    BundleState bundle_ = BundleState::firstRelease;
    std::set<std::string> devices_;
    bool hasTool_ = true;
    bool canLaunch_ = true;

    // The window.
    bool hasStarted_ = false;
    bool hasOwner_ = false;
    bool asksForConfirmation_ = false;
    std::optional<Release> validated_;
    Release flashed_;  ///< as it was at the press
    std::string flashedPort_;
    std::string posted_;
    WindowState state_;
};

}  // namespace qelmo
