#include "app/EsptoolProbe.h"

#include <array>

#include "platform/Spawn.h"
#include "platform/Utf8.h"
#include "release/FlasherFailure.h"

namespace qelmo {

/// The line separators of Unicode. Well-formed UTF-8 can be searched for them as byte sequences.
constexpr auto lineSeparators =
    std::to_array<std::string_view>({"\n", "\v", "\f", "\r", "\u0085", "\u2028", "\u2029"});

std::string esptoolVersion(const std::string& interpreter, const std::string& esptoolURL) {
    // The version command prints far less than a pipe holds.
    const FinishedProcess process = runToEnd(interpreter, {esptoolURL, "version"}, ReadOutput::afterExit);
    const std::string output = decodedUtf8(process.output);
    if (process.terminationStatus != 0) throw FlasherFailure("Espressif tool check failed: " + output);
    return versionFromOutput(output);
}

std::string versionFromOutput(std::string_view output) {
    const auto separatorAtEnd = [](std::string_view text) -> std::size_t {
        for (const std::string_view separator : lineSeparators) {
            if (text.ends_with(separator)) return separator.size();
        }
        return 0;
    };
    while (const std::size_t length = separatorAtEnd(output)) output.remove_suffix(length);
    if (output.empty()) return "unknown";
    std::size_t lineStart = output.size();
    while (lineStart > 0 && separatorAtEnd(output.substr(0, lineStart)) == 0) --lineStart;
    return std::string(output.substr(lineStart));
}

}  // namespace qelmo
