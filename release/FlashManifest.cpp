#include "release/FlashManifest.h"

#include <algorithm>
#include <limits>
#include <nlohmann/json.hpp>
#include <utility>

namespace qelmo {

namespace {

using nlohmann::json;

std::string kindOf(const json& value) {
    // In the order of json::value_t.
    constexpr auto kinds =
        std::to_array<const char*>({"null", "an object", "an array", "a string", "a boolean", "an integer",
                                    "an integer", "a number that is not a 64-bit integer"});
    return kinds.at(static_cast<std::size_t>(value.type()));
}

/// The JSON object of one record. A field that is read must exist and have exactly the expected type.
template <typename Record>
class KeyedContainer {
    using Key = typename Record::CodingKeys;

public:
    KeyedContainer(const json& value, std::string path) : value_(value), path_(std::move(path)) {
        if (!value_.is_object()) fail(path_, "an object", value_);
    }

    std::string text(Key key) const {
        const json& field = required(key);
        if (!field.is_string()) fail(pathOf(key), "a string", field);
        return field.get<std::string>();
    }

    std::int64_t integer(Key key) const {
        const json& field = required(key);
        if (!field.is_number_integer()) fail(pathOf(key), "an integer", field);
        constexpr auto largest = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
        if (field.is_number_unsigned() && field.get<std::uint64_t>() > largest)
            throw ManifestDecodingError(pathOf(key) + ": the number does not fit a 64-bit integer");
        return field.get<std::int64_t>();
    }

    bool boolean(Key key) const {
        const json& field = required(key);
        if (!field.is_boolean()) fail(pathOf(key), "a boolean", field);
        return field.get<bool>();
    }

    template <typename Inner>
    KeyedContainer<Inner> nested(Key key) const {
        return {required(key), pathOf(key)};
    }

private:
    std::string pathOf(Key key) const {
        const std::string name(keyText<Record>(key));
        return path_.empty() ? name : path_ + "." + name;
    }

    const json& required(Key key) const {
        const auto field = value_.find(keyText<Record>(key));
        if (field == value_.end()) throw ManifestDecodingError(pathOf(key) + ": the key is missing");
        return *field;
    }

    [[noreturn]] static void fail(const std::string& path, const std::string& expected, const json& found) {
        throw ManifestDecodingError((path.empty() ? "The flash manifest" : path) + ": expected " + expected +
                                    ", found " + kindOf(found));
    }

    const json& value_;
    std::string path_;
};

/// The parser's message without its error number and without the offending text, which may be long.
std::string parserWords(const json::exception& error) {
    std::string words = error.what();
    if (const auto number = words.find("] "); number != std::string::npos) words.erase(0, number + 2);
    if (const auto token = words.find("; last read"); token != std::string::npos) words.resize(token);
    constexpr std::size_t oneLine = 160;
    if (words.size() > oneLine) words.resize(oneLine);
    return words;
}

json parse(std::span<const std::byte> bytes) {
    // JSON text never contains a NUL byte; the parser would mistake it for the end of the text.
    if (std::find(bytes.begin(), bytes.end(), std::byte{0}) != bytes.end())
        throw ManifestDecodingError("The flash manifest is not valid JSON: it holds a NUL byte");

    const auto* const text = reinterpret_cast<const char*>(bytes.data());
    try {
        return json::parse(text, text + bytes.size());
    } catch (const json::exception& error) {
        throw ManifestDecodingError("The flash manifest is not valid JSON: " + parserWords(error));
    }
}

FlashManifest::Binary decodeBinary(const KeyedContainer<FlashManifest::Binary>& container) {
    using Key = FlashManifest::Binary::CodingKeys;
    // Braced initialisers are evaluated from left to right: the first bad field is the one reported.
    return {container.text(Key::path), container.integer(Key::offset), container.integer(Key::size),
            container.text(Key::sha256)};
}

FlashManifest::Flash decodeFlash(const KeyedContainer<FlashManifest::Flash>& container) {
    using Key = FlashManifest::Flash::CodingKeys;
    return {container.integer(Key::baud),
            container.text(Key::flashSize),
            container.text(Key::flashMode),
            container.text(Key::flashFrequency),
            container.boolean(Key::eraseAllInternalFlash),
            container.text(Key::after),
            container.text(Key::confirmationText)};
}

}  // namespace

FlashManifest FlashManifest::decode(std::span<const std::byte> bytes) {
    using Key = CodingKeys;
    const json document = parse(bytes);
    const KeyedContainer<FlashManifest> container(document, {});
    return {container.integer(Key::schemaVersion),
            container.text(Key::name),
            container.text(Key::version),
            container.text(Key::chipFamily),
            container.text(Key::hardware),
            decodeBinary(container.nested<Binary>(Key::binary)),
            decodeFlash(container.nested<Flash>(Key::flash))};
}

}  // namespace qelmo
