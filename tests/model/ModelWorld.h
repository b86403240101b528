#pragma once

#include <fstream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tests/model/Steps.h"
#include "tests/model/WindowModel.h"
#include "tests/support/Fifo.h"
#include "tests/support/ReleaseFixture.h"
#include "tests/support/ScopedEnvironment.h"
#include "tests/ui/BootPort.h"

namespace qelmo {

/// The real things that the model's world stands for: the files of this program's bundle, the names in the
/// private /dev, and a tool that does what it is told through a FIFO. It begins like the model's world.
class ModelWorld {
public:
    ModelWorld();
    ModelWorld(const ModelWorld&) = delete;
    ModelWorld& operator=(const ModelWorld&) = delete;
    ~ModelWorld();

    [[nodiscard]] Surroundings surroundings() const;

    void setBundle(BundleState state);
    void plug(std::size_t device);
    void unplug(std::size_t device);
    void setTool(bool isThere) const;
    void setLaunch(bool isPossible);

    /// Waits until the tool runs and returns the arguments that it got, one a line.
    [[nodiscard]] std::string meetTool();
    [[nodiscard]] bool holdsTool() const { return commands_.is_open(); }
    /// Has the running tool do this line of Python.
    void command(const std::string& python) { commands_ << python << std::endl; }
    /// Has the running tool do this and nothing more.
    void lastCommand(const std::string& python);

private:
    [[nodiscard]] std::string argumentsFile() const { return release_.home() + "/arguments"; }

    ReleaseFixture release_;
    const Fifo gate_;
    std::ofstream commands_;
    std::vector<std::unique_ptr<BootPort>> ports_;
    std::optional<ScopedEnvironment> noLaunch_;
};

}  // namespace qelmo
