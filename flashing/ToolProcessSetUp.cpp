#include "flashing/ToolProcessSetUp.h"

#include <algorithm>
#include <utility>

#include "platform/Utf8.h"

namespace qelmo {

std::shared_ptr<ChildProcess> setUpToolProcess(ToolCommand command, std::shared_ptr<MainQueue> mainQueue,
                                               ToolProcessHandlers handlers) {
    auto process = ChildProcess::create(std::move(command.executable), std::move(command.arguments));
    process->setEnvironment(std::move(command.environment));
    process->setOutputHandler([appendText = std::move(handlers.appendText)](std::string_view bytes) {
        appendText(logTextOfChunk(bytes));
    });
    process->setTerminationHandler(
        [mainQueue = std::move(mainQueue),
         completionStep = std::move(handlers.completionStep)](const std::shared_ptr<ChildProcess>& ended) {
            ended->clearOutputHandler();
            mainQueue->post([completionStep, ended] { completionStep(ended); });
        });
    return process;
}

std::string logTextOfChunk(std::string_view bytes) {
    std::string text = decodedUtf8(bytes);
    std::replace(text.begin(), text.end(), '\r', '\n');
    return text;
}

}  // namespace qelmo
