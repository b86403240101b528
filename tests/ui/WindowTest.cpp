#include "tests/ui/WindowTest.h"

#include <QApplication>
#include <QComboBox>
#include <QImage>
#include <QLabel>
#include <QTest>
#include <QWindow>
#include <cstdlib>
#include <filesystem>

#include "app/WindowCheck.h"
#include "tests/ui/AlertAnswer.h"
#include "ui/ActionButton.h"
#include "ui/ActivityBar.h"
#include "ui/LogTextView.h"
#include "ui/TextLabel.h"

namespace qelmo {

std::string textOf(const QLabel* label) {
    return label->text().toStdString();
}

std::vector<std::string> itemsOf(const QComboBox* menu) {
    std::vector<std::string> items;
    for (int index = 0; index < menu->count(); ++index) items.push_back(menu->itemText(index).toStdString());
    return items;
}

std::string hex(const QColor& colour) {
    return colour.name().toStdString();
}

WindowTest::WindowTest() {
    context.bundleURL = release.bundle();
    context.homeFolder = release.home();
    // The pictures show the real folder's name, so those tests run with their own /dev.
    const char* const devices = std::getenv("QELMO_DEVICES");
    context.deviceFolder = devices == nullptr ? release.home() + "/devices" : devices;
    context.windowReportFile = release.home() + "/window-report";
    std::filesystem::create_directories(context.deviceFolder);
    QImage icon(128, 128, QImage::Format_ARGB32);
    icon.fill(Qt::red);
    EXPECT_TRUE(icon.save(QString::fromStdString(release.resources() + "/AppIcon.icns"), "ICNS"));
    writeRelease();
    replaceDelegate();
    QObject::connect(&unexpectedAlerts_, &QTimer::timeout, &unexpectedAlerts_,
                     [this] { endUnexpectedAlert(); });
    unexpectedAlerts_.start(20);
}

WindowTest::~WindowTest() {
    for (const std::string& name : pluggedIn_) unplug(name);
    delegate.reset();
    mainQueue->close();
}

void WindowTest::replaceDelegate() {
    delegate = std::make_shared<AppDelegate>(mainQueue, context, checkWindow);
    logTaken_ = 0;
}

void WindowTest::launch() {
    delegate->applicationDidFinishLaunching();
    ASSERT_TRUE(waitUntil([this] { return delegate->window->windowHandle()->isExposed(); }));
    settle();
}

void WindowTest::change(const std::string& field, const std::string& json) {
    release.manifest.set(field, json);
    writeRelease();
}

std::string WindowTest::plugIn(const std::string& name) {
    pluggedIn_.push_back(name);
    std::string path = context.deviceFolder + "/" + name;
    writeTestFile(path, "");
    return path;
}

void WindowTest::unplug(const std::string& name) const {
    std::filesystem::remove(context.deviceFolder + "/" + name);
}

void WindowTest::setTool(const std::string& python) const {
    writeTestFile(release.tool(), "import os, signal, sys, time\n" + python + "\n");
}

void WindowTest::startJob() {
    const AlertAnswer confirmation(click("ERASE + FLASH"));
    pressFlash();
}

bool WindowTest::waitForEndOfJob() const {
    return waitUntil([this] { return delegate->flashProcess == nullptr; });
}

void WindowTest::settle() const {
    const auto reached = std::make_shared<bool>(false);
    mainQueue->post([reached] { *reached = true; });
    ASSERT_TRUE(waitUntil([&reached] { return *reached; }));
}

std::string WindowTest::takeLog() {
    settle();
    // The log has one font and one colour, whatever its text.
    for (const QTextFormat& format : delegate->logTextView->document()->allFormats())
        EXPECT_TRUE(!format.isCharFormat() || format.properties().isEmpty());
    const QString text = delegate->logTextView->toPlainText();
    return text.mid(std::exchange(logTaken_, text.size())).toStdString();
}

void WindowTest::pressFlash() const {
    QTest::mouseClick(delegate->flashButton, Qt::LeftButton);
}

void WindowTest::pressRefresh() const {
    QTest::mouseClick(delegate->refreshButton, Qt::LeftButton);
}

void WindowTest::expectShown(const std::string& status) const {
    const WindowState& state = delegate->state();
    const std::vector<QColor> colours{delegate->accent, delegate->warning, delegate->danger};
    EXPECT_EQ(textOf(delegate->statusLabel), status);
    EXPECT_EQ(status, state.status);
    EXPECT_EQ(hex(delegate->statusLabel->colour()),
              hex(colours.at(static_cast<std::size_t>(state.statusColour))));
    EXPECT_EQ(textOf(delegate->releaseLabel), state.release);
    EXPECT_EQ(hex(delegate->releaseLabel->colour()), hex(delegate->foreground));
    EXPECT_EQ(delegate->flashButton->title().toStdString(), state.flashTitle);
    EXPECT_EQ(delegate->flashButton->isEnabled(), state.canFlash);
    EXPECT_EQ(delegate->refreshButton->isEnabled(), state.canRefresh);
    EXPECT_EQ(delegate->portPopup->isEnabled(), state.canChoosePort);
    EXPECT_EQ(delegate->progress->isAnimating(), state.isBusy);
    EXPECT_EQ(delegate->flashProcess != nullptr, state.isBusy);
}

void WindowTest::endUnexpectedAlert() const {
    QMessageBox* const box = AlertAnswer::unanswered();
    if (box == nullptr || AlertAnswer::isExpected()) return;
    ADD_FAILURE() << "An alert that nobody expects: " << box->text().toStdString() << " / "
                  << box->informativeText().toStdString();
    box->done(0);
}

}  // namespace qelmo
