#include "ui/Alert.h"

#include <QAbstractButton>
#include <QFontMetrics>
#include <QLabel>
#include <QMessageBox>
#include <QPushButton>
#include <QScreen>
#include <algorithm>

#include "ui/Look.h"
#include "ui/TextLabel.h"

namespace qelmo {

namespace {

constexpr int messageSize = 13;
constexpr int informativeSize = 12;
constexpr int textWidth = 440;
constexpr int mostMessageLines = 4;
constexpr int fewestInformativeLines = 4;
/// A generous estimate for the title bar, the message, the buttons and the space between them.
constexpr int heightWithoutInformativeText = 220;

/// As many lines as fit while the buttons stay on the screen.
int mostInformativeLines(const QScreen& screen, const QFont& font) {
    const int height = screen.availableGeometry().height() - heightWithoutInformativeText;
    return std::max(fewestInformativeLines, height / QFontMetrics(font).lineSpacing());
}

void showPlainText(QMessageBox& box, const Alert& alert) {
    const QFont messageFont = monospacedFont(messageSize, QFont::Bold);
    const QFont informativeFont = monospacedFont(informativeSize, QFont::Normal);
    box.setTextFormat(Qt::PlainText);
    box.setText(
        shownLines(QString::fromStdString(alert.messageText), messageFont, textWidth, mostMessageLines)
            .join(QLatin1Char('\n')));
    box.setInformativeText(fittingText(QString::fromStdString(alert.informativeText), informativeFont,
                                       textWidth, mostInformativeLines(*box.screen(), informativeFont)));

    // The box applies neither its text format nor its font to the informative text.
    if (auto* message = box.findChild<QLabel*>(QStringLiteral("qt_msgbox_label")))
        message->setFont(messageFont);
    if (auto* informative = box.findChild<QLabel*>(QStringLiteral("qt_msgbox_informativelabel"))) {
        informative->setTextFormat(Qt::PlainText);
        informative->setFont(informativeFont);
        const QMargins margins = informative->contentsMargins();
        informative->setFixedWidth(textWidth + margins.left() + margins.right());
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
