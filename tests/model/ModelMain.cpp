// Plays random steps on the real window and on a model of it. Shortens a sequence after which they differ.
//
//     window_model [--seed N] [--sequences N]     the sequences of the seeds from N on
//     window_model --replay "STEP STEP ..."

#include <unistd.h>

#include <QApplication>
#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "platform/Spawn.h"
#include "tests/model/Player.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/Waiting.h"
#include "ui/DesktopLook.h"

namespace {

using Steps = std::vector<std::string>;

Steps wordsOf(const std::string& text) {
    std::istringstream stream(text);
    return {std::istream_iterator<std::string>(stream), {}};
}

std::string joined(const Steps& steps) {
    std::string text;
    for (const std::string& step : steps) text += (text.empty() ? "" : " ") + step;
    return text;
}

/// The playing process. A sequence that hangs ends the process.
int play(int argumentCount, char** arguments, std::map<std::string, std::string>& options) {
    QApplication application(argumentCount, arguments);
    qelmo::applyDarkControls(application);
    QApplication::setQuitOnLastWindowClosed(false);
    const auto playOne = [](qelmo::Player&& player) {
        ::alarm(static_cast<unsigned>(qelmo::waitingLimit.count()) * 2);
        player.play();
    };
    if (options.contains("--replay")) {
        playOne(qelmo::Player(wordsOf(options["--replay"])));
        return EXIT_SUCCESS;
    }
    const std::uint64_t first = std::stoull(options["--play-seeds"]);
    for (std::uint64_t seed = first; seed < first + std::stoull(options["--sequences"]); ++seed)
        playOne(qelmo::Player(seed));
    return EXIT_SUCCESS;
}

/// Plays in a separate process. Its files are removed however it ends.
qelmo::FinishedProcess inOwnProcess(const std::vector<std::string>& arguments) {
    const qelmo::TemporaryFolder folder;
    ::setenv("TMPDIR", folder.path().c_str(), 1);
    qelmo::FinishedProcess process =
        qelmo::runToEnd("/proc/self/exe", arguments, qelmo::ReadOutput::whileRunning);
    ::unsetenv("TMPDIR");
    return process;
}

/// The steps that the failing process printed last, before its message.
Steps lastSequence(const std::string& output) {
    Steps last;
    std::istringstream lines(output);
    for (std::string line; std::getline(lines, line) && !line.empty();) last = wordsOf(line);
    return last;
}

/// A part of `steps` that still fails and from which no step can be left out.
Steps shortest(Steps steps) {
    for (std::size_t length = steps.size(); length > 0; length /= 2) {
        for (std::size_t first = 0; first + length <= steps.size();) {
            Steps fewer = steps;
            const auto begin = fewer.begin() + static_cast<std::ptrdiff_t>(first);
            fewer.erase(begin, begin + static_cast<std::ptrdiff_t>(length));
            if (inOwnProcess({"--replay", joined(fewer)}).terminationStatus != 0)
                steps = fewer;
            else
                ++first;
        }
    }
    return steps;
}

int playRandomSequences(const std::string& seed, const std::string& sequences) {
    std::printf("%s sequences from --seed %s on\n", sequences.c_str(), seed.c_str());
    const qelmo::FinishedProcess process = inOwnProcess({"--play-seeds", seed, "--sequences", sequences});
    if (process.terminationStatus == 0) {
        std::printf("The window did what the model says after each of %zu steps.\n",
                    wordsOf(process.output).size());
        return EXIT_SUCCESS;
    }
    const Steps failing = lastSequence(process.output);
    const std::string message =
        process.output.substr(std::min(process.output.find("\n\n"), process.output.size()));
    std::printf("It fails with --replay \"%s\":%s\nLooking for fewer steps.\n", joined(failing).c_str(),
                message.c_str());
    std::fflush(stdout);
    const Steps fewest = shortest(failing);
    std::printf("The shortest sequence that fails: --replay \"%s\"\n", joined(fewest).c_str());
    std::printf("%s", inOwnProcess({"--replay", joined(fewest)}).output.c_str());
    return EXIT_FAILURE;
}

}  // namespace

int main(int argumentCount, char** arguments) {
    ::setenv("QT_QPA_PLATFORM", "offscreen", 1);
    // The offscreen platform warns at every window about what it cannot do.
    ::setenv("QT_LOGGING_RULES", "default.warning=false", 1);
    std::map<std::string, std::string> options{
        {"--seed", std::to_string(std::chrono::system_clock::now().time_since_epoch().count())},
        {"--sequences", "300"}};
    for (int index = 1; index + 1 < argumentCount; index += 2)
        options[arguments[index]] = arguments[index + 1];
    try {
        if (options.contains("--replay") || options.contains("--play-seeds"))
            return play(argumentCount, arguments, options);
        return playRandomSequences(options["--seed"], options["--sequences"]);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "window_model: %s\n", error.what());
        return EXIT_FAILURE;
    }
}
