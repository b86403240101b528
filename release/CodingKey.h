#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <string_view>

namespace qelmo {

/// The key texts of one manifest record, in the order of its `CodingKeys`. Specialised beside each record.
template <typename CodingKeys>
inline constexpr std::array<std::string_view, 0> codingKeyTexts{};

/// The key as it stands in the JSON text.
template <typename CodingKeys>
[[nodiscard]] constexpr std::string_view keyText(CodingKeys key) {
    return codingKeyTexts<CodingKeys>.at(static_cast<std::size_t>(key));
}

/// The key whose text is exactly `text`, or nothing. There is no look-up by number: keys have no number.
template <typename CodingKeys>
[[nodiscard]] constexpr std::optional<CodingKeys> codingKey(std::string_view text) {
    constexpr const auto& texts = codingKeyTexts<CodingKeys>;
    for (std::size_t index = 0; index < texts.size(); ++index) {
        if (texts[index] == text) return static_cast<CodingKeys>(index);
    }
    return std::nullopt;
}

}  // namespace qelmo
