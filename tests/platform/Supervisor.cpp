// Started by the tests: supervises the given command, reports that it runs, then waits to be killed.

#include <unistd.h>

#include "platform/ChildProcess.h"
#include "platform/ThisProcess.h"

int main(int count, char** arguments) {
    const auto process = qelmo::ChildProcess::create(arguments[1], {arguments + 2, arguments + count});
    process->setOutputHandler([](std::string_view) {});
    process->setTerminationHandler([](const auto&) {});
    process->launch();
    qelmo::writeToStandardOutput("launched\n");
    for (;;) ::pause();
}
