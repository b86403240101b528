#include "release/FlashButtonTitle.h"

#include <gtest/gtest.h>

#include <array>
#include <string_view>

namespace qelmo {
namespace {

std::string titleFor(std::string confirmationText) {
    return verifiedFlashButtonTitle(
        {1, "", "", "", "", {"", 0, 0, ""}, {0, "", "", "", true, "", std::move(confirmationText)}});
}

TEST(FlashButtonTitle, PutsVerifiedBehindTheActionOfTheManifest) {
    EXPECT_EQ(titleFor("FLASH VARNOX"), "FLASH VERIFIED VARNOX");
    EXPECT_EQ(titleFor("FLASH THE VARNOX"), "FLASH VERIFIED THE VARNOX");
}

TEST(FlashButtonTitle, IsOnlyTheVerifiedActionWhenThereAreNoFurtherWords) {
    EXPECT_EQ(titleFor("FLASH"), "FLASH VERIFIED");
    EXPECT_EQ(titleFor(" FLASH \n"), "FLASH VERIFIED");
}

TEST(FlashButtonTitle, KeepsWordsThatDoNotBeginWithTheAction) {
    EXPECT_EQ(titleFor("INSTALL VARNOX"), "FLASH VERIFIED INSTALL VARNOX");
    EXPECT_EQ(titleFor("FLASHVARNOX"), "FLASH VERIFIED FLASHVARNOX");
    EXPECT_EQ(titleFor("FLASH\tVARNOX"), "FLASH VERIFIED FLASH\tVARNOX");
    EXPECT_EQ(titleFor("FLASH\u00A0VARNOX"), "FLASH VERIFIED FLASH\u00A0VARNOX");
}

TEST(FlashButtonTitle, FoldsNoCase) {
    EXPECT_EQ(titleFor("flash varnox"), "FLASH VERIFIED flash varnox");
    EXPECT_EQ(titleFor("Flash"), "FLASH VERIFIED Flash");
}

TEST(FlashButtonTitle, EndsWithASpaceWhenTheTextIsEmptyOrBlank) {
    EXPECT_EQ(titleFor(""), "FLASH VERIFIED ");
    EXPECT_EQ(titleFor(" \t\r\n"), "FLASH VERIFIED ");
}

TEST(FlashButtonTitle, DropsTheActionOnceAndKeepsTheSpaceBehindIt) {
    EXPECT_EQ(titleFor("FLASH FLASH VARNOX"), "FLASH VERIFIED FLASH VARNOX");
    EXPECT_EQ(titleFor("FLASH  VARNOX"), "FLASH VERIFIED  VARNOX");
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

TEST(FlashButtonTitle, KeepsAnAmpersandAndMarkupAsTheyAre) {
    EXPECT_EQ(titleFor("FLASH A & <b>B</b>"), "FLASH VERIFIED A & <b>B</b>");
}

}  // namespace
}  // namespace qelmo
