#include "tests/model/WindowDriver.h"

#include <QApplication>
#include <QComboBox>
#include <QMessageBox>
#include <QTimer>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <thread>
#include <utility>

#include "platform/ThisProcess.h"
#include "tests/ui/AlertAnswer.h"
#include "ui/ActionButton.h"
#include "ui/ActivityBar.h"
#include "ui/LogTextView.h"
#include "ui/TextLabel.h"

namespace qelmo {

namespace {

std::string hex(const QColor& colour) {
    return colour.name().toStdString();
}

QMessageBox* openAlert() {
    return qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
}

/// Lets the event loop go on until `condition` holds; false when it did not within the limit.
template <typename Condition>
bool waitUntil(Condition condition) {
    return eventually([&condition] {
        QApplication::processEvents();
        return condition();
    });
}

}  // namespace

WindowDriver::WindowDriver(std::vector<Step> steps)
    : steps_(std::move(steps)), model_(world_.surroundings()) {
    QApplication::instance()->installEventFilter(this);
}

WindowDriver::~WindowDriver() {
    mainQueue_->close();
}

void WindowDriver::play() {
    playInside(nullptr);
}

bool WindowDriver::eventFilter(QObject* object, QEvent* event) {
    if (event->type() == QEvent::Show)
        if (auto* const alert = qobject_cast<QMessageBox*>(object))
            QTimer::singleShot(0, alert, [this, alert] { playInside(alert); });
    return false;
}

void WindowDriver::playInside(QMessageBox* alert) {
    if (alert != nullptr) {
        // It can be clicked and typed into only once it is on the screen.
        if (!waitUntil([] { return AlertAnswer::unanswered() != nullptr; }))
            fail("the alert is not on the screen");
        check(true);
    }
    for (Step step; nextStep(step);) {
        // The model is ahead: what follows may open an alert, inside which the next steps are played.
        model_.apply(step);
        ++played_;
        if (alert != nullptr && step.action == Action::answer)
            return answer(*alert, static_cast<Answer>(step.variant));
        act(step);
        check(!step.hurried);
    }
}

bool WindowDriver::nextStep(Step& step) {
    if (played_ == steps_.size()) {
        if (model_.alertIsOpen()) {
            steps_.push_back({Action::answer, static_cast<int>(Answer::escapeKey)});
        } else if (model_.state().alive) {
            steps_.push_back({Action::letGo});
        } else if (model_.toolRuns()) {
            steps_.push_back({Action::end});
        } else {
            return false;
        }
    }
    step = steps_[played_];
    return true;
}

// Steps -----------------------------------------------------------------------------------------------------

void WindowDriver::act(const Step& step) {
    const bool first = step.variant == 0;
    const auto variant = static_cast<std::size_t>(step.variant);
    switch (step.action) {
        case Action::start:
            if (std::exchange(hasStarted_, true)) return;
            owner_ = std::make_shared<AppDelegate>(mainQueue_, processEnvironment());
            watched_ = owner_;
            return owner_->applicationDidFinishLaunching();
        case Action::bundle:
            return world_.setBundle(static_cast<BundleState>(step.variant));
        case Action::plug:
            return world_.plug(variant);
        case Action::unplug:
            return world_.unplug(variant);
        case Action::tool:
            // The interpreter would end by itself if its script went between the question and its start.
            if (!model_.alertIsOpen()) world_.setTool(!first);
            return;
        case Action::launch:
            world_.setLaunch(!first);
            if (const auto delegate = watched_.lock()) delegate->environment = processEnvironment();
            return;
        case Action::say: {
            constexpr std::array<const char*, 3> bytes{"Writing at 0x00010000... (12 %)\\r", "a warning\\n",
                                                       "\\xC3"};
            if (world_.holdsTool()) world_.command("os.write(1, b'" + std::string(bytes[variant]) + "')");
            return;
        }
        case Action::end:
            if (world_.holdsTool()) endTool(static_cast<Ending>(step.variant));
            return;
        case Action::letGo:
            return owner_.reset();
        case Action::refresh:
        case Action::flash:
        case Action::choose:
        case Action::append:
        case Action::close:
            if (delegate() != nullptr) pressButtonOrCall(step);
            return;
        case Action::answer:
            return;
    }
}

void WindowDriver::pressButtonOrCall(const Step& step) {
    AppDelegate& delegate = *this->delegate();
    const bool first = step.variant == 0;
    switch (step.action) {
        case Action::refresh:
            return first ? delegate.refreshButton->click() : delegate.refreshBuildAndPorts();
        case Action::flash:
            return first ? delegate.flashButton->click() : delegate.flashDevice();
        case Action::choose:
            if (delegate.portPopup->isEnabled() && step.variant < delegate.portPopup->count())
                delegate.portPopup->setCurrentIndex(step.variant);
            return;
        case Action::append:
            return std::thread([&delegate, &step] {
                       if (step.variant == 0) {
                           delegate.appendLog("a late chunk", false);
                       } else {
                           delegate.appendLog(step.variant == 1 ? "a late line" : "a late line\n", true);
                       }
                   })
                .join();
        case Action::close:
            delegate.window->close();
            return;
        default:
            return;
    }
}

void WindowDriver::answer(QMessageBox& alert, Answer answer) {
    beforeJob_ = ProcessResources::now();
    const std::vector<std::string> buttons = shownAlert(alert).buttons;
    switch (answer) {
        case Answer::firstButton:
            return click(buttons.front())(alert);
        case Answer::lastButton:
            return click(buttons.back())(alert);
        case Answer::returnKey:
            return pressKey(Qt::Key_Return)(alert);
        case Answer::escapeKey:
            return pressKey(Qt::Key_Escape)(alert);
        case Answer::closing:
            return closeAlert()(alert);
    }
}

void WindowDriver::endTool(Ending ending) {
    command_ = "";
    world_.lastCommand(ending == Ending::exitWell    ? "os._exit(0)"
                       : ending == Ending::exitBadly ? "os._exit(2)"
                                                     : "os.kill(os.getpid(), 9)");
    // The alert of a success has been answered inside this waiting.
    if (!waitUntil([this] { return delegate() == nullptr || delegate()->flashProcess == nullptr; }))
        fail("the job has not ended");
    // Its threads have posted all they had to, and that has been run.
    if (!waitUntil([this] {
            const ProcessResources used = ProcessResources::now();
            return used.threads <= beforeJob_->threads && used.descriptors <= beforeJob_->descriptors;
        }))
        fail("threads or descriptors of the job are left");
}

// The comparison --------------------------------------------------------------------------------------------

void WindowDriver::check(bool runPosted) {
    if (model_.toolRuns() && !world_.holdsTool()) command_ = world_.meetTool();
    if (runPosted) {
        const auto reached = std::make_shared<bool>(false);
        mainQueue_->post([reached] { *reached = true; });
        if (!waitUntil([&reached] { return *reached; })) fail("the main queue does not run");
        // What the tool writes takes its way first.
        if (model_.toolRuns() && model_.state().alive)
            (void)waitUntil([this] { return seen().log.size() >= model_.logLength(); });
        model_.runPosted();
    }
    if (seen().lines() != model_.state().lines()) fail("the window is not what the model says");
}

WindowState WindowDriver::seen() const {
    WindowState state;
    state.command = command_;
    const auto existing = watched_.lock();
    if (existing == nullptr) return state;
    const AppDelegate& delegate = *existing;
    state.alive = true;
    state.visible = delegate.window->isVisible();
    state.panel = delegate.releaseLabel->text().toStdString();
    state.panelColour = hex(delegate.releaseLabel->colour());
    state.status = delegate.statusLabel->text().toStdString();
    state.statusColour = hex(delegate.statusLabel->colour());
    for (int index = 0; index < delegate.portPopup->count(); ++index)
        state.menu.push_back(delegate.portPopup->itemText(index).toStdString());
    state.chosen = delegate.portPopup->currentIndex();
    state.menuEnabled = delegate.portPopup->isEnabled();
    state.refreshTitle = delegate.refreshButton->title().toStdString();
    state.refreshEnabled = delegate.refreshButton->isEnabled();
    state.flashTitle = delegate.flashButton->title().toStdString();
    state.flashEnabled = delegate.flashButton->isEnabled();
    state.animating = delegate.progress->isAnimating();
    if (delegate.resources)
        state.validated = delegate.resources->manifest.version + " " +
                          std::to_string(delegate.resources->manifest.binary.size) + " " +
                          delegate.resources->checksum;
    state.running = delegate.flashProcess != nullptr;
    state.ports = delegate.ports;
    state.log = delegate.logTextView->toPlainText().toStdString();
    state.logColour = hex(delegate.logTextView->palette().color(QPalette::Text));
    if (const QMessageBox* const box = openAlert()) {
        const ShownAlert alert = shownAlert(*box);
        state.alert = alertText(alert.messageText, alert.informativeText, alert.icon == QMessageBox::Critical,
                                alert.buttons, alert.defaultButton);
    }
    return state;
}

void WindowDriver::fail(const std::string& why) const {
    std::printf("After these steps %s:\n", why.c_str());
    for (std::size_t index = 0; index < played_; ++index)
        std::printf("    %s\n", words(steps_[index]).c_str());
    const auto print = [](const char* side, const WindowState& state) {
        std::printf("%s\n", side);
        for (const std::string& line : state.lines()) std::printf("    %s\n", line.c_str());
    };
    print("The model says:", model_.state());
    print("The window shows:", seen());
    std::fflush(stdout);
    std::_Exit(1);
}

}  // namespace qelmo
