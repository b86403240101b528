#pragma once

#include <QObject>
#include <fstream>
#include <functional>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "platform/LaunchContext.h"
#include "tests/model/WindowModel.h"
#include "tests/support/Fifo.h"
#include "tests/support/ProcessResources.h"
#include "tests/support/ReleaseFixture.h"
#include "ui/AppDelegate.h"
#include "ui/QtMainQueue.h"

class QMessageBox;

namespace qelmo {

/// Plays one sequence of steps both on a real window, with real files and a real tool, and on the model.
/// Compares the two after every step.
///
/// A step is a word. A step that is not possible at its place does nothing, so any step can be left out of a
/// sequence. If a word ends with "+", the next step is played before the tasks that this step posted have
/// run. An alert runs its own event loop inside the step that opened it. The following steps are played
/// inside that loop until one of them answers the alert.
class Player : public QObject {
public:
    explicit Player(std::vector<std::string> steps);
    /// Plays random steps. The same seed gives the same steps on every machine.
    explicit Player(std::uint64_t seed);
    ~Player() override;

    /// Plays the steps, then ends whatever they left open: the alert, the delegate, the tool. Each step is
    /// printed before it is played. At the first difference both sides are printed and the process exits with
    /// status 1.
    void play();

    bool eventFilter(QObject* object, QEvent* event) override;

private:
    Player();

    void playInside(QMessageBox* alert);
    [[nodiscard]] std::optional<std::string> nextStep();
    [[nodiscard]] std::string randomStep();
    /// Returns true if the step answered `alert`, which has then closed.
    [[nodiscard]] bool playStep(const std::string& step, QMessageBox* alert);
    [[nodiscard]] bool answer(const std::string& step, QMessageBox* alert);
    [[nodiscard]] bool changeWorld(const std::string& step);
    void useWindow(const std::string& step);
    void useTool(const std::string& step);

    void linkInterpreter();
    void setBundle(const std::string& state);
    void endTool(const std::string& how);
    void meetTool();

    void check(bool runPosted);
    [[nodiscard]] std::string seen() const;
    [[nodiscard]] std::string expected() const;
    [[noreturn]] void fail(const std::string& why) const;

    std::vector<std::string> steps_;
    std::size_t played_ = 0;
    std::optional<std::mt19937_64> dice_;

    ReleaseFixture release_;
    LaunchContext context_;
    const Fifo gate_;
    std::ofstream commands_;
    WindowModel model_;
    std::string command_;

    const std::shared_ptr<QtMainQueue> mainQueue_ = std::make_shared<QtMainQueue>();
    std::shared_ptr<AppDelegate> owner_;
    /// The player must not keep it alive.
    std::weak_ptr<AppDelegate> delegate_;
    /// The threads and descriptors in use before the answer that starts a job.
    std::optional<ProcessResources> beforeJob_;
};

}  // namespace qelmo
