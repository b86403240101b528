#pragma once

#include <gmock/gmock.h>
#include <sys/resource.h>

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>

namespace qelmo {

/// What every refusal is, whatever the release holds: one line of at most `longest` bytes, and not an empty
/// one.
MATCHER_P(IsOneLineOfAtMost, longest, "") {
    return !arg.empty() && arg.size() <= static_cast<std::size_t>(longest) &&
           std::none_of(arg.begin(), arg.end(),
                        [](unsigned char unit) { return unit < 0x20 || unit == 0x7F; });
}

/// Enough for each sentence, for a key's path with what was expected and found, and for the parser's words.
inline const auto isOneShortLine = IsOneLineOfAtMost(220);

/// Runs `action`, prints the text of the error that it throws to standard error and ends the process: status
/// 0 when it threw, 1 when it did not, 3 when it took more than `limitMiB` MiB of memory. It is meant for the
/// child process of a death test; one that computes for 60 s is killed.
template <typename Action>
[[noreturn]] void failWithin(long limitMiB, Action action) {
    constexpr rlimit cpuSeconds{60, 60};
    if (::setrlimit(RLIMIT_CPU, &cpuSeconds) != 0) std::_Exit(2);
    const auto peakKiB = [] {
        rusage used{};
        ::getrusage(RUSAGE_SELF, &used);
        return used.ru_maxrss;
    };
    const long before = peakKiB();
    int status = 1;
    try {
        action();
    } catch (const std::exception& error) {
        std::fputs(error.what(), stderr);
        status = 0;
    }
    std::fflush(stderr);
    std::_Exit(peakKiB() - before > limitMiB * 1024 ? 3 : status);
}

}  // namespace qelmo
