#include "tests/model/Player.h"

#include <QApplication>
#include <QComboBox>
#include <QMessageBox>
#include <QTimer>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <thread>
#include <utility>

#include "tests/ui/AlertAnswer.h"
#include "tests/ui/WindowTest.h"
#include "ui/ActionButton.h"
#include "ui/ActivityBar.h"
#include "ui/LogTextView.h"
#include "ui/TextLabel.h"

namespace qelmo {

namespace {

namespace fs = std::filesystem;

const std::vector<std::string> bundleStates{"first-release", "other-bytes", "other-version", "other-options",
                                            "wrong-digest"};
const std::vector<std::string> devices{"cu.usbmodem9", "cu.usbmodem10"};
const std::vector<std::string> answers{"first-button", "last-button", "return-key", "escape-key", "closing"};

std::string anotherImage() {
    std::string image = ReleaseFixture::smallestImage();
    image[100] = 'x';
    return image;
}

std::string onOneLine(const std::string& text) {
    std::string line;
    for (const char unit : text) line += unit == '\n' ? "\\n" : std::string(1, unit);
    return line;
}

std::string listOf(const std::vector<std::string>& texts) {
    std::string list;
    for (const std::string& text : texts) list += "[" + onOneLine(text) + "]";
    return list;
}

std::string alertText(const Alert& alert) {
    return (alert.style == Alert::Style::critical ? "critical: " : "informational: ") +
           listOf({alert.messageText, alert.informativeText}) + listOf(alert.buttons);
}

std::string stateText(const WindowState& state) {
    return listOf({state.release, state.status, std::to_string(static_cast<int>(state.statusColour)),
                   state.flashTitle}) +
           (state.canFlash ? " flash" : "") + (state.canRefresh ? " refresh" : "") +
           (state.canChoosePort ? " choose" : "") + (state.isBusy ? " busy" : "");
}

/// Everything that is compared of a window, one item per line.
std::string windowText(const WindowState& state, bool isVisible,
                       const std::optional<FlasherResources>& release, const std::vector<std::string>& menu,
                       int chosen, const std::vector<std::string>& ports, bool runs, const std::string& log,
                       const std::optional<Alert>& alert) {
    return "state: " + stateText(state) + (isVisible ? "\nvisible" : "\nhidden") +
           "\nrelease: " + (release ? release->manifest.version + release->checksum : "") +
           "\nmenu: " + listOf(menu) + std::to_string(chosen) + "\nports: " + listOf(ports) +
           "\nprocess: " + (runs ? "runs" : "none") + "\nlog: " + onOneLine(log) +
           "\nalert: " + (alert ? alertText(*alert) : "") + "\n";
}

WindowState shownState(const AppDelegate& delegate) {
    const QColor colour = delegate.statusLabel->colour();
    return {textOf(delegate.releaseLabel),
            textOf(delegate.statusLabel),
            colour == delegate.accent    ? WindowState::Colour::accent
            : colour == delegate.warning ? WindowState::Colour::warning
                                         : WindowState::Colour::danger,
            delegate.flashButton->title().toStdString(),
            delegate.flashButton->isEnabled(),
            delegate.refreshButton->isEnabled(),
            delegate.portPopup->isEnabled(),
            delegate.progress->isAnimating()};
}

}  // namespace

Player::Player() : model_(context_) {
    context_.bundleURL = release_.bundle();
    context_.homeFolder = release_.home();
    context_.deviceFolder = release_.home() + "/devices";
    context_.interpreter = release_.home() + "/interpreter";
    fs::create_directory(context_.deviceFolder);
    linkInterpreter();
    setBundle("first-release");
    writeTestFile(release_.tool(), "(printf '%s' \"$0\"; printf '\\n%s' \"$@\") >" + release_.home() +
                                       "/arguments\nwhile read -r command; do eval \"$command\"; done <" +
                                       gate_.path() + "\n");
    QApplication::instance()->installEventFilter(this);
}

Player::Player(std::vector<std::string> steps) : Player() {
    steps_ = std::move(steps);
}

Player::Player(std::uint64_t seed) : Player() {
    dice_.emplace(seed);
}

Player::~Player() {
    mainQueue_->close();
}

void Player::play() {
    playInside(nullptr);
    std::printf("\n");
}

bool Player::eventFilter(QObject* object, QEvent* event) {
    if (event->type() == QEvent::Show) {
        if (auto* const alert = qobject_cast<QMessageBox*>(object))
            QTimer::singleShot(0, alert, [this, alert] { playInside(alert); });
    }
    return false;
}

void Player::playInside(QMessageBox* alert) {
    if (alert != nullptr) {
        // It accepts clicks and keys only once it is on the screen.
        if (!waitUntil([] { return AlertAnswer::unanswered() != nullptr; }))
            fail("the alert is not on the screen");
        check(true);
    }
    while (const std::optional<std::string> step = nextStep()) {
        std::printf("%s ", step->c_str());
        std::fflush(stdout);
        const bool isHurried = step->ends_with('+');
        if (playStep(isHurried ? step->substr(0, step->size() - 1) : *step, alert)) return;
        check(!isHurried);
    }
}

std::optional<std::string> Player::nextStep() {
    constexpr std::size_t randomLength = 24;
    if (dice_ && steps_.size() < randomLength) {
        steps_.push_back(randomStep());
    } else if (played_ == steps_.size()) {
        // The steps that end what is still open.
        if (model_.alert)
            steps_.emplace_back("escape-key");
        else if (model_.alive)
            steps_.emplace_back("let-go");
        else if (!model_.command.empty())
            steps_.emplace_back("end-well");
        else
            return std::nullopt;
    }
    return steps_[played_++];
}

std::string Player::randomStep() {
    // std::uniform_int_distribution is not the same everywhere.
    const auto below = [this](std::size_t limit) { return static_cast<std::size_t>((*dice_)() % limit); };
    const auto oneOf = [&](const std::vector<std::string>& words) { return words[below(words.size())]; };
    if (steps_.size() < 3) return oneOf({"plug:" + oneOf(devices), "start"});
    if (model_.alert && below(3) > 0) return oneOf({"first-button", oneOf(answers)});
    if (!model_.command.empty() && below(3) > 0)
        return oneOf({"say", "end-well", "end-badly", "end-killed", "press", "refresh"});
    const std::string step =
        oneOf({"bundle:" + oneOf(bundleStates), "bundle:" + oneOf({"first-release", "other-options"}),
               "plug:" + oneOf(devices), "unplug:" + oneOf(devices), oneOf({"no-launch", "launch", "start"}),
               "refresh", "call-refresh", "refresh", "press", "press", "press", "call-flash",
               oneOf({"choose:0", "choose:1", "choose:2"}), "append",
               oneOf({"close", "let-go", "append", "press", "refresh"})});
    const bool mayOpenAnAlert = step == "press" || step == "call-flash";
    return step + (!mayOpenAnAlert && below(4) == 0 ? "+" : "");
}

bool Player::playStep(const std::string& step, QMessageBox* alert) {
    if (alert != nullptr && answer(step, alert)) return true;
    if (changeWorld(step)) return false;
    if (!model_.command.empty()) useTool(step);
    useWindow(step);
    return false;
}

bool Player::answer(const std::string& step, QMessageBox* alert) {
    const std::vector<std::string> buttons = shownAlert(*alert).buttons;
    const auto act = step == "first-button"  ? click(buttons.front())
                     : step == "last-button" ? click(buttons.back())
                     : step == "return-key"  ? pressKey(Qt::Key_Return)
                     : step == "escape-key"  ? pressKey(Qt::Key_Escape)
                     : step == "closing"     ? closeAlert()
                                             : AlertAction();
    if (!act) return false;
    beforeJob_ = ProcessResources::now();
    // The model goes first, because the action may open an alert, inside which the next steps are played.
    model_.answer(step == "first-button" || step == "return-key" || buttons.size() == 1);
    act(*alert);
    return true;
}

bool Player::changeWorld(const std::string& step) {
    const std::string value = step.substr(step.find(':') + 1);
    if (step.starts_with("bundle:")) {
        setBundle(value);
    } else if (step.starts_with("plug:")) {
        writeTestFile(context_.deviceFolder + "/" + value, "");
    } else if (step.starts_with("unplug:")) {
        fs::remove(context_.deviceFolder + "/" + value);
    } else if (step == "launch" || step == "no-launch") {
        model_.canLaunch = step == "launch";
        fs::remove(context_.interpreter);
        if (model_.canLaunch) linkInterpreter();
    } else {
        return false;
    }
    return true;
}

void Player::useWindow(const std::string& step) {
    if (step == "start" && model_.logLength() == 0) {  // once
        model_.start();
        owner_ = std::make_shared<AppDelegate>(mainQueue_, context_, nullptr);
        delegate_ = owner_;
        return owner_->applicationDidFinishLaunching();
    }
    AppDelegate* const delegate = delegate_.lock().get();
    if (delegate == nullptr) return;
    if (step == "refresh") {
        if (model_.state.canRefresh) model_.refresh();
        delegate->refreshButton->click();
    } else if (step == "call-refresh") {
        model_.refresh();
        delegate->refreshBuildAndPorts();
    } else if (step == "press") {
        if (model_.state.canFlash) model_.pressFlash();
        delegate->flashButton->click();
    } else if (step == "call-flash") {
        model_.pressFlash();
        delegate->flashDevice();
    } else if (step.starts_with("choose:")) {
        const int index = step.back() - '0';
        model_.choosePort(index);
        if (delegate->portPopup->isEnabled() && index < delegate->portPopup->count())
            delegate->portPopup->setCurrentIndex(index);
    } else if (step == "append") {
        model_.append("from a thread\n");
        std::thread([&] { delegate->appendLog("from a thread", true); }).join();
    } else if (step == "close") {
        model_.close();
        delegate->window->close();
    } else if (step == "let-go") {
        model_.letGo();
        owner_.reset();
    }
}

void Player::useTool(const std::string& step) {
    if (step == "say") {
        model_.append("Writing at 0x00010000... (12 %)\n");
        commands_ << "printf 'Writing at 0x00010000... (12 %%)\\r'" << std::endl;
    } else if (step.starts_with("end-")) {
        endTool(step);
    }
}

void Player::linkInterpreter() {
    // A shell starts in a tenth of Python's time. The other tests of the window run Python.
    fs::create_symlink("/bin/sh", context_.interpreter);
}

void Player::setBundle(const std::string& state) {
    release_.manifest = {};
    release_.setImage(state == "other-bytes" ? anotherImage() : ReleaseFixture::smallestImage());
    if (state == "other-version") release_.manifest.set("version", R"("1.0.1")");
    if (state == "other-options") {
        release_.manifest.set("flash.baud", "115200");
        release_.manifest.set("flash.eraseAllInternalFlash", "false");
        release_.manifest.set("flash.confirmationText", R"("FLASH R&D")");
    }
    release_.writeManifest(release_.manifest.text());
    if (state == "wrong-digest") writeTestFile(release_.image(), anotherImage());
}

void Player::meetTool() {
    commands_.open(gate_.path());
    command_ = readTestFile(release_.home() + "/arguments");
}

void Player::endTool(const std::string& how) {
    command_.clear();
    model_.toolEnds(how == "end-well");
    commands_ << (how == "end-well" ? "exit 0" : how == "end-badly" ? "exit 2" : "kill -9 $$") << std::endl;
    commands_.close();
    commands_.clear();
    // While this waits, the alert that reports success is answered.
    const auto hasEnded = [this] {
        const auto delegate = delegate_.lock();
        return delegate == nullptr || delegate->flashProcess == nullptr;
    };
    if (!waitUntil(hasEnded)) fail("the job has not ended");
    // The job's threads have posted everything, and all of it has run. A second wait, because painting during
    // the job may start a pooled thread, which Qt keeps for 30 s.
    const auto areBack = [this] { return beforeJob_->areBackNow(); };
    if (!waitUntil(areBack) && !waitUntil(areBack)) fail("threads or descriptors of the job are left");
}

void Player::check(bool runPosted) {
    if (!model_.command.empty() && !commands_.is_open()) meetTool();
    if (runPosted) {
        const auto reached = std::make_shared<bool>(false);
        mainQueue_->post([reached] { *reached = true; });
        if (!waitUntil([&reached] { return *reached; })) fail("the main queue does not run");
        // The tool's output arrives first.
        if (!model_.command.empty() && model_.alive)
            (void)waitUntil([this] {
                const auto delegate = delegate_.lock();
                return delegate->logTextView->toPlainText().toStdString().size() >= model_.logLength();
            });
        model_.runPosted();
    }
    if (seen() != expected()) fail("the window is not what the model says");
}

std::string Player::seen() const {
    const std::string command = "command: " + onOneLine(command_) + "\n";
    const auto delegate = delegate_.lock();
    if (delegate == nullptr) return command;
    std::optional<Alert> alert;
    if (const auto* const box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget()))
        alert = shownAlert(*box);
    const QComboBox* const menu = delegate->portPopup;
    return command + windowText(shownState(*delegate), delegate->window->isVisible(), delegate->resources,
                                itemsOf(menu), menu->currentIndex(), delegate->ports,
                                delegate->flashProcess != nullptr,
                                delegate->logTextView->toPlainText().toStdString(), alert);
}

std::string Player::expected() const {
    const std::string command = "command: " + onOneLine(model_.command) + "\n";
    if (!model_.alive) return command;
    std::vector<std::string> menu = model_.ports;
    if (menu.empty() && model_.chosenPort >= 0) menu = {"No ESP32-S3 boot port found"};
    return command + windowText(model_.state, model_.visible, model_.resources, menu, model_.chosenPort,
                                model_.ports, model_.running, model_.log, model_.alert);
}

void Player::fail(const std::string& why) const {
    std::printf("\n\n%s\nThe model says:\n%sThe window shows:\n%s", why.c_str(), expected().c_str(),
                seen().c_str());
    std::fflush(stdout);
    std::_Exit(1);
}

}  // namespace qelmo
