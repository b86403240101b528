#pragma once

#include <QObject>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tests/model/ModelWorld.h"
#include "tests/model/WindowModel.h"
#include "tests/support/ProcessResources.h"
#include "ui/AppDelegate.h"
#include "ui/QtMainQueue.h"

class QMessageBox;

namespace qelmo {

/// Plays one sequence on a real window in a real world, and on the model, and compares the two after every
/// step.
///
/// An alert runs an event loop of its own inside the step that opened it. The steps behind it are played from
/// inside that loop, until one of them answers the alert; so the steps follow each other as the user's do.
class WindowDriver : public QObject {
public:
    /// What was done and what both sides showed at the first difference goes to standard output.
    explicit WindowDriver(std::vector<Step> steps);
    ~WindowDriver() override;

    /// Plays the steps, then ends what they left open. At the first difference the process ends with
    /// status 1.
    void play();

    bool eventFilter(QObject* object, QEvent* event) override;

private:
    void playInside(QMessageBox* alert);
    [[nodiscard]] bool nextStep(Step& step);
    void act(const Step& step);
    void pressButtonOrCall(const Step& step);
    void answer(QMessageBox& alert, Answer answer);
    void endTool(Ending ending);

    void check(bool runPosted);
    [[nodiscard]] WindowState seen() const;
    [[noreturn]] void fail(const std::string& why) const;

    /// Lives as long as someone else holds it: the driver must not keep it alive.
    [[nodiscard]] AppDelegate* delegate() const { return watched_.lock().get(); }

    std::vector<Step> steps_;
    std::size_t played_ = 0;

    ModelWorld world_;
    WindowModel model_;
    std::string command_;

    const std::shared_ptr<QtMainQueue> mainQueue_ = std::make_shared<QtMainQueue>();
    bool hasStarted_ = false;
    std::shared_ptr<AppDelegate> owner_;
    std::weak_ptr<AppDelegate> watched_;
    /// What is in use before the answer that starts a job.
    std::optional<ProcessResources> beforeJob_;
};

}  // namespace qelmo
