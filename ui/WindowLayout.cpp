#include "ui/WindowLayout.h"

#include <QComboBox>
#include <QHBoxLayout>
#include <QKeySequence>
#include <QPainter>
#include <QScreen>
#include <QShortcut>
#include <QVBoxLayout>
#include <QWheelEvent>
#include <QWidget>
#include <algorithm>
#include <memory>

#include "ui/ActionButton.h"
#include "ui/ActivityBar.h"
#include "ui/AppDelegate.h"
#include "ui/LogTextView.h"
#include "ui/Look.h"
#include "ui/TextLabel.h"

namespace qelmo {

namespace {

/// In device-independent pixels.
namespace Length {
constexpr int windowWidth = 720;
constexpr int windowHeight = 650;
/// The real height is unknown until the window is shown. No usual title bar is higher.
constexpr int titleBarHeight = 40;
constexpr int columnSideInset = 26;
constexpr int columnEndInset = 24;
constexpr int columnSpacing = 14;
constexpr int ruleHeight = 2;
constexpr int panelHeight = 82;
constexpr int panelInset = 16;
constexpr int panelCornerRadius = 6;
constexpr int portRowSpacing = 10;
constexpr int portCaptionWidth = 82;
constexpr int portPopupHeight = 32;
constexpr int refreshButtonWidth = 122;
constexpr int actionRowSpacing = 12;
constexpr int statusWidth = 180;
/// Two lines of the status, so that the rows below do not move when it wraps.
constexpr int actionRowHeight = 26;
constexpr int logHeight = 210;
constexpr int logInset = 10;
constexpr int flashButtonHeight = 44;
}  // namespace Length

/// Ignores the wheel, which would choose another device without a click.
class PortMenu : public QComboBox {
public:
    using QComboBox::QComboBox;

protected:
    void wheelEvent(QWheelEvent* event) override { event->ignore(); }
};

/// Builds the rows of one window from top to bottom.
class WindowBuilder {
public:
    explicit WindowBuilder(AppDelegate& delegate) : delegate_(delegate) {}

    void build() {
        buildWindow();
        addHeading();
        addReleasePanel();
        addPortRow();
        addBootModeHint();
        addActionRow();
        addLog();
        addFlashButton();
        addFooter();
        column_->addStretch();
        orderKeyboardFocus();
        placeWholeWidgets();
    }

private:
    void buildWindow() {
        delegate_.window = std::make_unique<QWidget>(
            nullptr, Qt::Window | Qt::CustomizeWindowHint | Qt::WindowTitleHint | Qt::WindowSystemMenuHint |
                         Qt::WindowMinimizeButtonHint | Qt::WindowCloseButtonHint);
        QWidget& window = *delegate_.window;
        window.setWindowTitle(QStringLiteral("QELMO Varnox Flasher"));
        window.setFixedSize(Length::windowWidth, Length::windowHeight);
        window.move(windowPosition(window.screen()->geometry(), window.screen()->availableGeometry()));

        QPalette colours = window.palette();
        colours.setColor(QPalette::Window, delegate_.background);
        window.setPalette(colours);

#ifndef Q_OS_MACOS  // On macOS the application menu has this shortcut.
        auto* const quit = new QShortcut(QKeySequence(Qt::CTRL | Qt::Key_Q), &window);
        QObject::connect(quit, &QShortcut::activated, &window, &QWidget::close);
#endif

        column_ = new QVBoxLayout(&window);
        column_->setContentsMargins(Length::columnSideInset, Length::columnEndInset, Length::columnSideInset,
                                    Length::columnEndInset);
        column_->setSpacing(Length::columnSpacing);
    }

    void addHeading() {
        column_->addWidget(label("QELMO // FLASH", 29, QFont::Bold, delegate_.foreground));
        column_->addWidget(
            label("VARNOX  •  CARDPUTER ADV  •  COMPLETE 0x0 IMAGE", 12, QFont::DemiBold, delegate_.accent));
        auto* const rule = new ColouredBox(delegate_.accent, 0, parent());
        rule->setFixedHeight(Length::ruleHeight);
        column_->addWidget(rule);
    }

    void addReleasePanel() {
        auto* const panel = new ColouredBox(delegate_.panel, Length::panelCornerRadius, parent());
        panel->setFixedHeight(Length::panelHeight);
        column_->addWidget(panel);

        delegate_.releaseLabel = label("", 13, QFont::Medium, delegate_.foreground);
        delegate_.releaseLabel->setMaximumLines(3);
        delegate_.releaseLabel->setAccessibleDescription(QStringLiteral("Release"));
        auto* const inside = new QHBoxLayout(panel);
        inside->setContentsMargins(Length::panelInset, 0, Length::panelInset, 0);
        inside->addWidget(delegate_.releaseLabel, 0, Qt::AlignVCenter);
    }

