#include "platform/Utf8.h"

#include <array>
#include <cstddef>
#include <cstdint>

namespace qelmo {

namespace {

/// One row of the Unicode Standard's table 3-7, "Well-Formed UTF-8 Byte Sequences". Bytes after the second
/// are always 80..BF.
struct SequenceForm {
    std::uint8_t firstLow, firstHigh, secondLow, secondHigh;
    std::size_t length;
};

constexpr std::array<SequenceForm, 8> multiByteForms{{
    {0xC2, 0xDF, 0x80, 0xBF, 2},
    {0xE0, 0xE0, 0xA0, 0xBF, 3},
    {0xE1, 0xEC, 0x80, 0xBF, 3},
    {0xED, 0xED, 0x80, 0x9F, 3},
    {0xEE, 0xEF, 0x80, 0xBF, 3},
    {0xF0, 0xF0, 0x90, 0xBF, 4},
    {0xF1, 0xF3, 0x80, 0xBF, 4},
    {0xF4, 0xF4, 0x80, 0x8F, 4},
}};

struct Step {
    std::size_t length;
    bool wellFormed;
};

/// Length of the sequence at the start of `rest`, or of its well-formed part if it is incomplete.
Step sequenceAt(std::string_view rest) {
    const auto byte = [rest](std::size_t index) { return static_cast<std::uint8_t>(rest[index]); };
    if (byte(0) < 0x80) return {1, true};
    for (const SequenceForm& form : multiByteForms) {
        if (byte(0) < form.firstLow || byte(0) > form.firstHigh) continue;
        std::size_t length = 1;
        while (length < form.length && length < rest.size()) {
            const std::uint8_t low = length == 1 ? form.secondLow : 0x80;
            const std::uint8_t high = length == 1 ? form.secondHigh : 0xBF;
            if (byte(length) < low || byte(length) > high) break;
            ++length;
        }
        return {length, length == form.length};
    }
    return {1, false};
}

/// True for ASCII control characters, for U+0080 to U+009F, which a terminal may also obey, for line and
/// paragraph separators, and for characters that change the direction of the text after them.
bool endsOrTurnsALine(std::string_view character) {
    if (character.size() == 1) return static_cast<unsigned char>(character[0]) < 0x20 || character == "\x7F";
    return (character >= "\u0080" && character <= "\u009F") ||
           (character >= "\u2028" && character <= "\u202E") ||
           (character >= "\u2066" && character <= "\u2069");
}

/// Replaces each character of `bytes` by what `shown` returns for it. Each ill-formed part counts as U+FFFD.
template <typename Shown>
std::string textOf(std::string_view bytes, Shown shown) {
    std::string text;
    text.reserve(bytes.size());
    while (!bytes.empty()) {
        const Step step = sequenceAt(bytes);
        text += shown(step.wellFormed ? bytes.substr(0, step.length) : std::string_view("\uFFFD"));
        bytes.remove_prefix(step.length);
    }
    return text;
}

}  // namespace

std::string decodedUtf8(std::string_view bytes) {
    return textOf(bytes, [](std::string_view character) { return character; });
}

std::string shownOnOneLine(std::string_view bytes) {
    return textOf(bytes, [](std::string_view character) {
        return endsOrTurnsALine(character) ? std::string_view("?") : character;
    });
}

}  // namespace qelmo
