#pragma once

#include <grp.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "tests/support/ErrorOf.h"

namespace qelmo {

/// Runs `action` without root's rights, prints the text of the error that it throws to standard error and
/// ends the process: status 0 when it threw, 1 when it did not, 2 when the rights could not be given up. It
/// is meant for the child process of a death test.
template <typename Action>
[[noreturn]] void failAsOrdinaryUser(Action action) {
    constexpr uid_t nobody = 65534;
    if (::geteuid() == 0 && (::setgroups(0, nullptr) != 0 || ::setgid(nobody) != 0 || ::setuid(nobody) != 0))
        std::_Exit(2);
    const std::string error = errorOf(action);
    std::fputs(error.c_str(), stderr);
    std::fflush(stderr);
    std::_Exit(error.empty() ? 1 : 0);
}

}  // namespace qelmo
