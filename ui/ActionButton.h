#pragma once

#include <QPushButton>

namespace qelmo {

class AppDelegate;

/// A push button that sends one operation to the delegate, and can be asked which.
class ActionButton : public QPushButton {
public:
    using Action = void (AppDelegate::*)();

    /// `target` must outlive the button.
    ActionButton(AppDelegate& target, Action sentAction, QWidget* parent);

    /// The title as it stands: an ampersand is an ampersand, not a shortcut.
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
