#include <gtest/gtest.h>

#include <array>
#include <filesystem>
#include <map>
#include <set>
#include <utility>
#include <vector>

#include "release/FlashButtonTitle.h"
#include "release/ReleaseTexts.h"
#include "tests/release/HostileRelease.h"
#include "tests/support/ReleaseFixture.h"

namespace qelmo {
namespace {

using namespace std::string_literals;
using testing::AllOf;
using testing::HasSubstr;
using testing::StartsWith;

constexpr const char* notJson = "The flash manifest is not valid JSON: ";
const std::string notAnInteger = "a number that is not a 64-bit integer";

std::string quoted(const std::string& text) {
    return '"' + text + '"';
}

std::string refusalOf(std::string_view text) {
    try {
        (void)FlashManifest::decode(bytesOf(text));
    } catch (const ManifestDecodingError& error) {
        return error.what();
    }
    return "decoded";
}

std::string kindOf(const std::string& path) {
    if (path == "binary" || path == "flash") return "an object";
    if (path == "flash.eraseAllInternalFlash") return "a boolean";
    const std::set<std::string> integers{"schemaVersion", "binary.offset", "binary.size", "flash.baud"};
    return integers.contains(path) ? "an integer" : "a string";
}

/// Each field that is checked, with a value that is no longer right and the sentence for it.
struct WrongValue {
    const char* path;
    const char* json;
    const char* refusal;
};

constexpr std::array wrongValues{
    WrongValue{"schemaVersion", "2", "The embedded flash manifest version is unsupported."},
    WrongValue{"chipFamily", R"("ESP32")", "This release is not locked to ESP32-S3."},
    WrongValue{"binary.offset", "4096", "The complete firmware must flash at address 0x0."},
    WrongValue{"binary.size", "65538", "The embedded firmware size does not match its manifest."},
    WrongValue{"binary.sha256", R"("00")", "The embedded firmware checksum is not trusted."},
    WrongValue{"flash.flashSize", R"("4MB")", "The embedded flash geometry is not Cardputer ADV safe."},
    WrongValue{"flash.flashMode", R"("qio")", "The embedded flash geometry is not Cardputer ADV safe."}};

// fault: the manifest is a file of 1 GB or of 1 TB
// seen: "File too large"
TEST(HostileManifestDeathTest, OfAHugeLengthIsRefusedWithoutBeingRead) {
    const ReleaseFixture release;
    for (const std::uint64_t size : {1ULL << 30, 1ULL << 40}) {
        release.writeManifest("");
        std::filesystem::resize_file(release.manifestFile(), size);
        EXPECT_EXIT(failWithin(16, [&] { (void)FlasherResources::load(release.bundle()); }),
                    testing::ExitedWithCode(0), "^read .*/qelmo-varnox-flash-manifest.json: File too large$");
    }
}

TEST(HostileManifest, OfTheLargestLengthIsReadAndOneByteMoreIsNot) {
    const ReleaseFixture release;
    std::string text = release.manifest.text();
    text.resize(manifestLimitBytes, ' ');
    release.writeManifest(text);
    EXPECT_EQ(FlasherResources::load(release.bundle()).manifest.name, "Varnox");
    release.writeManifest(text + ' ');
    EXPECT_THROW((void)FlasherResources::load(release.bundle()), std::system_error);
}

// fault: the manifest is nested as deeply as its length allows, or holds nothing but small values
// seen: "The flash manifest is not valid JSON: …", "expected an object, found an array"
TEST(HostileManifestDeathTest, OfTheWorstFormIsRefusedWithinBoundedMemory) {
    const ReleaseFixture release;
    const auto repeated = [](std::string_view part) {
        std::string text;
        while (text.size() + part.size() < manifestLimitBytes - 4) text += part;
        return text;
    };
    const std::string half(manifestLimitBytes / 2, '[');
    const std::pair<std::string, const char*> worst[] = {
        {repeated("["), "^The flash manifest is not valid JSON: parse error at line 1, column "},
        {repeated(R"({"":)"), "^The flash manifest is not valid JSON: parse error at line 1, column "},
        {half + std::string(half.size(), ']'), "^The flash manifest: expected an object, found an array$"},
        {"[" + repeated("{},") + "{}]", "^The flash manifest: expected an object, found an array$"}};
    for (const auto& [text, refusal] : worst) {
        release.writeManifest(text);
        EXPECT_EXIT(failWithin(400, [&] { (void)FlasherResources::load(release.bundle()); }),
                    testing::ExitedWithCode(0), refusal);
    }
}

// fault: a checked key is written twice, first right and then wrong
TEST(HostileManifest, WithACheckedKeyTwiceIsJudgedByTheLast) {
    for (const auto& [path, json, refusal] : wrongValues) {
        ReleaseFixture release;
        release.manifest.add(path, json);
        EXPECT_EQ(release.failure(), refusal) << path;
    }
}

TEST(HostileManifest, WithEveryKeyTwiceIsRightWhenTheLastOnesAre) {
    ReleaseFixture release;
    std::string right = release.manifest.text();
    for (const auto& [path, json, refusal] : wrongValues) release.manifest.set(path, json);
    std::string wrong = release.manifest.text();
    wrong.back() = ',';
    release.writeManifest(wrong + right.substr(1));
    EXPECT_EQ(FlasherResources::load(release.bundle()).manifest.schemaVersion, 1);
}

// fault: a field has a value of another JSON type, or a number that is no 64-bit integer
TEST(HostileManifest, NamesTheFieldOfEveryValueThatHasAnotherType) {
    const std::map<std::string, std::vector<std::string>> valuesByKind = {
        {"an integer",
         {"-0", "9223372036854775807", "-9223372036854775808", "9223372036854775808",
          "18446744073709551615"}},
        {notAnInteger,
         {"1e0", "1E+2", "0e0", "1.0", "-0.0", "1e-400", "1e308", "18446744073709551616",
          "-9223372036854775809"}},
        {"a boolean", {"false"}},
        {"a string", {R"("")", R"("\u0031")"}},
        {"an array", {"[[1]]"}}};
    for (const std::string& path : ManifestText().paths()) {
        for (const auto& [kind, values] : valuesByKind) {
            for (const std::string& json : values) {
                const std::string refusal = refusalOf(ManifestText().set(path, json).text());
                const bool fits = json != "9223372036854775808" && json != "18446744073709551615";
                const std::string ofItsType =
                    fits ? "decoded" : path + ": the number does not fit a 64-bit integer";
                const std::string expected = kindOf(path);
                EXPECT_EQ(refusal,
                          expected == kind ? ofItsType : path + ": expected " + expected + ", found " + kind)
                    << json;
            }
        }
    }
}

TEST(HostileManifest, TakesMinusZeroForZeroInEachCheck) {
    for (const auto& [path, refusal] : {std::pair{"schemaVersion", wrongValues[0].refusal},
                                        {"binary.offset", ""},
                                        {"binary.size", wrongValues[3].refusal}}) {
        ReleaseFixture release;
        release.manifest.set(path, "-0");
        EXPECT_EQ(release.failure(), refusal) << path;
    }
}

TEST(HostileManifest, WithANumberBeyondEveryRangeIsRefusedAlsoInAKeyThatIsIgnored) {
    for (const std::string& number :
         {"1e400"s, "-1e400"s, "1" + std::string(400, '0'), std::string(1U << 20, '9')}) {
        EXPECT_THAT(refusalOf(ManifestText().set("binary.size", number).text()),
                    AllOf(StartsWith(notJson + "number overflow parsing '"s + number[0]), isOneShortLine));
        EXPECT_THAT(refusalOf(ManifestText().add("comment", number).text()), isOneShortLine);
    }
}

// fault: the manifest is not UTF-8
// seen: "The flash manifest is not valid JSON: … ill-formed UTF-8 byte"
TEST(HostileManifest, ThatIsNotUtf8IsRefusedWhereverTheBytesAre) {
    for (const char* bytes : {"\x80",
                              "\xBF",
                              "\xC0\x80",
                              "\xC0\xAF",
                              "\xC1\xBF",
                              "\xC3",
                              "\xC3(",
                              "\xE0\x80\x80",
                              "\xE0\x9F\xBF",
                              "\xE2\x82",
                              "\xE2\x82(",
                              "\xE2(",
                              "\xED\xA0\x80",
                              "\xED\xBF\xBF",
                              "\xED\xA0\x80\xED\xB0\x80",
                              "\xF0\x80\x80\x80",
                              "\xF0\x8F\xBF\xBF",
                              "\xF0\x9F\x98",
                              "\xF0\x9F",
                              "\xF0(",
                              "\xF4\x90\x80\x80",
                              "\xF5\x80\x80\x80",
                              "\xF8\x88\x80\x80\x80",
                              "\xFC\x84\x80\x80\x80\x80",
                              "\xFE",
                              "\xFF",
                              "\xC3\xA9\xA9"}) {
        for (const std::string& text :
             {ManifestText().set("name", quoted(bytes)).text(),
              ManifestText().set("flash.confirmationText", quoted("FLASH "s + bytes)).text(),
              ManifestText().add("a"s + bytes, "1").text(),
              ManifestText().add("binary.path"s + bytes, "1").text()})
            EXPECT_THAT(refusalOf(text), AllOf(StartsWith(notJson), HasSubstr("ill-formed UTF-8 byte"),
                                               isOneShortLine, testing::Not(HasSubstr(bytes))))
                << testing::PrintToString(bytes);
        EXPECT_THAT(refusalOf(ManifestText().text() + bytes), AllOf(StartsWith(notJson), isOneShortLine));
    }
}

// fault: a NUL is hidden in a key or in a checked value
TEST(HostileManifest, WithAnEscapedNulIsNeverTakenForTheTextBeforeIt) {
    for (const char* path : {"schemaVersion", "binary", "flash.baud"}) {
        std::string text = ManifestText().text();
        const std::string key = path == "flash.baud"s ? "baud" : path;
        text.insert(text.find(quoted(key)) + key.size() + 1, "\\u0000");
        EXPECT_EQ(refusalOf(text), path + ": the key is missing"s);
    }
    const std::string digest = ReleaseFixture::digestOf(ReleaseFixture::smallestImage());
    for (const auto& [path, text, refusal] : {std::tuple{"chipFamily", "ESP32-S3"s, wrongValues[1].refusal},
                                              {"binary.sha256", digest, wrongValues[4].refusal},
                                              {"flash.flashSize", "8MB"s, wrongValues[5].refusal},
                                              {"flash.flashMode", "dio"s, wrongValues[6].refusal}}) {
        ReleaseFixture release;
        release.manifest.set(path, quoted(text + "\\u0000"));
        EXPECT_EQ(release.failure(), refusal);
    }
}

// fault: a shown text holds markup, other writing directions, combining marks, a NUL, or 400,000 letters
TEST(HostileManifest, ShowsEveryTextAsItStands) {
    const std::string long400000 = std::string(400'000, 'W');
    for (const auto& [json, text] : {std::pair{R"(<b>A</b> &amp; <img src='/etc/passwd'> %s %1 \n)"s,
                                               "<b>A</b> &amp; <img src='/etc/passwd'> %s %1 \n"s},
                                     {"\u05D0\u05D1 \u202E\u0644\u2066 x\u2069\u200F.",
                                      "\u05D0\u05D1 \u202E\u0644\u2066 x\u2069\u200F."},
                                     {"e\u0301\u0301\u0301 \u200D\U0001F468\u200D\U0001F469 \uFEFF.",
                                      "e\u0301\u0301\u0301 \u200D\U0001F468\u200D\U0001F469 \uFEFF."},
                                     {"\u0080\u07FF\u0800\uD7FF\uE000\uFFFF\U00010000\U0010FFFF",
                                      "\u0080\u07FF\u0800\uD7FF\uE000\uFFFF\U00010000\U0010FFFF"},
                                     {R"(a\u0000b)", "a\0b"s},
                                     {long400000, long400000}}) {
        ReleaseFixture release;
        release.manifest.set("name", quoted(json))
            .set("version", quoted(json))
            .set("flash.confirmationText", quoted(json + "."));
        const FlasherResources loaded = release.load();
        EXPECT_TRUE(releaseSummary(loaded).starts_with(text + "  //  " + text + "\n65537 bytes  "));
        EXPECT_TRUE(verifiedFlashButtonTitle(loaded.manifest) == "FLASH VERIFIED " + text + ".");
        EXPECT_TRUE(validationReport(loaded, true, {text, loaded.checksum}).front() ==
                    "Build already current: " + text + ".");
    }
}

// fault: a checked text or an unknown key is a million characters long
TEST(HostileManifest, PutsNoLongTextIntoARefusal) {
    const std::string megabyte(1'000'000, '8');
    for (const auto& [path, json, refusal] : wrongValues) {
        if (json[0] != '"') continue;
        ReleaseFixture release;
        release.manifest.set(path, quoted(megabyte));
        EXPECT_EQ(release.failure(), refusal);
    }
    ReleaseFixture release;
    release.manifest.add(megabyte, "1");
    EXPECT_EQ(release.failure(), "");
}

}  // namespace
}  // namespace qelmo
