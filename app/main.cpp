#include <dlfcn.h>

#include <cstdlib>
#include <exception>
#include <string>
#include <string_view>

#include "app/HeadlessCheck.h"
#include "platform/LaunchContext.h"
#include "platform/ThisProcess.h"
#include "platform/Utf8.h"

namespace qelmo {

namespace {

/// Loads the window library of the bundle and runs the window until the user quits. Returns the exit status:
/// 1, after one line on standard error, if the library, Qt or a display is missing.
int runWindowedStart(const LaunchContext& context) {
    // Loaded by name through the program's run path: in a full path the loader would expand "$ORIGIN" and the
    // like, which the name of a folder may contain. Never unloaded, because background threads may still run
    // its code when the process exits.
    void* const loaded = ::dlopen(QELMO_WINDOW_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    void* const entry = loaded == nullptr ? nullptr : ::dlsym(loaded, "qelmoWindowedStart");
    if (entry == nullptr) {
        // The loader's reason is the first line; on some systems a list of tried paths follows.
        const std::string_view said = ::dlerror();
        writeToStandardError(
            "The window cannot be opened: " + shownOnOneLine(said.substr(0, said.find('\n'))) +
            ". The window needs Qt 6 Widgets. Run with --self-test to check the release without it.\n");
        return EXIT_FAILURE;
    }
    return reinterpret_cast<int (*)(const LaunchContext&)>(entry)(context);
}

}  // namespace

/// The program: chooses between the headless self-test and the window. Returns the process's exit status.
struct QelmoFlasherMain {
    static int main(int argumentCount, const char* const* arguments) {
        undoInheritedRestrictions();
        // Read before Qt is loaded: Qt removes variables from the environment, and the flashing tool gets all
        // of them.
        const LaunchContext context = LaunchContext::ofThisProcess(argumentCount, arguments);
        return context.hasArgument("--self-test") ? runHeadlessSelfTest(context) : runWindowedStart(context);
    }
};

}  // namespace qelmo

int main(int argumentCount, char** arguments) {
    try {
        return qelmo::QelmoFlasherMain::main(argumentCount, arguments);
    } catch (const std::exception& error) {
        qelmo::writeToStandardError(std::string("The flasher cannot run: ") + error.what() + "\n");
        return EXIT_FAILURE;
    }
}
