// Started by test_oracle.py. Repeatedly reads a bundle's folder and a home folder from standard input, one
// per line, and writes each verdict as one line: "OK" and the digest, or the error's text.

#include <exception>
#include <iostream>
#include <string>

#include "release/FlasherFailure.h"
#include "release/FlasherResources.h"

int main() {
    for (std::string bundle, home; std::getline(std::cin, bundle) && std::getline(std::cin, home);) {
        try {
            const auto release = qelmo::FlasherResources::load(bundle, home);
            std::cout << "OK " << release.checksum << '\n';
        } catch (const std::exception& error) {
            std::cout << qelmo::errorDescription(error) << '\n';
        }
    }
    return std::cout.flush() ? 0 : 1;
}
