#include "ui/ActionButton.h"

#include <QKeyEvent>

#include "ui/AppDelegate.h"

namespace qelmo {

namespace {

/// Wider than the window. More only takes time: the title comes from a file and may have any length.
constexpr qsizetype longestShownTitle = 400;

/// Return presses as the space bar does: when it is let go. A Return that is held down would answer the alert
/// that the press opens, too.
QKeyEvent withReturnAsSpace(const QKeyEvent& event) {
    const bool isReturn = event.key() == Qt::Key_Return || event.key() == Qt::Key_Enter;
    return {event.type(), isReturn ? Qt::Key_Space : event.key(), event.modifiers(), event.text(),
            event.isAutoRepeat()};
}

}  // namespace

ActionButton::ActionButton(const QString& initialTitle, AppDelegate& target, Action sentAction,
                           QWidget* parent)
    : QPushButton(parent), action_(sentAction) {
    setTitle(initialTitle);
    connect(this, &QPushButton::clicked, &target, [&target, sentAction] { (target.*sentAction)(); });
}

void ActionButton::setTitle(const QString& newTitle) {
    title_ = newTitle;
    QString shown = newTitle;
    if (shown.size() > longestShownTitle) shown = shown.left(longestShownTitle) + QStringLiteral("…");
    setText(shown.replace(QLatin1Char('&'), QLatin1String("&&")));
    setAccessibleName(newTitle);
}

void ActionButton::keyPressEvent(QKeyEvent* event) {
    QKeyEvent key = withReturnAsSpace(*event);
    QPushButton::keyPressEvent(&key);
    event->setAccepted(key.isAccepted());
}

void ActionButton::keyReleaseEvent(QKeyEvent* event) {
    QKeyEvent key = withReturnAsSpace(*event);
    QPushButton::keyReleaseEvent(&key);
    event->setAccepted(key.isAccepted());
}

}  // namespace qelmo
