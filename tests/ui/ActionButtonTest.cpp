#include "tests/ui/WindowTest.h"
#include "ui/ActionButton.h"

namespace qelmo {

namespace {

class ActionButtonTitle : public WindowTest {
protected:
    ActionButtonTitle() { launch(); }

    std::string shown(const std::string& title) const {
        delegate->flashButton->setTitle(QString::fromStdString(title));
        return delegate->flashButton->text().toStdString();
    }
};

TEST_F(ActionButtonTitle, IsCutAndEndsWithASignWhenItIsFarWiderThanTheWindow) {
    EXPECT_EQ(shown(std::string(400, 'x')), std::string(400, 'x'));
    EXPECT_EQ(shown(std::string(401, 'x')), std::string(400, 'x') + "…");
    EXPECT_EQ(shown(std::string(1'000'000, 'x')), std::string(400, 'x') + "…");
}

TEST_F(ActionButtonTitle, IsWholeForWhoeverAsksForItHoweverLongItIs) {
    const std::string title(1'000'000, 'x');
    shown(title);
    EXPECT_EQ(delegate->flashButton->title().toStdString(), title);
    EXPECT_EQ(delegate->flashButton->accessibleName().toStdString(), title);
}

TEST_F(ActionButtonTitle, CountsAnAmpersandAsOneCharacter) {
    EXPECT_EQ(shown(std::string(399, 'x') + "&&"), std::string(399, 'x') + "&&…");
}

}  // namespace

}  // namespace qelmo