    void addPortRow() {
        QHBoxLayout* const row = addRow(Length::portRowSpacing);

        auto* const caption = label("BOOT PORT", 11, QFont::Bold, delegate_.muted);
        caption->setFixedWidth(Length::portCaptionWidth);
        row->addWidget(caption, 0, Qt::AlignVCenter);

        delegate_.portPopup = new PortMenu(parent());
        // Set before anything asks for the size: a long name must not widen the window.
        delegate_.portPopup->setSizeAdjustPolicy(QComboBox::AdjustToMinimumContentsLengthWithIcon);
        delegate_.portPopup->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
        delegate_.portPopup->setFont(monospacedFont(12, QFont::Medium));
        delegate_.portPopup->setFixedHeight(Length::portPopupHeight);
        delegate_.portPopup->setAccessibleName(QStringLiteral("Boot port"));
        // If a menu is announced by its selected item only, the caption says what it is.
        caption->setBuddy(delegate_.portPopup);
        row->addWidget(delegate_.portPopup, 0, Qt::AlignVCenter);

        delegate_.refreshButton = new ActionButton(delegate_, &AppDelegate::refreshBuildAndPorts, parent());
        delegate_.refreshButton->setTitle(QStringLiteral("REFRESH BUILD"));
        delegate_.refreshButton->setFont(monospacedFont(11, QFont::Bold));
        delegate_.refreshButton->setToolTip(
            QStringLiteral("Reload the newest embedded build and rescan USB boot ports"));
        delegate_.refreshButton->setFixedWidth(Length::refreshButtonWidth);
        row->addWidget(delegate_.refreshButton, 0, Qt::AlignVCenter);
    }

    void addBootModeHint() {
        auto* const hint =
            label("G0 BOOT MODE  //  Turn off → hold G0 → power on → release G0 → connect USB data cable", 11,
                  QFont::Medium, delegate_.muted);
        hint->setMaximumLines(2);
        column_->addWidget(hint);
    }

    void addActionRow() {
        QHBoxLayout* const row = addRow(Length::actionRowSpacing);

        delegate_.statusLabel = label("", 11, QFont::Bold, delegate_.warning);
        delegate_.statusLabel->setMaximumLines(2);
        delegate_.statusLabel->setFixedSize(Length::statusWidth, Length::actionRowHeight);
        delegate_.statusLabel->setAccessibleDescription(QStringLiteral("Status"));
        delegate_.statusLabel->announceTexts();
        row->addWidget(delegate_.statusLabel, 0, Qt::AlignVCenter);

        delegate_.progress = new ActivityBar(delegate_.panel.lighter(200), delegate_.warning, parent());
        delegate_.progress->setAccessibleName(QStringLiteral("Flash progress"));
        row->addWidget(delegate_.progress, 1, Qt::AlignVCenter);
    }

    void addLog() {
        delegate_.logTextView = new LogTextView(monospacedFont(11, QFont::Normal), delegate_.foreground,
                                                Qt::black, Length::logInset, parent());
        delegate_.logTextView->setFixedHeight(Length::logHeight);
        delegate_.logTextView->setAccessibleName(QStringLiteral("Log"));
        column_->addWidget(delegate_.logTextView);
    }

    void addFlashButton() {
        delegate_.flashButton = new ActionButton(delegate_, &AppDelegate::flashDevice, parent());
        delegate_.flashButton->setFont(monospacedFont(14, QFont::Bold));
        delegate_.flashButton->setFixedHeight(Length::flashButtonHeight);
        // The column decides the width, whatever the title is.
        delegate_.flashButton->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Fixed);
        column_->addWidget(delegate_.flashButton);
    }

    void addFooter() {
        column_->addWidget(label("INTERNAL FLASH ONLY  •  SD CARD IS NEVER MOUNTED OR ACCESSED", 10,
                                 QFont::Bold, delegate_.accent));
    }

    void orderKeyboardFocus() {
        QWidget::setTabOrder(delegate_.portPopup, delegate_.refreshButton);
        QWidget::setTabOrder(delegate_.refreshButton, delegate_.logTextView);
        QWidget::setTabOrder(delegate_.logTextView, delegate_.flashButton);
    }

    /// Lays out whole widgets. A style whose controls have shadows, such as that of macOS, would otherwise
    /// lay out smaller rectangles, and the rows would move.
    void placeWholeWidgets() {
        for (QWidget* const view : parent()->findChildren<QWidget*>())
            view->setAttribute(Qt::WA_LayoutUsesWidgetRect);
    }

    QWidget* parent() {
        return delegate_.window.get();
    }

    TextLabel* label(const char* text, int size, QFont::Weight weight, const QColor& colour) {
        return new TextLabel(QString::fromUtf8(text), monospacedFont(size, weight), colour, parent());
    }

    /// A row as wide as the column, its views centred vertically.
    QHBoxLayout* addRow(int spacing) {
        auto* const row = new QHBoxLayout;
        row->setSpacing(spacing);
        column_->addLayout(row);
        return row;
    }

    AppDelegate& delegate_;
    QVBoxLayout* column_ = nullptr;
};

}  // namespace

ColouredBox::ColouredBox(const QColor& colour, int cornerRadius, QWidget* parent)
    : QWidget(parent), colour_(colour), cornerRadius_(cornerRadius) {}

void ColouredBox::paintEvent(QPaintEvent* /*event*/) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(colour_);
    painter.drawRoundedRect(rect(), cornerRadius_, cornerRadius_);
}

void buildWindowLayout(AppDelegate& delegate) {
    WindowBuilder(delegate).build();
}

QPoint windowPosition(const QRect& screen, const QRect& available) {
    const int left = screen.left() + (screen.width() - Length::windowWidth) / 2;
    const int top = screen.top() + (screen.height() - Length::windowHeight) / 2;
    const int lowestTop =
        available.top() + available.height() - Length::titleBarHeight - Length::windowHeight;
    const int rightmostLeft = available.left() + available.width() - Length::windowWidth;
    return {std::max(available.left(), std::min(left, rightmostLeft)),
            std::max(available.top(), std::min(top, lowestTop))};
}

}  // namespace qelmo
