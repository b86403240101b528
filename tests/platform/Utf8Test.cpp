#include "platform/Utf8.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <vector>

namespace qelmo {
namespace {

const std::string replacement = "\uFFFD";

std::string replacements(std::size_t count) {
    std::string text;
    while (count-- > 0) text += replacement;
    return text;
}

TEST(Utf8, LeavesWellFormedTextAsItIs) {
    const std::string text = "A\u00E9\u20AC\U0001F600\u0000 \r\n\x7F";
    EXPECT_EQ(decodedUtf8(text), text);
    EXPECT_EQ(decodedUtf8(""), "");
}

TEST(Utf8, LeavesTheFirstAndLastCharacterOfEachLengthAsTheyAre) {
    for (const std::string text : {"\x01", "\x7F", "\u0080", "\u07FF", "\u0800", "\uD7FF", "\uE000", "\uFFFF",
                                   "\U00010000", "\U0010FFFF"})
        EXPECT_EQ(decodedUtf8(text), text);
}

TEST(Utf8, KeepsANulCharacter) {
    using namespace std::string_literals;
    EXPECT_EQ(decodedUtf8("a\0b\xFF\0"s), "a\0b\uFFFD\0"s);
}

// The examples of the Unicode Standard 15.0, section 3.9, tables 3-8 to 3-11.

TEST(Utf8, ReplacesEachByteOfAnOverlongForm) {
    EXPECT_EQ(decodedUtf8("\xC0\xAF\xE0\x80\xBF\xF0\x81\x82\x41"), replacements(8) + "A");
}

TEST(Utf8, ReplacesEachByteOfAnEncodedSurrogate) {
    EXPECT_EQ(decodedUtf8("\xED\xA0\x80\xED\xBF\xBF\xED\xAF\x41"), replacements(8) + "A");
}

TEST(Utf8, ReplacesEachByteThatCanStandNowhere) {
    EXPECT_EQ(decodedUtf8("\xF4\x91\x92\x93\xFF\x41\x80\xBF\x42"),
              replacements(5) + "A" + replacements(2) + "B");
}

TEST(Utf8, ReplacesATruncatedCharacterOnce) {
    EXPECT_EQ(decodedUtf8("\xE1\x80\xE2\xF0\x91\x92\xF1\xBF\x41"), replacements(4) + "A");
}

TEST(Utf8, ReplacesBothPartsOfASplitCharacter) {
    EXPECT_EQ(decodedUtf8("ok \xE2\x82"), "ok " + replacement);
    EXPECT_EQ(decodedUtf8("\xAC end"), replacement + " end");
}

/// An independent and slow decoder: it knows no rules, only the list of every well-formed sequence and of
/// every beginning of one.
class SlowDecoder {
public:
    SlowDecoder() {
        for (std::uint32_t scalar = 0; scalar <= 0x10FFFF; ++scalar) {
            if (scalar < 0xD800 || scalar > 0xDFFF) add(encoded(scalar));
        }
        for (auto* list : {&sequences_, &beginnings_}) {
            std::sort(list->begin(), list->end());
            list->erase(std::unique(list->begin(), list->end()), list->end());
        }
    }

    [[nodiscard]] std::string decoded(std::string_view bytes) const {
        std::string text;
        while (!bytes.empty()) {
            std::size_t length = std::min<std::size_t>(4, bytes.size());
            while (length > 1 && !contains(beginnings_, bytes.substr(0, length))) --length;
            const std::string_view part = bytes.substr(0, length);
            text += contains(sequences_, part) ? part : replacement;
            bytes.remove_prefix(length);
        }
        return text;
    }

private:
    static std::string encoded(std::uint32_t scalar) {
        const auto unit = [](std::uint32_t value) { return static_cast<char>(value); };
        const auto rest = [&](int shift) { return unit(0x80 | ((scalar >> shift) & 0x3F)); };
        if (scalar < 0x80) return {unit(scalar)};
        if (scalar < 0x800) return {unit(0xC0 | (scalar >> 6)), rest(0)};
        if (scalar < 0x10000) return {unit(0xE0 | (scalar >> 12)), rest(6), rest(0)};
        return {unit(0xF0 | (scalar >> 18)), rest(12), rest(6), rest(0)};
    }

    /// Length and bytes in one number.
    static std::uint64_t number(std::string_view bytes) {
        std::uint64_t value = bytes.size();
        for (const char unit : bytes) value = value << 8 | static_cast<std::uint8_t>(unit);
        return value;
    }

    void add(std::string_view sequence) {
        sequences_.push_back(number(sequence));
        for (std::size_t length = 1; length <= sequence.size(); ++length) {
            const std::uint64_t beginning = number(sequence.substr(0, length));
            if (beginnings_.empty() || beginnings_.back() != beginning) beginnings_.push_back(beginning);
        }
    }

    static bool contains(const std::vector<std::uint64_t>& list, std::string_view bytes) {
        return std::binary_search(list.begin(), list.end(), number(bytes));
    }

    std::vector<std::uint64_t> sequences_;
    std::vector<std::uint64_t> beginnings_;
};

const SlowDecoder& slowDecoder() {
    static const SlowDecoder decoder;
    return decoder;
}

TEST(Utf8, AgreesWithASlowDecoderOnEveryOneAndTwoBytes) {
    for (int first = 0; first < 256; ++first) {
        const std::string one(1, static_cast<char>(first));
        ASSERT_EQ(decodedUtf8(one), slowDecoder().decoded(one)) << first;
        for (int second = 0; second < 256; ++second) {
            const std::string two = one + static_cast<char>(second);
            ASSERT_EQ(decodedUtf8(two), slowDecoder().decoded(two)) << first << " " << second;
        }
    }
}

TEST(Utf8, AgreesWithASlowDecoderOnFourBytesAtEveryBoundary) {
    constexpr auto boundaries =
        std::to_array<int>({0x41, 0x7F, 0x80, 0x8F, 0x90, 0x9F, 0xA0, 0xBF, 0xC1, 0xC2, 0xDF,
                            0xE0, 0xE1, 0xEC, 0xED, 0xEF, 0xF0, 0xF1, 0xF3, 0xF4, 0xF5, 0xFF});
    constexpr std::size_t count = boundaries.size();
    for (std::size_t mix = 0; mix < count * count * count * count; ++mix) {
        std::string bytes;
        for (std::size_t digits = mix; bytes.size() < 4; digits /= count)
            bytes += static_cast<char>(boundaries[digits % count]);
        ASSERT_EQ(decodedUtf8(bytes), slowDecoder().decoded(bytes)) << testing::PrintToString(bytes);
    }
}

TEST(ShownOnOneLine, HasNoCharacterThatEndsALineOrThatATerminalObeys) {
    EXPECT_EQ(shownOnOneLine("a\nb\rc\x1B[31md\x7F"), "a?b?c?[31md?");
    EXPECT_EQ(shownOnOneLine("a\u202Eb\u2066c\u2069"), "a?b?c?");
    EXPECT_EQ(shownOnOneLine("a\u0085b\u009B31mc\u2028d\u2029e"), "a?b?31mc?d?e");
}

TEST(ShownOnOneLine, KeepsEveryOtherCharacter) {
    EXPECT_EQ(shownOnOneLine("d\u00FCr \u00A0 \u2027 \u202F \u2065 \U0001F600 \xFF"),
              "d\u00FCr \u00A0 \u2027 \u202F \u2065 \U0001F600 \uFFFD");
}

}  // namespace
}  // namespace qelmo
