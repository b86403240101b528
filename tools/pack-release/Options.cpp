#include "tools/pack-release/Options.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <map>
#include <system_error>

#include "platform/Utf8.h"
#include "tools/pack-release/ImageHeader.h"

namespace qelmo {

namespace {

constexpr std::array<std::string_view, 9> valuedOptions{"--bundle",    "--image",        "--name",
                                                        "--version",   "--hardware",     "--baud",
                                                        "--frequency", "--confirmation", "--after"};
constexpr std::array<std::string_view, 3> switches{"--no-erase", "--accept-header-rewrite", "--sign"};
constexpr std::array<std::string_view, 3> waysToEnd{"hard_reset", "soft_reset", "no_reset"};

template <typename Range>
bool contains(const Range& range, std::string_view text) {
    return std::find(range.begin(), range.end(), text) != range.end();
}

[[noreturn]] void fail(std::string_view option, std::string_view fault) {
    throw OptionError(std::string(option) + ": " + std::string(fault));
}

/// The options as they were given: each known, at most once, with a value where one belongs.
class GivenOptions {
public:
    explicit GivenOptions(std::span<const std::string> arguments) {
        for (std::size_t index = 0; index < arguments.size(); ++index) {
            const std::string& option = arguments[index];
            const bool takesValue = contains(valuedOptions, option);
            if (!takesValue && !contains(switches, option)) fail(option, "unknown option");
            if (isGiven(option)) fail(option, "given more than once");
            // The next option is not a value: a forgotten one must not swallow it.
            if (takesValue && (++index == arguments.size() || arguments[index].starts_with("--")))
                fail(option, "the value is missing");
            if (takesValue && arguments[index].empty()) fail(option, "the value is empty");
            values_.emplace(option, takesValue ? arguments[index] : std::string());
        }
    }

    [[nodiscard]] bool isGiven(std::string_view option) const { return values_.contains(option); }

    [[nodiscard]] std::string required(std::string_view option) const {
        const auto found = values_.find(option);
        if (found == values_.end()) fail(option, "the option is missing");
        return found->second;
    }

    [[nodiscard]] std::string optional(std::string_view option, const std::string& otherwise) const {
        return isGiven(option) ? required(option) : otherwise;
    }

private:
    std::map<std::string, std::string, std::less<>> values_;
};

std::string text(std::string_view option, std::string value) {
    if (decodedUtf8(value) != value) fail(option, "not valid UTF-8");
    if (shownOnOneLine(value) != value) fail(option, "holds a line break or another control character");
    // The flashing tool would read its arguments from a file of the name that follows.
    if (value.starts_with('@')) fail(option, "must not begin with @");
    return value;
}

std::int64_t positiveInteger(std::string_view option, const std::string& value) {
    std::int64_t number = 0;
    const char* const end = value.data() + value.size();
    const auto [stopped, error] = std::from_chars(value.data(), end, number);
    if (error != std::errc{} || stopped != end || number <= 0) fail(option, "not a positive integer");
    return number;
}

std::string upperCaseAscii(std::string value) {
    for (char& unit : value) {
        if (unit >= 'a' && unit <= 'z') unit = static_cast<char>(unit - 'a' + 'A');
    }
    return value;
}

}  // namespace

PackRequest packRequest(std::span<const std::string> arguments) {
    const GivenOptions given(arguments);
    PackRequest request;
    request.bundle = given.required("--bundle");
    request.image = given.required("--image");
    request.name = text("--name", given.required("--name"));
    request.version = text("--version", given.required("--version"));
    request.hardware = text("--hardware", given.optional("--hardware", "Cardputer ADV"));
    request.baud = positiveInteger("--baud", given.optional("--baud", "921600"));
    request.frequency = given.optional("--frequency", "80m");
    if (!isFlashFrequency(request.frequency)) fail("--frequency", "must be 80m, 40m, 26m or 20m");
    request.after = given.optional("--after", "hard_reset");
    if (!contains(waysToEnd, request.after)) fail("--after", "must be hard_reset, soft_reset or no_reset");
    request.confirmation =
        text("--confirmation", given.optional("--confirmation", "FLASH " + upperCaseAscii(request.name)));
    request.erase = !given.isGiven("--no-erase");
    request.acceptHeaderRewrite = given.isGiven("--accept-header-rewrite");
    request.sign = given.isGiven("--sign");
    return request;
}

std::string packUsage() {
    return "usage: pack-release --bundle B.app --image MERGED.bin --name NAME --version VERSION [option...]\n"
           "\n"
           "Makes the release inside an application bundle from a merged image, or replaces it. A flasher\n"
           "that is running meanwhile sees the old release or the new one, never a mixture.\n"
           "\n"
           "  --hardware TEXT           device the image is built for (Cardputer ADV)\n"
           "  --baud NUMBER             serial speed (921600)\n"
           "  --frequency 80m           flash clock: 80m, 40m, 26m or 20m\n"
           "  --after hard_reset        when written: hard_reset, soft_reset or no_reset\n"
           "  --no-erase                write without erasing the whole flash first\n"
           "  --confirmation TEXT       words of the flash button (FLASH and the name in capitals)\n"
           "  --accept-header-rewrite   take an image whose header the flashing tool will change\n"
           "  --sign                    sign the bundle ad hoc afterwards, and verify it (on macOS)\n"
           "  --help                    print this text\n"
           "\n"
           "Status: 0 packed, 1 refused or failed, 2 command line not understood.\n";
}

}  // namespace qelmo
