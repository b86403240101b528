#include "tests/ui/WindowTest.h"

#include <QBuffer>
#include <QComboBox>
#include <QImage>
#include <QLabel>
#include <QTest>
#include <QWindow>
#include <filesystem>

#include "platform/MainBundle.h"
#include "ui/ActionButton.h"
#include "ui/LogTextView.h"

namespace qelmo {

namespace {

std::string bigEndian(std::size_t number) {
    std::string bytes;
    for (const int shift : {24, 16, 8, 0}) bytes += static_cast<char>((number >> shift) & 0xFF);
    return bytes;
}

/// The main bundle's resource folder is a link to the fixture's.
std::filesystem::path resourceLink() {
    return resourceFolder(MainBundle::bundleURL());
}

}  // namespace

std::string redIcon() {
    QImage picture(128, 128, QImage::Format_ARGB32);
    picture.fill(Qt::red);
    QBuffer png;
    png.open(QBuffer::WriteOnly);
    picture.save(&png, "PNG");
    const std::string entry =
        "ic07" + bigEndian(8 + static_cast<std::size_t>(png.size())) + png.data().toStdString();
    return "icns" + bigEndian(8 + entry.size()) + entry;
}

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
    std::filesystem::remove(resourceLink());
    std::filesystem::create_directory_symlink(release.resources(), resourceLink());
    writeTestFile(release.resources() + "/AppIcon.icns", redIcon());
    writeRelease();
    QObject::connect(&unexpectedAlerts_, &QTimer::timeout, &unexpectedAlerts_,
                     [this] { endUnexpectedAlert(); });
    unexpectedAlerts_.start(20);
}

WindowTest::~WindowTest() {
    delegate.reset();
    mainQueue->close();
    std::filesystem::remove(resourceLink());
}

void WindowTest::launch() {
    delegate->applicationDidFinishLaunching();
    ASSERT_TRUE(waitUntil([this] { return delegate->window->windowHandle()->isExposed(); }));
    settle();
}

void WindowTest::setTool(const std::string& python) const {
    writeTestFile(release.tool(), "import os, signal, sys, time\n" + python + "\n");
}

void WindowTest::runSuccessfulJob() {
    startJob();
    const AlertAnswer done(click("Done"));
    ASSERT_TRUE(waitUntil([&done] { return done.hasEnded(); }));
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
    // Whatever it says, the log is of one font and colour.
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

void WindowTest::endUnexpectedAlert() const {
    QMessageBox* const box = AlertAnswer::unanswered();
    if (box == nullptr || AlertAnswer::isExpected()) return;
    ADD_FAILURE() << "An alert that nobody expects: " << box->text().toStdString() << " / "
                  << box->informativeText().toStdString();
    box->done(0);
}

}  // namespace qelmo
