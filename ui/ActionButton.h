#pragma once

#include <QPushButton>

namespace qelmo {

class AppDelegate;

/// A push button that calls one operation of the delegate. The operation can be queried.
class ActionButton : public QPushButton {
public:
    using Action = void (AppDelegate::*)();

    /// `target` must outlive the button.
    ActionButton(AppDelegate& target, Action sentAction, QWidget* parent);

    /// The literal title: an ampersand does not mark a shortcut.
    [[nodiscard]] QString title() const { return title_; }
    void setTitle(const QString& newTitle);

    [[nodiscard]] Action action() const { return action_; }

protected:
    bool event(QEvent* event) override;

private:
    QString title_;
    const Action action_;
};

}  // namespace qelmo
