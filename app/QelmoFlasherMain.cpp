#include "app/QelmoFlasherMain.h"

#include <cstdlib>

#include "app/HeadlessSelfTest.h"
#include "app/WindowLibrary.h"
#include "platform/ThisProcess.h"

namespace qelmo {

void QelmoFlasherMain::main(const std::vector<std::string>& environment) {
    normalizeProcess();
    if (hasProcessArgument("--self-test")) std::exit(runHeadlessSelfTest());
    if (const int status = runWindowedStart(environment); status != EXIT_SUCCESS) std::exit(status);
}

}  // namespace qelmo
