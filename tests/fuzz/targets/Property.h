#pragma once

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "platform/Utf8.h"

namespace qelmo {

/// Ends the process as a crash does when `holds` is false: the fuzzer then keeps the input.
inline void require(bool holds, const char* property, std::string_view seen) {
    if (holds) return;
    std::fprintf(stderr, "Broken: %s. Seen: \"%s\"\n", property, shownOnOneLine(seen).c_str());
    std::abort();
}

/// Checks what every message must be that a user may see.
inline void requireMessage(std::string_view text) {
    constexpr std::size_t limitBytes = 400;
    const auto isControl = [](char unit) { return static_cast<unsigned char>(unit) < 0x20 || unit == 0x7F; };
    require(!text.empty(), "a message is not empty", text);
    require(text.size() < limitBytes, "a message is short", text);
    require(std::none_of(text.begin(), text.end(), isControl), "a message is one line", text);
    require(decodedUtf8(text) == text, "a message is UTF-8", text);
}

}  // namespace qelmo
