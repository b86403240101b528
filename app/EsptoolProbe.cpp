#include "app/EsptoolProbe.h"

#include <algorithm>
#include <array>

#include "flashing/FlashCommand.h"
#include "platform/ChildProcess.h"
#include "platform/Utf8.h"
#include "release/FlasherFailure.h"

namespace qelmo {

namespace {

/// The newline characters of Unicode; well-formed UTF-8 can be searched for them as byte sequences.
constexpr auto lineSeparators =
    std::to_array<std::string_view>({"\n", "\v", "\f", "\r", "\u0085", "\u2028", "\u2029"});

}  // namespace

std::string esptoolVersion(const std::string& esptoolURL) {
    const auto process = ChildProcess::create(pythonPath, {esptoolURL, "version"});
    process->launch();
    // In this order because the version command prints far less than the pipe holds.
    process->waitUntilExit();
    const std::string output = decodedUtf8(process->readToEndOfOutput());
    if (process->terminationStatus() != 0) throw FlasherFailure("Espressif tool check failed: " + output);
    return versionFromOutput(output);
}

std::string versionFromOutput(std::string_view output) {
    std::string_view lastLine = "unknown";
    std::size_t lineStart = 0;
    for (std::size_t at = 0; at < output.size();) {
        const auto separator = std::find_if(
            lineSeparators.begin(), lineSeparators.end(),
            [rest = output.substr(at)](std::string_view mark) { return rest.starts_with(mark); });
        if (separator == lineSeparators.end()) {
            ++at;
            continue;
        }
        if (at > lineStart) lastLine = output.substr(lineStart, at - lineStart);
        at += separator->size();
        lineStart = at;
    }
    if (lineStart < output.size()) lastLine = output.substr(lineStart);
    return std::string(lastLine);
}

}  // namespace qelmo
