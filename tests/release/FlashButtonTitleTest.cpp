#include "release/ReleaseTexts.h"

#include <gtest/gtest.h>

#include <utility>

namespace qelmo {
namespace {

std::string titleFor(std::string confirmationText) {
    return verifiedFlashButtonTitle(
        {1, "", "", "", "", {"", 0, 0, ""}, {0, "", "", "", true, "", std::move(confirmationText)}});
}

TEST(FlashButtonTitle, PutsVerifiedAfterTheActionOfTheManifest) {
    const std::pair<const char*, const char*> titles[] = {
        {"FLASH VARNOX", "FLASH VERIFIED VARNOX"},
        {"FLASH", "FLASH VERIFIED"},
        {" FLASH \n", "FLASH VERIFIED"},
        // The action counts once, and only if it is exact: complete, in upper case, with one space after it.
        {"FLASH FLASH VARNOX", "FLASH VERIFIED FLASH VARNOX"},
        {"FLASH  VARNOX", "FLASH VERIFIED  VARNOX"},
        {"FLASHVARNOX", "FLASH VERIFIED FLASHVARNOX"},
        {"FLASH\tVARNOX", "FLASH VERIFIED FLASH\tVARNOX"},
        {"flash varnox", "FLASH VERIFIED flash varnox"},
        {"INSTALL A & <b>B</b>", "FLASH VERIFIED INSTALL A & <b>B</b>"},
        {"", "FLASH VERIFIED "},
        {" \t\r\n", "FLASH VERIFIED "}};
    for (const auto& [words, title] : titles) EXPECT_EQ(titleFor(words), title);
}

TEST(FlashButtonTitle, DropsEachWhiteSpaceCharacterAtBothEndsAndNoneInside) {
    for (const std::string space :
         {"\t",     "\n",     "\v",     "\f",     "\r",     " ",      "\u0085", "\u00A0", "\u1680",
          "\u2000", "\u2001", "\u2002", "\u2003", "\u2004", "\u2005", "\u2006", "\u2007", "\u2008",
          "\u2009", "\u200A", "\u2028", "\u2029", "\u202F", "\u205F", "\u3000"}) {
        EXPECT_EQ(titleFor(space + "FLASH A" + space + "B" + space), "FLASH VERIFIED A" + space + "B")
            << testing::PrintToString(space);
        EXPECT_EQ(titleFor(space + " " + space), "FLASH VERIFIED ");
    }
}

TEST(FlashButtonTitle, KeepsCharactersThatOnlyLookLikeWhiteSpace) {
    for (const std::string character :
         {"\u200B", "\u180E", "\u2060", "\uFEFF", "\x08", "\x1C", "\u00C2", "\u0105", "\u2800"})
        EXPECT_EQ(titleFor(character), "FLASH VERIFIED " + character);
}

}  // namespace
}  // namespace qelmo
