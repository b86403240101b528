// Any bytes of the tool become the text that the definition of UTF-8 gives them.

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "flashing/ToolProcess.h"
#include "tests/fuzz/targets/Property.h"

namespace {

using namespace qelmo;

/// Length of the sequence that `first` announces; 0 when it begins none.
std::size_t announcedLength(std::uint8_t first) {
    if (first >> 7 == 0b0) return 1;
    if (first >> 5 == 0b110) return 2;
    if (first >> 4 == 0b1110) return 3;
    if (first >> 3 == 0b11110) return 4;
    return 0;
}

/// True when the shortest encoding of some character begins with `part`: of the code points that `part`
/// leaves possible, one must need exactly the announced length and be no surrogate.
bool beginsACharacter(std::string_view part) {
    constexpr std::array<std::uint32_t, 5> smallest{0, 0, 0x80, 0x800, 0x10000};
    constexpr std::array<std::uint32_t, 5> largest{0, 0x7F, 0x7FF, 0xFFFF, 0x10FFFF};
    const auto byte = [part](std::size_t index) { return static_cast<std::uint8_t>(part[index]); };
    const std::size_t length = announcedLength(byte(0));
    if (length == 0 || part.size() > length) return false;

    std::uint32_t low = length == 1 ? byte(0) : byte(0) & (0xFFU >> (length + 1));
    std::uint32_t high = low;
    for (std::size_t index = 1; index < length; ++index) {
        const bool known = index < part.size();
        if (known && byte(index) >> 6 != 0b10) return false;
        low = low << 6 | (known ? byte(index) & 0x3FU : 0U);
        high = high << 6 | (known ? byte(index) & 0x3FU : 0x3FU);
    }
    low = std::max(low, smallest[length]);
    high = std::min(high, largest[length]);
    return low <= high && !(low >= 0xD800 && high <= 0xDFFF);
}

/// Takes the longest beginning of a character at every place: a whole one stays, another one is one U+FFFD.
std::string slowlyDecoded(std::string_view bytes) {
    std::string text;
    while (!bytes.empty()) {
        std::size_t length = 0;
        while (length < bytes.size() && beginsACharacter(bytes.substr(0, length + 1))) ++length;
        const bool whole = length > 0 && length == announcedLength(static_cast<std::uint8_t>(bytes[0]));
        text += whole ? bytes.substr(0, length) : std::string_view("\xEF\xBF\xBD");
        bytes.remove_prefix(std::max<std::size_t>(length, 1));
    }
    return text;
}

/// U+0080 to U+009F begin with C2, U+2028 to U+202E and U+2066 to U+2069 with E2 80 and E2 81.
std::string slowlyOnOneLine(std::string text) {
    std::replace_if(
        text.begin(), text.end(), [](char unit) { return (unit >= 0 && unit < ' ') || unit == '\x7F'; }, '?');
    std::vector<std::string> replaced;
    for (int last = 0x80; last <= 0x9F; ++last)
        replaced.push_back(std::string("\xC2") + static_cast<char>(last));
    for (int last = 0xA8; last <= 0xAE; ++last)
        replaced.push_back(std::string("\xE2\x80") + static_cast<char>(last));
    for (int last = 0xA6; last <= 0xA9; ++last)
        replaced.push_back(std::string("\xE2\x81") + static_cast<char>(last));
    for (const std::string& character : replaced) {
        for (auto at = text.find(character); at != std::string::npos; at = text.find(character))
            text.replace(at, character.size(), "?");
    }
    return text;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string bytes(data, data + size);
    std::string expected = slowlyDecoded(bytes);

    const std::string decoded = decodedUtf8(bytes);
    require(decoded == expected, "bytes decode as the definition says", decoded);

    const std::string line = slowlyOnOneLine(expected);
    const std::string shown = shownOnOneLine(bytes);
    require(shown == line, "control characters become question marks on one line", shown);

    for (char& unit : expected) {
        if (unit == '\r') unit = '\n';
    }
    const std::string logged = logTextOfChunk(bytes);
    require(logged == expected, "only carriage returns change besides, to line feeds", logged);
    return 0;
}
