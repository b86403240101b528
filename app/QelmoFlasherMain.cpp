#include "app/QelmoFlasherMain.h"

#include <cstdlib>

#include "app/HeadlessSelfTest.h"
#include "app/WindowLibrary.h"
#include "platform/ThisProcess.h"

namespace qelmo {

void QelmoFlasherMain::main() {
    normalizeProcess();
    if (hasProcessArgument("--self-test")) std::exit(runHeadlessSelfTest());
    // The environment is copied before the toolkit is loaded, which takes variables out of it: the flashing
    // tool gets all of them.
    if (const int status = runWindowedStart(processEnvironment()); status != EXIT_SUCCESS) std::exit(status);
}

}  // namespace qelmo
