#pragma once

#include <QMessageBox>
#include <QPointer>
#include <QTimer>
#include <deque>
#include <functional>
#include <string>

#include "ui/Alert.h"

namespace qelmo {

/// What the user sees of an alert. The buttons are in their order on the screen, from left to right.
[[nodiscard]] Alert shownAlert(const QMessageBox& box);

/// What a test does with an open alert. It must close the alert.
using AlertAction = std::function<void(QMessageBox& box)>;

[[nodiscard]] AlertAction click(const std::string& buttonTitle);
[[nodiscard]] AlertAction pressKey(Qt::Key key);
[[nodiscard]] AlertAction closeAlert();
[[nodiscard]] AlertAction inOrder(AlertAction first, AlertAction second);

/// Answers the next alert that no other answer has taken, while the event loop runs. The test fails if no
/// alert opens or if the alert does not close. WindowTest reports an alert for which no answer waits.
class AlertAnswer {
public:
    explicit AlertAnswer(AlertAction action);
    AlertAnswer(const AlertAnswer&) = delete;
    AlertAnswer& operator=(const AlertAnswer&) = delete;
    ~AlertAnswer();

    [[nodiscard]] bool hasEnded() const;
    [[nodiscard]] const Alert& alert() const { return alert_; }

    /// The open alert that no answer has taken yet, or null.
    [[nodiscard]] static QMessageBox* unanswered();
    [[nodiscard]] static bool isExpected() { return !waiting_.empty(); }

private:
    void look();

    /// In the order in which they get the alerts.
    static std::deque<AlertAnswer*> waiting_;

    const AlertAction action_;
    QTimer timer_;
    QPointer<QMessageBox> box_;
    bool wasShown_ = false;
    Alert alert_{};
};

}  // namespace qelmo
