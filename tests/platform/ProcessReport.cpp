// Started by the tests; says what the platform's operations tell about this very process.

#include <unistd.h>

#include <csignal>
#include <fstream>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "platform/ChildProcess.h"
#include "platform/MainBundle.h"
#include "platform/ThisProcess.h"

namespace {

using namespace qelmo;

/// Each argument with a NUL behind it.
void reportArguments() {
    std::string report;
    for (const std::string& argument : processArguments()) report += argument + '\0';
    writeToStandardOutput(report);
}

/// The bundle, the icon that was found in it and whether the exact argument "--exact" was given.
void reportBundle() {
    const std::string icon = MainBundle::urlForResource("AppIcon", "icns").value_or("none");
    writeToStandardOutput(executablePath() + '\0' + MainBundle::bundleURL() + '\0' + icon);
}

/// One line a stream: which number the next descriptor gets, and what the streams do.
void reportStreams(const char* path) {
    normalizeProcess();
    std::ofstream report(path);
    char unit = 0;
    report << "read 0: " << ::read(STDIN_FILENO, &unit, 1) << "\n";
    for (const int stream : {STDOUT_FILENO, STDERR_FILENO})
        report << "write " << stream << ": " << ::write(stream, "x", 1) << "\n";
    try {
        writeToStandardOutput("text");
        report << "written\n";
    } catch (const std::system_error& error) {
        report << error.what() << "\n";
    }
    writeToStandardError("text");
    const int next = ::dup(STDOUT_FILENO);
    report << "next descriptor above 2: " << (next > 2) << "\n";
    report << "SIGCHLD default: " << (std::signal(SIGCHLD, SIG_DFL) == SIG_DFL) << "\n";
    report << "SIGPIPE ignored: " << (std::signal(SIGPIPE, SIG_DFL) == SIG_IGN) << "\n";
}

/// Supervises the given command, reports this process's number on standard output and then waits to be
/// killed.
void supervise(const std::vector<std::string>& command) {
    const auto process = ChildProcess::create(command.front(), {command.begin() + 1, command.end()});
    process->setOutputHandler([](std::string_view) {});
    process->launchSupervised();
    writeToStandardOutput(std::to_string(::getpid()) + "\n");
    for (const int stream : {STDOUT_FILENO, STDERR_FILENO}) ::close(stream);
    for (;;) ::pause();
}

}  // namespace

int main(int count, char** arguments) {
    const std::string what = count > 1 ? arguments[1] : "";
    if (what == "arguments") reportArguments();
    if (what == "bundle") reportBundle();
    if (what == "streams") reportStreams(arguments[2]);
    if (what == "supervise") supervise({arguments + 2, arguments + count});
    if (what == "has") return hasProcessArgument("--exact") ? 0 : 1;
    return 0;
}
