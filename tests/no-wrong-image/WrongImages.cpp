// Changes a right release in many random ways and expects each change to be refused with the message of the
// first check that it breaks:
//   wrong_images BUNDLE [--count N] [--seed S]
// BUNDLE holds the release of full size. Most changes are made to smaller ones, so that many can be judged.
// The seed chooses the changes: the same seed and count make the same ones. Status 1: one of them was not
// refused.

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <functional>
#include <iostream>
#include <map>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "release/FlasherFailure.h"
#include "tests/support/ReleaseFixture.h"

namespace qelmo {
namespace {

constexpr const char* wrongSize = "The embedded firmware size does not match its manifest.";
constexpr const char* incompleteImage = "The embedded file is not a complete QELMO firmware image.";
constexpr const char* wrongDigest = "The embedded firmware checksum is not trusted.";
constexpr const char* notJson = "The flash manifest is not valid JSON: ";
constexpr const char* passed = "(passed)";

constexpr std::size_t applicationAt = 0x10000;
constexpr std::size_t step = 4096;

using Random = std::mt19937_64;

/// Below `end`. The standard's distributions differ between libraries, and with them what a seed means.
std::size_t pick(Random& random, std::size_t end) {
    return static_cast<std::size_t>(random() % end);
}

/// The text of the error that `action` throws.
template <typename Action>
std::string refusalBy(Action action) {
    try {
        action();
    } catch (const std::exception& error) {
        return errorDescription(error);
    }
    return passed;
}

/// Counts what was refused, and with which message, for each kind of change. Any thread may tell it.
class Verdicts {
public:
    void expect(const std::string& kind, const std::string& expected, const std::string& found,
                const std::string& change) {
        const std::lock_guard lock(mutex_);
        ++counts_[kind][expected];
        if (found == expected) return;
        ++wrong_;
        if (wrong_ <= 20)
            std::cout << "WRONG: " << kind << ", " << change << "\n  expected: " << expected
                      << "\n  found:    " << found << "\n";
    }

    [[nodiscard]] int report() const {
        for (const auto& [kind, messages] : counts_) {
            std::size_t total = 0;
            for (const auto& message : messages) total += message.second;
            std::cout << total << " " << kind << (messages.contains(passed) ? " accepted" : " refused")
                      << ":\n";
            for (const auto& [message, count] : messages)
                std::cout << "  " << count << " " << message << "\n";
        }
        std::cout << (wrong_ == 0 ? "No wrong release passed.\n"
                                  : std::to_string(wrong_) + " WRONG VERDICTS\n");
        return wrong_ == 0 ? 0 : 1;
    }

private:
    std::mutex mutex_;
    std::map<std::string, std::map<std::string, std::size_t>> counts_;
    std::size_t wrong_ = 0;
};

FlashManifest manifestOf(std::string_view image) {
    ManifestText text;
    text.set("binary.size", std::to_string(image.size()));
    text.set("binary.sha256", '"' + ReleaseFixture::digestOf(image) + '"');
    return FlashManifest::decode(bytesOf(text.text()));
}

std::string imageVerdict(std::string_view image, const FlashManifest& manifest) {
    return refusalBy([&] { (void)verifiedImageDigest(bytesOf(image), manifest); });
}

/// Noise with the magic at both places: no two regions are alike, as in firmware.
std::string imageOfNoise(std::size_t size, Random random) {
    std::string image(size, '\0');
    std::generate(image.begin(), image.end(), [&random] { return static_cast<char>(random()); });
    image[0] = image[applicationAt] = '\xE9';
    return image;
}

/// One byte that becomes another one: by a single bit, or altogether.
struct Change {
    std::size_t place;
    char before;
    char after;

    static Change of(std::string_view bytes, std::size_t place, Random& random) {
        const char before = bytes[place];
        const auto bits =
            random() % 2 == 0 ? 1U << (random() % 8) : 1U + static_cast<unsigned>(random() % 255);
        return {place, before, static_cast<char>(static_cast<unsigned char>(before) ^ bits)};
    }

