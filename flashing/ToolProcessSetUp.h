#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "flashing/FlashCommand.h"
#include "platform/ChildProcess.h"
#include "platform/MainQueue.h"

namespace qelmo {

/// What a tool run reports to. `appendText` is called on a background thread, one call at a time;
/// `completionStep` runs once, on the main queue, after the tool has ended.
struct ToolProcessHandlers {
    std::function<void(std::string text)> appendText;
    std::function<void(const std::shared_ptr<ChildProcess>& process)> completionStep;
};

/// Sets up one supervised run of the flashing tool; `launch` on the result starts it. When the tool has
/// exited, what is still in the pipe is not read any more, and the completion step is posted. Nothing stops
/// the child: there is no time-out and no cancelling.
[[nodiscard]] std::shared_ptr<ChildProcess> setUpToolProcess(ToolCommand command,
                                                             std::shared_ptr<MainQueue> mainQueue,
                                                             ToolProcessHandlers handlers);

/// The text of one chunk as the log shows it: ill-formed UTF-8 becomes U+FFFD (each chunk is decoded on its
/// own), and every carriage return becomes a line feed, so that each redraw of a line is a line.
[[nodiscard]] std::string logTextOfChunk(std::string_view bytes);

}  // namespace qelmo
