#include "ui/Alert.h"

#include <QAbstractButton>
#include <QLabel>
#include <QMessageBox>
#include <QPushButton>

#include "ui/MonospacedFont.h"

namespace qelmo {

namespace {

constexpr int messageSize = 13;
constexpr int informativeSize = 12;
constexpr int informativeWidth = 440;

void showPlainText(QMessageBox& box, const Alert& alert) {
    box.setTextFormat(Qt::PlainText);
    box.setText(QString::fromStdString(alert.messageText));
    box.setInformativeText(QString::fromStdString(alert.informativeText));

    // The box passes neither its text format nor a font of its own on to the second text.
    if (auto* message = box.findChild<QLabel*>(QStringLiteral("qt_msgbox_label")))
        message->setFont(monospacedFont(messageSize, QFont::Bold));
    if (auto* informative = box.findChild<QLabel*>(QStringLiteral("qt_msgbox_informativelabel"))) {
        informative->setTextFormat(Qt::PlainText);
        informative->setFont(monospacedFont(informativeSize, QFont::Normal));
        informative->setFixedWidth(informativeWidth);
    }
}

QList<QAbstractButton*> addButtons(QMessageBox& box, const std::vector<std::string>& titles) {
    QList<QAbstractButton*> added;
    for (const std::string& title : titles) {
        const auto role = added.isEmpty() ? QMessageBox::AcceptRole : QMessageBox::RejectRole;
        added.append(box.addButton(QString::fromStdString(title), role));
    }
    box.setDefaultButton(qobject_cast<QPushButton*>(added.first()));
    box.setEscapeButton(added.last());
    return added;
}

}  // namespace

int Alert::runModal(QWidget* window) const {
    QMessageBox box(window);
    box.setWindowFlags(Qt::Dialog | Qt::CustomizeWindowHint | Qt::WindowTitleHint |
                       Qt::WindowCloseButtonHint);
    box.setWindowModality(Qt::ApplicationModal);
    box.setIcon(style == Style::critical ? QMessageBox::Critical : QMessageBox::Information);
    box.setWindowTitle(window == nullptr ? QString() : window->windowTitle());
    box.setFont(monospacedFont(informativeSize, QFont::Normal));
    showPlainText(box, *this);
    const auto boxButtons = addButtons(box, buttons);

    box.exec();
    const auto pressed = boxButtons.indexOf(box.clickedButton());
    return pressed < 0 ? 0 : firstButtonReturn + static_cast<int>(pressed);
}

}  // namespace qelmo
