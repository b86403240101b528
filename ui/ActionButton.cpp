#include "ui/ActionButton.h"

#include "ui/AppDelegate.h"

namespace qelmo {

ActionButton::ActionButton(const QString& initialTitle, AppDelegate& target, Action sentAction,
                           QWidget* parent)
    : QPushButton(parent), action_(sentAction) {
    setTitle(initialTitle);
    connect(this, &QPushButton::clicked, &target, [&target, sentAction] { (target.*sentAction)(); });
}

void ActionButton::setTitle(const QString& newTitle) {
    title_ = newTitle;
    setText(QString(newTitle).replace(QLatin1Char('&'), QLatin1String("&&")));
    setAccessibleName(newTitle);
}

}  // namespace qelmo
