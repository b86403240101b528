#pragma once

#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "platform/Utf8.h"

namespace qelmo {

/// Aborts the process if `holds` is false, so that the fuzzer keeps the input.
inline void require(bool holds, const char* property, std::string_view seen) {
    if (holds) return;
    std::fprintf(stderr, "Broken: %s. Seen: \"%s\"\n", property, shownOnOneLine(seen).c_str());
    std::abort();
}

/// Checks the rules for every message that a user may see.
inline void requireMessage(std::string_view text) {
    require(!text.empty(), "a message is not empty", text);
    require(text.size() < 400, "a message is short", text);
    require(shownOnOneLine(text) == text, "a message is one line of UTF-8", text);
}

}  // namespace qelmo