    [[nodiscard]] std::string text() const {
        std::array<char, 64> line{};
        std::snprintf(line.data(), line.size(), "byte %zu: %02X became %02X", place,
                      static_cast<unsigned char>(before), static_cast<unsigned char>(after));
        return line.data();
    }
};

/// One in 64 changes hits a magic byte, the others hit any byte.
Change imageChange(std::string_view image, Random& random) {
    const std::size_t magic = random() % 2 == 0 ? 0 : applicationAt;
    return Change::of(image, random() % 64 == 0 ? magic : pick(random, image.size()), random);
}

const char* refusalOfImageChange(const Change& change) {
    return change.place == 0 || change.place == applicationAt ? incompleteImage : wrongDigest;
}

void changeImage(const std::string& kind, std::string image, std::size_t count, Random random,
                 Verdicts& verdicts) {
    const FlashManifest manifest = manifestOf(image);
    verdicts.expect(kind + ": unchanged", passed, imageVerdict(image, manifest), "nothing");
    while (count-- > 0) {
        const Change change = imageChange(image, random);
        image[change.place] = change.after;
        verdicts.expect(kind + ": changes", refusalOfImageChange(change), imageVerdict(image, manifest),
                        change.text());
        image[change.place] = change.before;
    }
}

/// Every length that is a multiple of 4 KiB, with the manifest as it was.
void truncate(const std::string& kind, std::string_view image, Verdicts& verdicts) {
    const FlashManifest manifest = manifestOf(image);
    for (std::size_t size = 0; size < image.size(); size += step)
        verdicts.expect(kind + ": truncations", wrongSize, imageVerdict(image.substr(0, size), manifest),
                        std::to_string(size));
}

/// The same with the manifest's size made to match.
void truncateWithMatchingSize(const std::string& kind, std::string_view image, Verdicts& verdicts) {
    ManifestText text;
    text.set("binary.sha256", '"' + ReleaseFixture::digestOf(image) + '"');
    for (std::size_t size = 0; size < image.size(); size += step) {
        text.set("binary.size", std::to_string(size));
        verdicts.expect(kind + ": truncations with a matching size",
                        size > applicationAt ? wrongDigest : incompleteImage,
                        imageVerdict(image.substr(0, size), FlashManifest::decode(bytesOf(text.text()))),
                        std::to_string(size));
    }
}

/// A field that is checked, its right value in JSON, and the message of the check.
struct CheckedField {
    std::string path;
    std::string json;
    std::string refusal;
};

std::vector<CheckedField> checkedFields(std::string_view image) {
    const std::string geometry = "The embedded flash geometry is not Cardputer ADV safe.";
    return {{"schemaVersion", "1", "The embedded flash manifest version is unsupported."},
            {"chipFamily", R"("ESP32-S3")", "This release is not locked to ESP32-S3."},
            {"binary.offset", "0", "The complete firmware must flash at address 0x0."},
            {"flash.flashSize", R"("8MB")", geometry},
            {"flash.flashMode", R"("dio")", geometry},
            {"binary.size", std::to_string(image.size()), wrongSize},
            {"binary.sha256", '"' + ReleaseFixture::digestOf(image) + '"', wrongDigest}};
}

/// What the program says of a changed value. A byte that is no plain character of the value may break the
/// JSON itself or make another type of it: then the decoder may refuse it instead of the check.
std::string refusalOfValue(const CheckedField& field, const Change& change, const std::string& found) {
    const auto after = static_cast<unsigned char>(change.after);
    const bool isText = field.json[0] == '"';
    if (field.path == "binary.sha256" && std::isalpha(after) != 0 && (change.before ^ change.after) == 0x20)
        return passed;  // only the letter case
    const bool isPlain = isText ? after >= 0x20 && after < 0x80 && after != '"' && after != '\\'
                                : after >= '1' && after <= '9';
    const bool isDecoders =
        found.starts_with(notJson) ||
        found == field.path + ": expected an integer, found a number that is not a 64-bit integer";
    return !isPlain && isDecoders ? found : field.refusal;
}

/// Only the kind of the decoder's refusal is counted.
std::string countedMessage(const std::string& message) {
    return message.starts_with(notJson) ? std::string(notJson) + "..." : message;
}

/// A checked value with one change, as the manifest's text and what it was changed to.
struct ChangedValue {
    CheckedField field;
    Change change;
    std::string json;

    static ChangedValue of(const std::vector<CheckedField>& fields, Random& random) {
        const CheckedField& field = fields[pick(random, fields.size())];
        const bool isText = field.json[0] == '"';
        const std::size_t first = isText ? 1 : 0;
        const Change change =
            Change::of(field.json, first + pick(random, field.json.size() - 2 * first), random);
        std::string json = field.json;
        json[change.place] = change.after;
        return {field, change, json};
    }

