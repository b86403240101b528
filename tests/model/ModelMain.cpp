// Plays random sequences of steps on the real window and on a model of it, and shortens a sequence after
// which the two differ. Sequences are played in a process of their own, so that one which ends it is found
// and shortened too.
//
//     window_model [--seed N] [--sequences N]     the sequences of the seeds from N on
//     window_model --replay "STEP STEP ..."

#include <sys/mman.h>
#ifdef __linux__
#include <sys/prctl.h>
#endif
#include <sys/wait.h>
#include <unistd.h>

#include <QApplication>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/model/Steps.h"
#include "tests/model/WindowDriver.h"
#include "tests/support/ScopedEnvironment.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/ui/BootPort.h"
#include "ui/DarkControls.h"

namespace {

using qelmo::Step;
using Steps = std::vector<Step>;

struct Options {
    std::uint64_t seed =
        static_cast<std::uint64_t>(std::chrono::system_clock::now().time_since_epoch().count());
    std::uint64_t sequences = 300;
    std::optional<Steps> replay;

    Options(int argumentCount, char** arguments) {
        for (int index = 1; index < argumentCount; index += 2) {
            const std::string option = arguments[index];
            if (index + 1 == argumentCount)
                throw std::invalid_argument("a value is missing behind " + option);
            if (option == "--seed") {
                seed = std::stoull(arguments[index + 1]);
            } else if (option == "--sequences") {
                sequences = std::stoull(arguments[index + 1]);
            } else if (option == "--replay") {
                replay = qelmo::stepsOf(arguments[index + 1]);
            } else {
                throw std::invalid_argument("no such option: " + option);
            }
        }
    }
};

/// What the playing process has come to; the one that waits for it sees it too.
struct Progress {
    std::uint64_t seed = 0;
    std::uint64_t steps = 0;
};

/// A sequence that hangs ends its process after `limit`.
void playOne(const Steps& steps, std::chrono::seconds limit = qelmo::waitingLimit) {
    ::alarm(static_cast<unsigned>(limit.count()));
    qelmo::WindowDriver(steps).play();
}

/// What a sequence leaves behind that ended its process: its tool and its ports.
void cleanUpAfter(pid_t child) {
    ::kill(-child, SIGKILL);
    for (const std::string& name : qelmo::deviceNames()) std::filesystem::remove("/dev/" + name);
}

void becomeThePlayer() {
    ::setpgid(0, 0);
#ifdef __linux__
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
#endif
    ::setenv("QT_QPA_PLATFORM", "offscreen", 1);
    // That platform tells at every window what it cannot do.
    ::setenv("QT_LOGGING_RULES", "default.warning=false", 1);
}

[[noreturn]] void playAndExit(const std::function<void()>& play) {
    becomeThePlayer();
    int status = 0;
    int argumentCount = 1;
    std::string name = "window_model";
    char* arguments[] = {name.data(), nullptr};
    try {
        QApplication application(argumentCount, arguments);
        qelmo::applyDarkControls(application);
        QApplication::setQuitOnLastWindowClosed(false);
        play();
    } catch (const std::exception& error) {
        std::printf("%s\n", error.what());
        status = 1;
    }
    std::fflush(stdout);
    std::_Exit(status);
}

/// True when `play` comes to its end in a process of its own with a window system that nobody sees.
bool endsWell(const std::function<void()>& play) {
    // The process may end without a chance to tidy up.
    const qelmo::TemporaryFolder folder;
    const qelmo::ScopedEnvironment temporary("TMPDIR", folder.path());
    std::fflush(stdout);
    const pid_t child = ::fork();
    if (child == 0) playAndExit(play);
    int status = 0;
    if (child < 0 || ::waitpid(child, &status, 0) != child)
        throw std::runtime_error("no process can be started");
    if (WIFSIGNALED(status)) std::printf("The process was ended by: %s\n", ::strsignal(WTERMSIG(status)));
    if (WIFEXITED(status) && WEXITSTATUS(status) == 0) return true;
    cleanUpAfter(child);
    return false;
}

bool endsWellInSilence(const Steps& steps) {
    std::fflush(stdout);
    const int output = ::dup(STDOUT_FILENO);
    if (std::freopen("/dev/null", "w", stdout) == nullptr)
        throw std::runtime_error("cannot write to /dev/null");
    const bool well = endsWell([&steps] { playOne(steps, std::chrono::seconds(5)); });
    std::fflush(stdout);
    ::dup2(output, STDOUT_FILENO);
    ::close(output);
    return well;
}

void reportShortest(const Steps& steps) {
    std::printf("Looking for fewer steps ...\n");
    const Steps fewest = qelmo::shortest(steps, [](const Steps& fewer) { return !endsWellInSilence(fewer); });
    std::printf("\nThe shortest sequence that fails:\n");
    for (const Step& step : fewest) std::printf("    %s\n", qelmo::words(step).c_str());
    (void)endsWell([&fewest] { playOne(fewest); });
    std::printf("To play it again: tests/device/private-dev -- %s --replay \"%s\"\n",
                std::filesystem::read_symlink("/proc/self/exe").c_str(), qelmo::codesOf(fewest).c_str());
}

int run(const Options& options) {
    if (options.replay) return endsWell([&options] { playOne(*options.replay); }) ? 0 : 1;

    void* const shared =
        ::mmap(nullptr, sizeof(Progress), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (shared == MAP_FAILED) throw std::runtime_error("no shared memory");
    auto* const progress = new (shared) Progress;
    std::printf("%llu sequences from --seed %llu on\n", static_cast<unsigned long long>(options.sequences),
                static_cast<unsigned long long>(options.seed));
    const bool well = endsWell([&options, progress] {
        for (std::uint64_t index = 0; index < options.sequences; ++index) {
            progress->seed = options.seed + index;
            const Steps steps = qelmo::randomSteps(progress->seed);
            progress->steps += steps.size();
            playOne(steps);
        }
    });
    if (well) {
        std::printf("The window did what the model says after each of %llu steps.\n",
                    static_cast<unsigned long long>(progress->steps));
        return 0;
    }
    const Steps steps = qelmo::randomSteps(progress->seed);
    std::printf("It was --seed %llu --sequences 1, or --replay \"%s\"\n",
                static_cast<unsigned long long>(progress->seed), qelmo::codesOf(steps).c_str());
    reportShortest(steps);
    return 1;
}

}  // namespace

int main(int argumentCount, char** arguments) {
    try {
        const Options options(argumentCount, arguments);
        if (!qelmo::devIsPrivate()) return 1;
        return run(options);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "window_model: %s\n", error.what());
        return 2;
    }
}
