// Started by test_oracle.py: reads bundle folders from standard input, one a line, and writes the verdict on
// each as one line: "OK" and the digest, or the error's text.

#include <exception>
#include <iostream>
#include <string>

#include "release/FlasherFailure.h"
#include "release/FlasherResources.h"

int main() {
    for (std::string bundle; std::getline(std::cin, bundle);) {
        try {
            const auto release = qelmo::FlasherResources::load(bundle);
            std::cout << "OK " << release.checksum << '\n';
        } catch (const std::exception& error) {
            std::cout << qelmo::errorDescription(error) << '\n';
        }
    }
    return std::cout.flush() ? 0 : 1;
}
