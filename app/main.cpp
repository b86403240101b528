#include <cstdlib>
#include <exception>
#include <string>

#include "app/QelmoFlasherMain.h"
#include "platform/ThisProcess.h"

int main() {
    try {
        // Before anything else: a library may take variables out of it, and the flashing tool gets all of
        // them.
        qelmo::QelmoFlasherMain::main(qelmo::processEnvironment());
        return 0;
    } catch (const std::exception& error) {
        qelmo::writeToStandardError(std::string("The flasher cannot run: ") + error.what() + "\n");
        return EXIT_FAILURE;
    }
}
