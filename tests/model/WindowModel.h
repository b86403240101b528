#pragma once

#include <optional>
#include <string>
#include <vector>

#include "flashing/WindowState.h"
#include "platform/LaunchContext.h"
#include "release/FlasherResources.h"
#include "ui/Alert.h"

namespace qelmo {

/// A second version of the delegate, without a toolkit, threads or child processes. It models which pure
/// functions are applied and in which order, the order of the log's text, and which alert opens.
class WindowModel {
public:
    explicit WindowModel(const LaunchContext& context) : context_(context) {}

    void start();
    void refresh();
    void pressFlash();
    void choosePort(int index);
    /// Answers the open alert: with its first button, or in another way.
    void answer(bool byFirstButton);
    void toolEnds(bool well);
    void append(const std::string& text) { posted_ += text; }
    void close() { visible = false; }
    void letGo();
    /// Appends to the log what has been posted so far.
    void runPosted();

    [[nodiscard]] std::size_t logLength() const { return log.size() + posted_.size(); }

    bool canLaunch = true;

    bool alive = false;
    bool visible = false;
    bool running = false;
    WindowState state;
    std::optional<FlasherResources> resources;
    std::vector<std::string> ports;
    int chosenPort = -1;
    std::string log;
    std::optional<Alert> alert;
    std::string command;  ///< of the running tool, one argument per line

private:
    void validate(bool userInitiated);
    void startJob();
    void showError(const std::string& reason);

    const LaunchContext& context_;
    bool hasOwner_ = false;
    bool isConfirming_ = false;
    std::optional<FlasherResources> flashed_;
    std::string flashedPort_;
    std::string posted_;
};

}  // namespace qelmo
