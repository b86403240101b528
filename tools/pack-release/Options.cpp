#include "tools/pack-release/Options.h"

#include <CLI/CLI.hpp>
#include <charconv>
#include <vector>

#include "platform/Utf8.h"
#include "tools/pack-release/ImageHeader.h"

namespace qelmo {

namespace {

/// An option whose value was forgotten must not take the next option as its value.
std::string faultOfValue(const std::string& value) {
    return value.empty() || value.starts_with("--") ? "the value is missing" : "";
}

std::string faultOfText(const std::string& text) {
    if (decodedUtf8(text) != text) return "not valid UTF-8";
    if (shownOnOneLine(text) != text) return "holds a line break or another control character";
    // The flashing tool would read arguments from the file that is named after the "@".
    if (text.starts_with('@')) return "must not begin with @";
    return "";
}

std::string faultOfPositiveInteger(const std::string& value) {
    std::int64_t number = 0;
    const char* const end = value.data() + value.size();
    const auto [stopped, error] = std::from_chars(value.data(), end, number);
    return error != std::errc{} || stopped != end || number <= 0 ? "not a positive integer" : "";
}

std::string upperCaseAscii(std::string value) {
    for (char& unit : value) {
        if (unit >= 'a' && unit <= 'z') unit = static_cast<char>(unit - 'a' + 'A');
    }
    return value;
}

void declareOptions(CLI::App& app, PackRequest& request) {
    const CLI::Validator value(faultOfValue, "");
    const CLI::Validator text(faultOfText, "");
    const CLI::Validator number(faultOfPositiveInteger, "");
    const auto addText = [&](const std::string& name, std::string& target, const std::string& help) {
        return app.add_option(name, target, help)->type_name("TEXT")->check(value)->check(text);
    };
    const auto addPath = [&](const std::string& name, std::string& target, const std::string& help) {
        return app.add_option(name, target, help)->check(value)->required();
    };
    const auto addChoice = [&](const std::string& name, std::string& target,
                               const std::vector<std::string>& choices, const std::string& help) {
        app.add_option(name, target, help + ": " + CLI::detail::join(choices, ", "))
            ->type_name("TEXT")
            ->check(CLI::IsMember(choices).description(""))
            ->capture_default_str();
    };
    addPath("--bundle", request.bundle, "the application bundle")->type_name("FOLDER");
    addPath("--image", request.image, "the merged image")->type_name("FILE");
    addText("--name", request.name, "name of the firmware")->required();
    addText("--version", request.version, "version of the firmware")->required();
    addText("--hardware", request.hardware, "device that the image is built for")->capture_default_str();
    app.add_option("--baud", request.baud, "serial speed")
        ->type_name("NUMBER")
        ->check(number)
        ->capture_default_str();
    addChoice("--frequency", request.frequency, flashFrequencies(), "flash clock");
    addChoice("--after", request.after, {"hard_reset", "soft_reset", "no_reset"},
              "what the chip does after flashing");
    addText("--confirmation", request.confirmation,
            "words of the flash button (FLASH and the name in capitals)");
    app.add_flag_callback(
        "--no-erase", [&] { request.erase = false; }, "write without erasing the whole flash first");
    app.add_flag("--accept-header-rewrite", request.acceptHeaderRewrite,
                 "accept an image whose header the flashing tool will change");
    app.add_flag("--sign", request.sign, "sign the bundle ad hoc afterwards, and verify it (on macOS)");
}

}  // namespace

std::optional<PackRequest> packRequest(std::span<const std::string> arguments) {
    PackRequest request;
    CLI::App app;
    declareOptions(app, request);
    try {
        app.parse(std::vector<std::string>(arguments.rbegin(), arguments.rend()));
    } catch (const CLI::CallForHelp&) {
        return std::nullopt;
    } catch (const CLI::ParseError& error) {
        throw OptionError(error.what());
    }
    if (request.confirmation.empty()) request.confirmation = "FLASH " + upperCaseAscii(request.name);
    return request;
}

std::string packUsage() {
    PackRequest usual;
    CLI::App app(
        "Makes a release from a merged image and puts it into an application bundle.\n"
        "A release that is already there is replaced.\n"
        "A flasher that is running meanwhile sees the old release or the new one, never a mixture.\n"
        "\n"
        "An image is refused if the application would refuse it or if the chip cannot start it: the chip, "
        "segments,\n"
        "checksum and SHA-256 of the boot loader at 0x0 and of the application at 0x10000 are checked, and "
        "the MD5\n"
        "of a partition table at 0x8000.\n",
        "pack-release");
    declareOptions(app, usual);
    app.footer("Exit status: 0 packed, 1 refused or failed, 2 wrong command line.");
    constexpr std::size_t widthOfOptions = 34;
    app.get_formatter()->column_width(widthOfOptions);
    return app.help();
}

}  // namespace qelmo
