#include <cstdlib>
#include <exception>
#include <string>

#include "app/QelmoFlasherMain.h"
#include "platform/ThisProcess.h"

int main() {
    try {
        qelmo::QelmoFlasherMain::main();
        return 0;
    } catch (const std::exception& error) {
        qelmo::writeToStandardError(std::string("The flasher cannot run: ") + error.what() + "\n");
        return EXIT_FAILURE;
    }
}
