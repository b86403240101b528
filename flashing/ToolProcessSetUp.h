#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "flashing/FlashCommand.h"
#include "platform/ChildProcess.h"
#include "platform/MainQueue.h"

namespace qelmo {

/// The handlers of one tool run. `appendText` is called on a background thread, one call at a time;
/// `completionStep` runs once, on the main queue, after the tool has exited.
struct ToolProcessHandlers {
    std::function<void(std::string text)> appendText;
    std::function<void(const std::shared_ptr<ChildProcess>& process)> completionStep;
};

/// Sets up one supervised run of the flashing tool; call `launch` on the result to start it. When the tool
/// exits, output that has not been read yet is discarded, and the completion step is posted. Nothing stops
/// the child: there is no time-out and no way to cancel.
[[nodiscard]] std::shared_ptr<ChildProcess> setUpToolProcess(ToolCommand command,
                                                             std::shared_ptr<MainQueue> mainQueue,
                                                             ToolProcessHandlers handlers);

/// The text of one chunk as the log shows it. Ill-formed UTF-8 becomes U+FFFD; each chunk is decoded on its
/// own. Every carriage return becomes a line feed, so the log gets a new line each time a line is redrawn.
[[nodiscard]] std::string logTextOfChunk(std::string_view bytes);

}  // namespace qelmo
