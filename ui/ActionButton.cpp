#include "ui/ActionButton.h"

#include <QKeyEvent>

#include "ui/AppDelegate.h"

namespace qelmo {

ActionButton::ActionButton(AppDelegate& target, Action sentAction, QWidget* parent)
    : QPushButton(parent), action_(sentAction) {
    connect(this, &QPushButton::clicked, &target, [&target, sentAction] { (target.*sentAction)(); });
}

void ActionButton::setTitle(const QString& newTitle) {
    // Wider than the window. The title comes from a file and may have any length; more only takes time.
    constexpr qsizetype longestShownTitle = 400;
    if (newTitle == title_) return;
    title_ = newTitle;
    QString shown = newTitle;
    if (shown.size() > longestShownTitle) shown = shown.left(longestShownTitle) + QStringLiteral("…");
    setText(shown.replace(QLatin1Char('&'), QLatin1String("&&")));
    setAccessibleName(newTitle);
}

bool ActionButton::event(QEvent* event) {
    if (event->type() != QEvent::KeyPress && event->type() != QEvent::KeyRelease)
        return QPushButton::event(event);
    const auto& typed = static_cast<const QKeyEvent&>(*event);
    if (typed.key() != Qt::Key_Return && typed.key() != Qt::Key_Enter) return QPushButton::event(event);

    // Return fires on release, like Space: a held Return would also confirm the alert that it opens.
    QKeyEvent space(typed.type(), Qt::Key_Space, typed.modifiers(), typed.text(), typed.isAutoRepeat());
    const bool isHandled = QPushButton::event(&space);
    event->setAccepted(space.isAccepted());
    return isHandled;
}

}  // namespace qelmo
