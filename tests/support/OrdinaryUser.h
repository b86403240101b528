#pragma once

#include <grp.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "tests/support/ErrorOf.h"

namespace qelmo {

/// For the child process of a death test: runs `action` without root's rights, prints its error and exits
/// with status 0 if it threw, 1 if it did not, 2 if the rights could not be dropped.
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
