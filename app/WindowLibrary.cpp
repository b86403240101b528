#include "app/WindowLibrary.h"

#include <dlfcn.h>

#include <cstdlib>
#include <string>
#include <string_view>

#include "platform/FilePath.h"
#include "platform/MainBundle.h"
#include "platform/ThisProcess.h"
#include "platform/Utf8.h"

namespace qelmo {

int runWindowedStart() {
    const std::string library =
        joinedPath(joinedPath(MainBundle::bundleURL(), "Contents/Frameworks"), QELMO_WINDOW_LIBRARY_NAME);
    // Never unloaded: background threads may still run its code when the process ends.
    void* const loaded = ::dlopen(library.c_str(), RTLD_NOW | RTLD_LOCAL);
    void* const entry = loaded == nullptr ? nullptr : ::dlsym(loaded, "qelmoWindowedStart");
    if (entry == nullptr) {
        // The loader's reason comes first; on some systems a list of tried paths follows.
        const std::string_view said = ::dlerror();
        writeToStandardError(
            "The window cannot be opened: " + shownOnOneLine(said.substr(0, said.find('\n'))) +
            ". The window needs Qt 6 Widgets; --self-test works without it.\n");
        return EXIT_FAILURE;
    }
    return reinterpret_cast<int (*)()>(entry)();
}

}  // namespace qelmo