    void judge(const std::string& kind, const std::string& found, Verdicts& verdicts) const {
        const std::string expected = refusalOfValue(field, change, found);
        verdicts.expect(kind + (expected == passed ? ": changes of the digest's letter case" : ": changes"),
                        countedMessage(expected), countedMessage(found), field.path + ", " + change.text());
    }
};

std::string verdictOn(const ManifestText& text, std::string_view image) {
    return refusalBy([&] {
        const FlashManifest manifest = FlashManifest::decode(bytesOf(text.text()));
        requireSupportedRelease(manifest);
        (void)verifiedImageDigest(bytesOf(image), manifest);
    });
}

void changeManifest(std::size_t count, Random random, Verdicts& verdicts) {
    const std::string image = ReleaseFixture::smallestImage();
    const auto fields = checkedFields(image);
    ManifestText right;
    for (const CheckedField& field : fields) right.set(field.path, field.json);
    verdicts.expect("manifest: unchanged", passed, verdictOn(right, image), "nothing");
    while (count-- > 0) {
        const auto changed = ChangedValue::of(fields, random);
        changed.judge("manifest", verdictOn(ManifestText(right).set(changed.field.path, changed.json), image),
                      verdicts);
    }
}

/// Each of the 64 bits of each checked number.
void flipBitsOfNumbers(Verdicts& verdicts) {
    const std::string image = ReleaseFixture::smallestImage();
    ManifestText right;
    for (const CheckedField& field : checkedFields(image)) right.set(field.path, field.json);
    for (const CheckedField& field : checkedFields(image)) {
        if (field.json[0] == '"') continue;
        for (unsigned bit = 0; bit < 64; ++bit) {
            const auto value = static_cast<std::int64_t>(std::stoull(field.json) ^ (1ULL << bit));
            verdicts.expect("manifest: single bits of a number", field.refusal,
                            verdictOn(ManifestText(right).set(field.path, std::to_string(value)), image),
                            field.path + " " + std::to_string(value));
        }
    }
}

/// The whole operation on files, half of the changes made to the image and half to the manifest.
void changeFiles(std::size_t count, const std::string& image, Random random, Verdicts& verdicts) {
    ReleaseFixture release;
    release.setImage(image);
    const auto fields = checkedFields(image);
    verdicts.expect("release on disk: unchanged", passed,
                    release.failure().empty() ? passed : release.failure(), "nothing");
    const auto verdict = [&release](const ManifestText& text) {
        release.writeManifest(text.text());
        return refusalBy([&release] { (void)FlasherResources::load(release.bundle()); });
    };
    const auto writeByte = [&release](std::size_t place, char byte) {
        std::fstream file(release.image(), std::ios::in | std::ios::out | std::ios::binary);
        file.seekp(static_cast<std::streamoff>(place)).put(byte);
        if (!file.flush()) throw std::runtime_error("cannot change " + release.image());
    };
    for (std::size_t number = 0; number < count; ++number) {
        if (number % 2 == 0) {
            const Change change = imageChange(image, random);
            writeByte(change.place, change.after);
            verdicts.expect("image on disk: changes", refusalOfImageChange(change), verdict(release.manifest),
                            change.text());
            writeByte(change.place, change.before);
        } else {
            const auto changed = ChangedValue::of(fields, random);
            changed.judge("manifest on disk",
                          verdict(ManifestText(release.manifest).set(changed.field.path, changed.json)),
                          verdicts);
        }
    }
}

struct Arguments {
    std::string bundle;
    std::size_t count = 3000;
    std::uint64_t seed = 1;

    static Arguments of(const std::vector<std::string>& words) {
        Arguments arguments;
        for (std::size_t index = 0; index < words.size(); ++index) {
            if (words[index] == "--count" && index + 1 < words.size()) {
                arguments.count = std::stoull(words[++index]);
            } else if (words[index] == "--seed" && index + 1 < words.size()) {
                arguments.seed = std::stoull(words[++index]);
            } else {
                arguments.bundle = words[index];
            }
        }
        if (arguments.bundle.empty())
            throw std::invalid_argument("usage: wrong_images BUNDLE [--count N] [--seed S]");
        return arguments;
    }
};

/// The image of the bundle, which has to be a right release.
std::string releasedImage(const std::string& bundle) {
    const std::string folder = bundle + "/Contents/Resources/";
    const auto manifest = FlashManifest::decode(bytesOf(readTestFile(folder + manifestFileName)));
    requireSupportedRelease(manifest);
    std::string image = readTestFile(folder + manifest.binary.path);
    (void)verifiedImageDigest(bytesOf(image), manifest);
    return image;
}

int run(const Arguments& arguments) {
    std::cout << "seed " << arguments.seed << ", " << arguments.count << " changes" << std::endl;
    const auto randomFor = [&](std::uint64_t part) { return Random(arguments.seed * 1000 + part); };
    const std::string whole = releasedImage(arguments.bundle);
    const std::string firmwareLike = imageOfNoise(1U << 20, randomFor(0));
    Verdicts verdicts;

    // Shares of the count: 1 in 100 on files, 1 in 10 on the released image, 3 in 10 on the manifest.
    const std::size_t onFiles = arguments.count / 100;
    const std::size_t onReleased = arguments.count / 10;
    const std::size_t onManifest = arguments.count * 3 / 10;
    const std::size_t onFirmwareLike = arguments.count - onFiles - onReleased - onManifest;

    // First and alone, because it changes the environment.
    changeFiles(onFiles, firmwareLike, randomFor(1), verdicts);
    const auto half = [&](std::uint64_t part) {
        changeImage("released image", whole, (onReleased + part) / 2, randomFor(10 + part), verdicts);
        changeImage("1 MiB image", firmwareLike, (onFirmwareLike + part) / 2, randomFor(20 + part), verdicts);
        changeManifest((onManifest + part) / 2, randomFor(30 + part), verdicts);
    };
    std::jthread other([&half] { half(1); });
    half(0);
    truncate("released image", whole, verdicts);
    truncate("1 MiB image", firmwareLike, verdicts);
    truncateWithMatchingSize("1 MiB image", firmwareLike, verdicts);
    flipBitsOfNumbers(verdicts);
    other.join();
    return verdicts.report();
}

}  // namespace
}  // namespace qelmo

int main(int count, char** words) {
    try {
        return qelmo::run(qelmo::Arguments::of({words + 1, words + count}));
    } catch (const std::exception& error) {
        std::cerr << "wrong_images: " << error.what() << '\n';
        return 2;
    }
}
