#include "tests/ui/AlertAnswer.h"

#include <gtest/gtest.h>

#include <QAbstractButton>
#include <QApplication>
#include <QPushButton>
#include <QTest>
#include <QWindow>
#include <algorithm>

#include "tests/support/Waiting.h"

namespace qelmo {

namespace {

constexpr const char* takenProperty = "takenByAnAnswer";

}  // namespace

Alert shownAlert(const QMessageBox& box) {
    const bool isCritical = box.icon() == QMessageBox::Critical;
    Alert alert{isCritical ? Alert::Style::critical : Alert::Style::informational,
                box.text().toStdString(),
                box.informativeText().toStdString(),
                {}};
    QList<QAbstractButton*> buttons = box.buttons();
    std::sort(buttons.begin(), buttons.end(), [](QAbstractButton* one, QAbstractButton* other) {
        return one->mapToGlobal(QPoint()).x() < other->mapToGlobal(QPoint()).x();
    });
    for (const auto* button : buttons) alert.buttons.push_back(button->text().toStdString());
    return alert;
}

AlertAction click(const std::string& buttonTitle) {
    return [buttonTitle](QMessageBox& box) {
        for (auto* button : box.buttons())
            if (button->text().toStdString() == buttonTitle) return QTest::mouseClick(button, Qt::LeftButton);
        ADD_FAILURE() << "The alert has no button " << buttonTitle;
        box.reject();
    };
}

AlertAction pressKey(Qt::Key key) {
    return [key](QMessageBox& box) { QTest::keyClick(box.windowHandle(), key); };
}

AlertAction closeAlert() {
    return [](QMessageBox& box) { box.close(); };
}

AlertAction inOrder(AlertAction first, AlertAction second) {
    return [first = std::move(first), second = std::move(second)](QMessageBox& box) {
        first(box);
        second(box);
    };
}

std::deque<AlertAnswer*> AlertAnswer::waiting_;

AlertAnswer::AlertAnswer(AlertAction action) : action_(std::move(action)) {
    waiting_.push_back(this);
    QObject::connect(&timer_, &QTimer::timeout, &timer_, [this] { look(); });
    timer_.start(2);
}

AlertAnswer::~AlertAnswer() {
    if (wasShown_) return;
    std::erase(waiting_, this);
    ADD_FAILURE() << "An alert was expected and none was shown";
}

bool AlertAnswer::hasEnded() const {
    return wasShown_ && box_.isNull();
}

QMessageBox* AlertAnswer::unanswered() {
    auto* const box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
    if (box == nullptr || box->property(takenProperty).toBool()) return nullptr;
    // It accepts clicks and keys only once it is on the screen.
    return box->windowHandle() != nullptr && box->windowHandle()->isExposed() ? box : nullptr;
}

void AlertAnswer::look() {
    QMessageBox* const box = unanswered();
    if (box == nullptr || waiting_.front() != this) return;
    box->setProperty(takenProperty, true);
    timer_.stop();
    waiting_.pop_front();
    wasShown_ = true;
    box_ = box;
    alert_ = shownAlert(*box);
    QTimer::singleShot(waitingLimit, box, [box] {
        ADD_FAILURE() << "The alert did not end: " << box->text().toStdString();
        box->done(0);
    });
    action_(*box);
}

}  // namespace qelmo
