#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace qelmo {

/// What can happen in the window's world. `Step::variant` tells which of its kinds.
enum class Action {
    start,    ///< the application starts up
    bundle,   ///< other files lie in the bundle from now on; the variant is a `BundleState`
    plug,     ///< a name appears in /dev
    unplug,   ///< and goes
    tool,     ///< the tool's script is gone, or there again
    launch,   ///< no process can be started any more, or again
    refresh,  ///< by the button, or past it by the operation
    flash,    ///< by the button, or past it by the operation
    choose,   ///< an entry of the port menu
    answer,   ///< to the open alert; the variant is an `Answer`
    say,      ///< the running tool writes
    end,      ///< the running tool ends; the variant is an `Ending`
    append,   ///< another thread appends to the log
    close,    ///< the window is closed
    letGo     ///< the delegate's owner lets go
};

enum class BundleState {
    firstRelease,
    otherRelease,
    otherBytes,
    otherVersion,
    otherOptions,
    noFolder,
    noManifest,
    notJson,
    wrongSchema,
    wrongSchemaAndChip,
    wrongChip,
    wrongAddress,
    wrongFlashSize,
    wrongFlashMode,
    noImage,
    wrongLength,
    wrongShape,
    wrongDigest
};

enum class Answer { firstButton, lastButton, returnKey, escapeKey, closing };

enum class Ending { exitWell, exitBadly, killed };

/// One step of a sequence. A step that makes no sense where it stands (an answer without an alert) does
/// nothing, so that any step can be left out of a sequence.
struct Step {
    Action action;
    int variant = 0;
    /// The next step comes before anything that this one has posted.
    bool hurried = false;
};

/// The names in /dev that come and go.
[[nodiscard]] const std::vector<std::string>& deviceNames();

/// A step in one word, as `--replay` reads it, and for a reader.
[[nodiscard]] std::string code(const Step& step);
[[nodiscard]] std::string words(const Step& step);

/// All steps that there are, none hurried.
[[nodiscard]] std::vector<Step> allSteps();

/// The steps of `codes`, which blanks separate. Throws std::invalid_argument naming a word that is none.
[[nodiscard]] std::vector<Step> stepsOf(const std::string& codes);
[[nodiscard]] std::string codesOf(const std::vector<Step>& steps);

/// A sequence in which most steps have an effect. The same seed gives the same steps on every machine.
[[nodiscard]] std::vector<Step> randomSteps(std::uint64_t seed);

/// The shortest part of `steps` that still fails and from which no step can be left out. `steps` itself must
/// fail.
[[nodiscard]] std::vector<Step> shortest(std::vector<Step> steps,
                                         const std::function<bool(const std::vector<Step>&)>& fails);

}  // namespace qelmo
