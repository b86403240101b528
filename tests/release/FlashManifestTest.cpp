#include "release/FlashManifest.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <concepts>
#include <limits>
#include <type_traits>

#include "tests/support/ManifestText.h"
#include "tests/support/TestFiles.h"

namespace qelmo {
namespace {

using namespace std::string_literals;

// Records are copied freely and never changed.
static_assert(std::is_copy_constructible_v<FlashManifest> && !std::is_copy_assignable_v<FlashManifest>);
static_assert(std::is_copy_constructible_v<FlashManifest::Binary> &&
              !std::is_copy_assignable_v<FlashManifest::Binary>);
static_assert(std::is_copy_constructible_v<FlashManifest::Flash> &&
              !std::is_copy_assignable_v<FlashManifest::Flash>);
static_assert(std::same_as<decltype(FlashManifest::Binary::size), const std::int64_t>);

// A key has no number: looking one up by number does not even compile.
template <typename Number>
concept CanLookUpAKeyBy = requires(Number number) {
    codingKey<FlashManifest::CodingKeys>(number);
};
static_assert(CanLookUpAKeyBy<std::string_view> && !CanLookUpAKeyBy<int>);
static_assert(!std::convertible_to<FlashManifest::CodingKeys, int>);

FlashManifest decoded(std::string_view text) {
    return FlashManifest::decode(bytesOf(text));
}

std::string refusalOf(std::string_view text) {
    try {
        (void)decoded(text);
    } catch (const ManifestDecodingError& error) {
        return error.what();
    }
    return "decoded";
}

std::string lastName(const std::string& path) {
    return path.substr(path.find('.') + 1);
}

const std::string string = R"("text")";

/// Each wrong JSON value with the word for it.
const std::vector<std::pair<std::string, std::string>> valuesByKind{
    {"null", "null"},     {"{}", "an object"},   {"[]", "an array"},
    {string, "a string"}, {"true", "a boolean"}, {"0.5", "a number that is not a 64-bit integer"},
    {"1", "an integer"}};

std::string kindOfField(const std::string& path) {
    for (const char* object : {"binary", "flash"}) {
        if (path == object) return "an object";
    }
    for (const char* integer : {"schemaVersion", "binary.offset", "binary.size", "flash.baud"}) {
        if (path == integer) return "an integer";
    }
    return path == "flash.eraseAllInternalFlash" ? "a boolean" : "a string";
}

TEST(FlashManifest, DecodesEveryField) {
    ManifestText text;
    text.set("binary.offset", "4096").set("binary.sha256", R"("00FF")");
    const FlashManifest manifest = decoded(text.text());
    EXPECT_EQ(manifest.schemaVersion, 1);
    EXPECT_EQ(manifest.name, "Varnox");
    EXPECT_EQ(manifest.version, "1.0.0");
    EXPECT_EQ(manifest.chipFamily, "ESP32-S3");
    EXPECT_EQ(manifest.hardware, "Cardputer ADV");
    EXPECT_EQ(manifest.binary.path, "release-complete.bin");
    EXPECT_EQ(manifest.binary.offset, 4096);
    EXPECT_EQ(manifest.binary.size, 65537);
    EXPECT_EQ(manifest.binary.sha256, "00FF");
    EXPECT_EQ(manifest.flash.baud, 921600);
    EXPECT_EQ(manifest.flash.flashSize, "8MB");
    EXPECT_EQ(manifest.flash.flashMode, "dio");
    EXPECT_EQ(manifest.flash.flashFrequency, "80m");
    EXPECT_TRUE(manifest.flash.eraseAllInternalFlash);
    EXPECT_EQ(manifest.flash.after, "hard_reset");
    EXPECT_EQ(manifest.flash.confirmationText, "FLASH VARNOX");
}

TEST(FlashManifest, HasNoOtherKeys) {
    EXPECT_THAT(ManifestText().paths(), testing::SizeIs(18));
}

TEST(FlashManifest, IgnoresUnknownKeysAtEveryLevel) {
    ManifestText text;
    text.add("comment", R"({"a": [1, {"b": null}]})");
    text.add("binary.comment", "[[[]]]").add("flash.comment", "null").add("Name", "1");
    EXPECT_EQ(decoded(text.text()).flash.confirmationText, "FLASH VARNOX");
}

TEST(FlashManifest, DoesNotCareForTheOrderOfKeys) {
    const FlashManifest manifest = decoded(ManifestText().reverse().text());
    EXPECT_EQ(manifest.name, "Varnox");
    EXPECT_EQ(manifest.binary.size, 65537);
    EXPECT_EQ(manifest.flash.after, "hard_reset");
}

// fault: a key of the manifest is missing
// seen: "the key is missing"
TEST(FlashManifest, FailsWithoutAnyOneOfItsKeysAndNamesIt) {
    for (const std::string& path : ManifestText().paths())
        EXPECT_EQ(refusalOf(ManifestText().remove(path).text()), path + ": the key is missing");
}

TEST(FlashManifest, FailsWithoutConfirmationTextAlthoughThatIsNeverChecked) {
    EXPECT_EQ(refusalOf(ManifestText().remove("flash.confirmationText").text()),
              "flash.confirmationText: the key is missing");
}

// fault: a value of the manifest has another type
// seen: "…: expected …, found …"
TEST(FlashManifest, FailsForEveryWrongTypeOfEveryFieldAndNamesBoth) {
    for (const std::string& path : ManifestText().paths()) {
        for (const auto& [json, kind] : valuesByKind) {
            if (kind == kindOfField(path)) continue;
            EXPECT_EQ(refusalOf(ManifestText().set(path, json).text()),
                      path + ": expected " + kindOfField(path) + ", found " + kind);
        }
    }
}

TEST(FlashManifest, TakesNoStringForABooleanOrANumber) {
    EXPECT_EQ(refusalOf(ManifestText().set("flash.eraseAllInternalFlash", R"("true")").text()),
              "flash.eraseAllInternalFlash: expected a boolean, found a string");
    EXPECT_EQ(refusalOf(ManifestText().set("flash.baud", R"("921600")").text()),
              "flash.baud: expected an integer, found a string");
    EXPECT_EQ(refusalOf(ManifestText().set("schemaVersion", R"("1")").text()),
              "schemaVersion: expected an integer, found a string");
}

TEST(FlashManifest, TakesNoZeroOrOneForABoolean) {
    for (const char* number : {"0", "1"})
        EXPECT_EQ(refusalOf(ManifestText().set("flash.eraseAllInternalFlash", number).text()),
                  "flash.eraseAllInternalFlash: expected a boolean, found an integer");
}

TEST(FlashManifest, JudgesNoValue) {
    ManifestText text;
    text.set("schemaVersion", "2").set("chipFamily", R"("")").set("binary.size", "-1");
    const FlashManifest manifest = decoded(text.text());
    EXPECT_EQ(manifest.schemaVersion, 2);
    EXPECT_EQ(manifest.chipFamily, "");
    EXPECT_EQ(manifest.binary.size, -1);
}

// fault: a number of the manifest is too large
// seen: "binary.size: the number does not fit a 64-bit integer", "binary.size: expected an integer, found a number that
//     is not a 64-bit integer"
TEST(FlashManifest, TakesEveryIntegerOf64BitsAndNoOther) {
    const auto sizeIn = [](const std::string& json) {
        return decoded(ManifestText().set("binary.size", json).text()).binary.size;
    };
    EXPECT_EQ(sizeIn("9223372036854775807"), std::numeric_limits<std::int64_t>::max());
    EXPECT_EQ(sizeIn("-9223372036854775808"), std::numeric_limits<std::int64_t>::min());
    EXPECT_EQ(sizeIn("-0"), 0);
    const auto refused = [](const std::string& json) {
        return refusalOf(ManifestText().set("binary.size", json).text());
    };
    for (const char* json : {"9223372036854775808", "18446744073709551615"})
        EXPECT_EQ(refused(json), "binary.size: the number does not fit a 64-bit integer");
    for (const char* json : {"18446744073709551616", "-9223372036854775809"})
        EXPECT_EQ(refused(json),
                  "binary.size: expected an integer, found a number that is not a 64-bit integer");
}

TEST(FlashManifest, TakesNoFractionOrExponentForAnInteger) {
    for (const char* json : {"1.5", "1.0", "1e0", "1E2", "-0.0", "10e-1"})
        EXPECT_EQ(refusalOf(ManifestText().set("schemaVersion", json).text()),
                  "schemaVersion: expected an integer, found a number that is not a 64-bit integer");
}

TEST(FlashManifest, FailsForANumberBeyondEveryRangeWithOneShortLine) {
    EXPECT_EQ(refusalOf(ManifestText().set("schemaVersion", "1e400").text()),
              "The flash manifest is not valid JSON: number overflow parsing '1e400'");
    const std::string longNumber = refusalOf(ManifestText().set("name", std::string(100'000, '9')).text());
    EXPECT_LT(longNumber.size(), 250U);
    EXPECT_EQ(longNumber.find('\n'), std::string::npos);
}

TEST(FlashManifest, ReportsTheFirstBadFieldInTheOrderOfTheRecords) {
    // Removes the fields from the last to the first: each time the one removed last is the first bad one.
    ManifestText text;
    auto paths = text.paths();
    for (auto path = paths.rbegin(); path != paths.rend(); ++path) {
        text.remove(*path);
        EXPECT_EQ(refusalOf(text.text()), *path + ": the key is missing");
    }
}

TEST(FlashManifest, ReportsABadFieldOfTheDocumentBeforeABadFieldOfBinaryBeforeOneOfFlash) {
    ManifestText text;
    text.set("flash.baud", "null").reverse();
    EXPECT_EQ(refusalOf(text.text()), "flash.baud: expected an integer, found null");
    text.set("binary.sha256", "null");
    EXPECT_EQ(refusalOf(text.text()), "binary.sha256: expected a string, found null");
    text.set("hardware", "null");
    EXPECT_EQ(refusalOf(text.text()), "hardware: expected a string, found null");
}

TEST(FlashManifest, MatchesKeysLiterally) {
    ManifestText text;
    text.remove("flash.flashSize").add("flash.flash_size", string).add("flash.FlashSize", string);
    EXPECT_EQ(refusalOf(text.text()), "flash.flashSize: the key is missing");
}

TEST(FlashManifest, TakesTheLastOfTwoEqualKeys) {
    ManifestText text;
    text.set("version", "null").add("version", R"("2")").add("binary.size", "7");
    EXPECT_EQ(decoded(text.text()).version, "2");
    EXPECT_EQ(decoded(text.text()).binary.size, 7);
    EXPECT_EQ(refusalOf(ManifestText().add("version", "{}").text()),
              "version: expected a string, found an object");
    EXPECT_EQ(refusalOf(ManifestText().add("binary", "{}").text()), "binary.path: the key is missing");
}

// fault: the manifest is another JSON value
// seen: "The flash manifest: expected an object, found …"
TEST(FlashManifest, FailsWhenTheTopLevelValueIsNoObject) {
    for (const auto& [json, kind] : valuesByKind) {
        if (kind == "an object") continue;
        EXPECT_EQ(refusalOf(json), "The flash manifest: expected an object, found " + kind);
    }
}

// fault: the manifest is empty
// seen: "The flash manifest is not valid JSON:"
TEST(FlashManifest, FailsForAnEmptyFile) {
    // What follows are the parser's own words, and they changed between its versions.
    EXPECT_THAT(
        refusalOf(""),
        testing::StartsWith("The flash manifest is not valid JSON: parse error at line 1, column 1: "));
    EXPECT_THAT(refusalOf(" \n"), testing::StartsWith("The flash manifest is not valid JSON: "));
    EXPECT_THROW((void)FlashManifest::decode({}), ManifestDecodingError);
}

// fault: the manifest was edited by hand or cut off
// seen: "The flash manifest is not valid JSON: parse error at line …"
TEST(FlashManifest, FailsForTextThatIsNotJsonWithOneLineThatSaysWhere) {
    const std::string whole = ManifestText().text();
    const std::string oneLine = "The flash manifest is not valid JSON: parse error at line ";
    for (const std::string& text :
         {whole + "x", whole + whole, whole.substr(0, whole.size() - 1), "// comment\n" + whole,
          "{'name': 1}"s, "{\"name\": 01}"s, "{\"name\": NaN}"s, "{\"name\": +1}"s, "{\"name\": 1,}"s,
          "{\"name\": \"a\nb\"}"s, "{\"name\": \"\\x\"}"s, "{\"name\": \"\\uD800\"}"s}) {
        EXPECT_THAT(refusalOf(text), testing::StartsWith(oneLine)) << text;
        EXPECT_THAT(refusalOf(text), testing::Not(testing::HasSubstr("\n"))) << text;
    }
}

// fault: the manifest holds NUL bytes
// seen: "The flash manifest is not valid JSON: it holds a NUL byte"
TEST(FlashManifest, FailsForANulByteAnywhereAndDoesNotTakeItForTheEnd) {
    const std::string refusal = "The flash manifest is not valid JSON: it holds a NUL byte";
    const std::string whole = ManifestText().text();
    for (const std::string& text : {whole + "\0"s, whole + "\0 garbage"s, "\0"s + whole, "\0"s})
        EXPECT_EQ(refusalOf(text), refusal);
    EXPECT_EQ(refusalOf(ManifestText().set("name", "\"a\0\""s).text()), refusal);
}

TEST(FlashManifest, AcceptsWhiteSpaceAroundTheDocument) {
    EXPECT_EQ(decoded(" \r\n\t" + ManifestText().text() + "\n\n").name, "Varnox");
}

// fault: the manifest is no UTF-8
// seen: "The flash manifest is not valid JSON:"
TEST(FlashManifest, FailsForIllFormedUtf8Anywhere) {
    for (const char* bytes : {"\"\xFF\"", "\"\xC0\xAF\"", "\"\xED\xA0\x80\"", "\"\xE2\x82\""}) {
        const std::string refusal = refusalOf(ManifestText().set("name", bytes).text());
        EXPECT_THAT(refusal, testing::HasSubstr("invalid string: ill-formed UTF-8 byte"));
        EXPECT_THAT(refusal, testing::Not(testing::HasSubstr(bytes)));
    }
    EXPECT_THAT(refusalOf(ManifestText().add("comment", "\"\xFF\"").text()),
                testing::StartsWith("The flash manifest is not valid JSON: "));
}

TEST(FlashManifest, SkipsAByteOrderMarkAtTheStartAndOnlyThere) {
    EXPECT_EQ(decoded("\uFEFF" + ManifestText().text()).name, "Varnox");
    EXPECT_THAT(refusalOf(ManifestText().text() + "\uFEFF"),
                testing::StartsWith("The flash manifest is not valid JSON: "));
    EXPECT_THAT(refusalOf("\xFE\xFF"), testing::StartsWith("The flash manifest is not valid JSON: "));
}

TEST(FlashManifest, KeepsEveryCharacterOfATextAsItIsWritten) {
    const auto nameIn = [](const char* json) {
        return decoded(ManifestText().set("name", json).text()).name;
    };
    EXPECT_EQ(nameIn(R"("\"\\\/\b\f\n\r\t")"), "\"\\/\b\f\n\r\t");
    EXPECT_EQ(nameIn(R"("\u00e9\u0000\uD83D\uDE00")"), "\u00E9\0\U0001F600"s);
    EXPECT_EQ(nameIn("\"\u00E9\U0001F600 \""), "\u00E9\U0001F600 ");
}

// fault: the manifest is nested beyond measure
// seen: "name: expected a string, found an array"
TEST(FlashManifest, SurvivesNestingOf100000Levels) {
    const std::string deep = std::string(100'000, '[') + std::string(100'000, ']');
    EXPECT_EQ(decoded(ManifestText().add("comment", deep).text()).name, "Varnox");
    EXPECT_EQ(refusalOf(deep), "The flash manifest: expected an object, found an array");
    EXPECT_EQ(refusalOf(ManifestText().set("name", deep).text()), "name: expected a string, found an array");
    EXPECT_THAT(refusalOf(std::string(100'000, '[')),
                testing::StartsWith("The flash manifest is not valid JSON: "));
    std::string objects;
    for (int level = 0; level < 100'000; ++level) objects += R"({"a":)";
    EXPECT_THAT(refusalOf(objects), testing::StartsWith("The flash manifest is not valid JSON: "));
}

template <typename Keys>
void expectKeys(const std::string& prefix) {
    std::vector<std::string> expected;
    for (const std::string& path : ManifestText().paths()) {
        const bool inner = path.find('.') != std::string::npos;
        if (prefix.empty() ? !inner : path.starts_with(prefix)) expected.push_back(lastName(path));
    }
    ASSERT_THAT(codingKeyTexts<Keys>, testing::ElementsAreArray(expected));
    for (std::size_t index = 0; index < expected.size(); ++index) {
        EXPECT_EQ(codingKey<Keys>(expected[index]), static_cast<Keys>(index));
        EXPECT_EQ(keyText(static_cast<Keys>(index)), expected[index]);
        EXPECT_EQ(codingKey<Keys>(expected[index] + " "), std::nullopt);
        EXPECT_EQ(codingKey<Keys>(std::to_string(index)), std::nullopt);
    }
    for (const char* unknown : {"", "comment", "Name", "SIZE"})
        EXPECT_EQ(codingKey<Keys>(unknown), std::nullopt);
}

TEST(CodingKeys, AreFoundByTheirExactTextInTheOrderOfTheFields) {
    expectKeys<FlashManifest::CodingKeys>("");
    expectKeys<FlashManifest::Binary::CodingKeys>("binary.");
    expectKeys<FlashManifest::Flash::CodingKeys>("flash.");
}

}  // namespace
}  // namespace qelmo
