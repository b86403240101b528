#include "app/QelmoFlasherMain.h"

int main() {
    qelmo::QelmoFlasherMain::main();
    return 0;
}
