#include "app/WindowLibrary.h"

#include <dlfcn.h>

#include <cstdlib>
#include <string>
#include <string_view>

#include "platform/ThisProcess.h"
#include "platform/Utf8.h"

namespace qelmo {

int runWindowedStart(const std::vector<std::string>& environment) {
    // By name, found through the program's own run path. In a full path the loader would expand "$ORIGIN" and
    // the like, and a bundle's folder may have such a name.
    // Never unloaded: background threads may still run its code when the process ends.
    void* const loaded = ::dlopen(QELMO_WINDOW_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    void* const entry = loaded == nullptr ? nullptr : ::dlsym(loaded, "qelmoWindowedStart");
    if (entry == nullptr) {
        // The loader's reason comes first; on some systems a list of tried paths follows.
        const std::string_view said = ::dlerror();
        writeToStandardError(
            "The window cannot be opened: " + shownOnOneLine(said.substr(0, said.find('\n'))) +
            ". The window needs Qt 6 Widgets; --self-test works without it.\n");
        return EXIT_FAILURE;
    }
    return reinterpret_cast<int (*)(const std::vector<std::string>&)>(entry)(environment);
}

}  // namespace qelmo
