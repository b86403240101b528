#include "tools/pack-release/Options.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <vector>

namespace qelmo {
namespace {

using Arguments = std::vector<std::string>;

const Arguments required{"--bundle", "B.app",  "--image",   "merged.bin",
                         "--name",   "Varnox", "--version", "1.2.3"};

Arguments requiredAnd(const Arguments& more) {
    Arguments arguments = required;
    arguments.insert(arguments.end(), more.begin(), more.end());
    return arguments;
}

std::string errorFor(const Arguments& arguments) {
    try {
        (void)packRequest(arguments);
    } catch (const OptionError& error) {
        return error.what();
    }
    return "no error";
}

TEST(PackReleaseOptions, FillInTheUsualValues) {
    const PackRequest request = packRequest(required).value();
    EXPECT_EQ(request.bundle, "B.app");
    EXPECT_EQ(request.image, "merged.bin");
    EXPECT_EQ(request.name, "Varnox");
    EXPECT_EQ(request.version, "1.2.3");
    EXPECT_EQ(request.hardware, "Cardputer ADV");
    EXPECT_EQ(request.baud, 921600);
    EXPECT_EQ(request.frequency, "80m");
    EXPECT_EQ(request.after, "hard_reset");
    EXPECT_EQ(request.confirmation, "FLASH VARNOX");
    EXPECT_TRUE(request.erase);
    EXPECT_FALSE(request.acceptHeaderRewrite);
    EXPECT_FALSE(request.sign);
}

TEST(PackReleaseOptions, TakeEveryValueFromTheCommandLine) {
    const PackRequest request =
        packRequest(requiredAnd({"--no-erase", "--accept-header-rewrite", "--sign", "--hardware", "Bench",
                                 "--baud=115200", "--frequency", "26m", "--after=no_reset", "--confirmation",
                                 "INSTALL"}))
            .value();
    EXPECT_EQ(request.hardware, "Bench");
    EXPECT_EQ(request.baud, 115200);
    EXPECT_EQ(request.frequency, "26m");
    EXPECT_EQ(request.after, "no_reset");
    EXPECT_EQ(request.confirmation, "INSTALL");
    EXPECT_FALSE(request.erase);
    EXPECT_TRUE(request.acceptHeaderRewrite);
    EXPECT_TRUE(request.sign);
}

TEST(PackReleaseOptions, CapitalizeOnlyTheAsciiLettersOfTheNameForTheButton) {
    Arguments arguments = required;
    arguments[5] = "Straße é2";
    EXPECT_EQ(packRequest(arguments).value().confirmation, "FLASH STRAßE é2");
}

// fault: a required option is missing
// seen: "… is required"
TEST(PackReleaseOptions, NameTheRequiredOptionThatIsMissing) {
    for (std::size_t pair = 0; pair < required.size(); pair += 2) {
        Arguments arguments = required;
        const auto at = arguments.begin() + static_cast<std::ptrdiff_t>(pair);
        arguments.erase(at, at + 2);
        EXPECT_EQ(errorFor(arguments), required[pair] + " is required");
    }
}

// fault: an option is unknown, repeated, or without a value
// seen: "The following argument was not expected: --speed", "…ost 1 required but received 2", "--hardware: 1 required
//     TEXT missing", "--hardware: the value is missing"
TEST(PackReleaseOptions, RefuseWhatIsUnknownRepeatedOrWithoutValue) {
    EXPECT_EQ(errorFor(requiredAnd({"--speed"})), "The following argument was not expected: --speed");
    EXPECT_EQ(errorFor(requiredAnd({"--ver"})), "The following argument was not expected: --ver");
    EXPECT_EQ(errorFor(requiredAnd({"left-over"})), "The following argument was not expected: left-over");
    // The versions of the library differ in a capital letter.
    EXPECT_THAT(errorFor(requiredAnd({"--name", "Other"})),
                testing::EndsWith("ost 1 required but received 2"));
    EXPECT_EQ(errorFor(requiredAnd({"--hardware"})), "--hardware: 1 required TEXT missing");
    for (const char* value : {"--no-erase", ""})
        EXPECT_EQ(errorFor(requiredAnd({"--hardware", value})), "--hardware: the value is missing");
}

TEST(PackReleaseOptions, AskForHelpInBothSpellings) {
    for (const char* help : {"-h", "--help"}) EXPECT_FALSE(packRequest(Arguments{help}));
}

// fault: the flashing tool would refuse a value
// seen: "--baud: not a positive integer", "--frequency: 80M not in {80m,40m,26m,20m}", "--after: reset not in
//     {hard_reset,soft_reset,no_reset}"
TEST(PackReleaseOptions, RefuseValuesThatTheFlashingToolWouldNotTake) {
    for (const char* baud : {"0", "-1", "+1", "1e6", "115200 ", "9223372036854775808"})
        EXPECT_EQ(errorFor(requiredAnd({"--baud", baud})), "--baud: not a positive integer") << baud;
    EXPECT_EQ(errorFor(requiredAnd({"--frequency", "80M"})), "--frequency: 80M not in {80m,40m,26m,20m}");
    EXPECT_EQ(errorFor(requiredAnd({"--after", "reset"})),
              "--after: reset not in {hard_reset,soft_reset,no_reset}");
}

// fault: a text is no UTF-8
// seen: "not valid UTF-8"
TEST(PackReleaseOptions, RefuseTextThatIsNotUtf8) {
    for (const char* option : {"--hardware", "--confirmation"})
        EXPECT_EQ(errorFor(requiredAnd({option, "\xC3("})), std::string(option) + ": not valid UTF-8");
    for (const std::size_t value : {5U, 7U}) {
        Arguments arguments = required;
        arguments[value] = "\xED\xA0\x80";
        EXPECT_EQ(errorFor(arguments), required[value - 1] + ": not valid UTF-8");
    }
}

// fault: a text would break a line, steer a terminal, or be read by the flashing tool as a file of arguments
// seen: "holds a line break or another control character", "must not begin with @"
TEST(PackReleaseOptions, RefuseTextThatWouldNotStayOneLineOfItsOwn) {
    for (const char* option : {"--name", "--version", "--hardware", "--confirmation"}) {
        const auto errorForText = [option](const std::string& text) {
            Arguments arguments = required;
            const auto given = std::find(arguments.begin(), arguments.end(), option);
            if (given == arguments.end()) return errorFor(requiredAnd({option, text}));
            *(given + 1) = text;
            return errorFor(arguments);
        };
        for (const char* text : {"1\n2", "1\r", "\x1B[2J", "\x7F", "\u2028"})
            EXPECT_EQ(errorForText(text),
                      std::string(option) + ": holds a line break or another control character");
        EXPECT_EQ(errorForText("@file"), std::string(option) + ": must not begin with @");
        EXPECT_EQ(errorForText("a@file"), "no error");
    }
}

}  // namespace
}  // namespace qelmo
