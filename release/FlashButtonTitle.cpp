#include "release/FlashButtonTitle.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace qelmo {

namespace {

/// White space and line breaks: Unicode's General Category Z, U+0009 to U+000D, and U+0085.
constexpr std::array<std::string_view, 25> whiteSpace{
    "\t",     "\n",     "\v",     "\f",     "\r",     " ",      "\u0085", "\u00A0", "\u1680",
    "\u2000", "\u2001", "\u2002", "\u2003", "\u2004", "\u2005", "\u2006", "\u2007", "\u2008",
    "\u2009", "\u200A", "\u2028", "\u2029", "\u202F", "\u205F", "\u3000"};

std::string_view withoutWhiteSpaceAtBothEnds(std::string_view text) {
    // Comparing whole UTF-8 sequences is safe from either end: no sequence ends inside another.
    for (bool found = true; found;) {
        found = std::any_of(whiteSpace.begin(), whiteSpace.end(), [&text](std::string_view space) {
            if (text.starts_with(space)) {
                text.remove_prefix(space.size());
                return true;
            }
            if (text.ends_with(space)) {
                text.remove_suffix(space.size());
                return true;
            }
            return false;
        });
    }
    return text;
}

}  // namespace

std::string verifiedFlashButtonTitle(const FlashManifest& manifest) {
    constexpr std::string_view action = "FLASH";
    constexpr std::string_view actionAndSpace = "FLASH ";
    std::string title = "FLASH VERIFIED";

    std::string_view words = withoutWhiteSpaceAtBothEnds(manifest.flash.confirmationText);
    if (words == action) return title;
    if (words.starts_with(actionAndSpace)) words.remove_prefix(actionAndSpace.size());
    title += ' ';
    title += words;
    return title;
}

}  // namespace qelmo
