#include "tests/model/Steps.h"

#include <algorithm>
#include <random>
#include <sstream>
#include <stdexcept>

#include "tests/model/WindowModel.h"

namespace qelmo {

namespace {

struct ActionText {
    Action action;
    const char* code;
    /// How often it is taken when it can be, against the others.
    int weight;
    bool canBeHurried;
    std::vector<std::string> variants;
};

std::vector<std::string> eachName(const std::string& before, const std::string& after) {
    std::vector<std::string> texts;
    for (const std::string& name : deviceNames()) texts.push_back(before + name + after);
    return texts;
}

/// In the order of the enumerations.
const std::vector<ActionText>& actionTexts() {
    static const std::vector<ActionText> texts{
        {Action::start, "start", 0, true, {"the application starts up"}},
        {Action::bundle,
         "bundle",
         4,
         true,
         {"the bundle holds the first release", "the bundle holds another release",
          "the bundle holds other bytes of the same version",
          "the bundle holds the same bytes as another version",
          "the bundle holds the same release with other flash options", "the bundle has no resource folder",
          "the bundle has no manifest", "the bundle's manifest is no JSON",
          "the manifest has a wrong schema version",
          "the manifest has a wrong schema version and a wrong chip", "the manifest names a wrong chip",
          "the manifest names a wrong address", "the manifest names a wrong flash size",
          "the manifest names a wrong flash mode", "the bundle has no image", "the image has a wrong length",
          "the image is not complete", "the image has a wrong digest"}},
        {Action::plug, "plug", 3, true, eachName("", " appears in /dev")},
        {Action::unplug, "unplug", 3, true, eachName("", " is gone from /dev")},
        {Action::tool, "tool", 1, true, {"the tool is gone", "the tool is there again"}},
        {Action::launch, "launch", 1, true, {"no process can be started", "processes can be started again"}},
        {Action::refresh, "refresh", 6, true, {"press REFRESH BUILD", "call the refresh operation"}},
        {Action::flash, "flash", 12, false, {"press the flash button", "call the flash operation"}},
        {Action::choose,
         "choose",
         2,
         true,
         {"choose the first port", "choose the second port", "choose the third port"}},
        {Action::answer,
         "answer",
         12,
         false,
         {"answer with the first button", "answer with the last button", "answer with Return",
          "answer with Escape", "close the alert"}},
        {Action::say,
         "say",
         8,
         false,
         {"the tool redraws its line", "the tool writes a line", "the tool writes half a character"}},
        {Action::end,
         "end",
         16,
         false,
         {"the tool exits with 0", "the tool exits with 2", "the tool is killed by SIGKILL"}},
        {Action::append,
         "append",
         3,
         true,
         {"another thread appends a chunk", "another thread appends a line",
          "another thread appends a line with its own line feed"}},
        {Action::close, "close", 1, true, {"the window is closed"}},
        {Action::letGo, "let-go", 1, true, {"the delegate's owner lets go"}}};
    return texts;
}

const ActionText& textOf(Action action) {
    return actionTexts()[static_cast<std::size_t>(action)];
}

Step stepOf(const std::string& word) {
    std::vector<Step> steps = allSteps();
    for (Step step : steps) {
        if (code(step) == word) return step;
        step.hurried = true;
        if (textOf(step.action).canBeHurried && code(step) == word) return step;
    }
    throw std::invalid_argument("no such step: " + word);
}

/// std::uniform_int_distribution is not the same everywhere.
class Dice {
public:
    explicit Dice(std::uint64_t seed) : engine_(seed) {}
    std::size_t below(std::size_t limit) { return static_cast<std::size_t>(engine_() % limit); }
    bool oneIn(std::size_t chances) { return below(chances) == 0; }

private:
    std::mt19937_64 engine_;
};

Step randomStep(const WindowModel& model, Dice& dice) {
    std::vector<Step> bag;
    std::vector<int> actions(actionTexts().size());
    std::vector<Step> possible = allSteps();
    std::erase_if(possible, [&model](const Step& step) { return !model.canChange(step); });
    for (const Step& step : possible) ++actions[static_cast<std::size_t>(step.action)];
    int total = 0;
    for (const ActionText& text : actionTexts())
        if (actions[static_cast<std::size_t>(text.action)] > 0) total += text.weight;
    int at = static_cast<int>(dice.below(static_cast<std::size_t>(total)));
    for (const ActionText& text : actionTexts()) {
        if (actions[static_cast<std::size_t>(text.action)] == 0) continue;
        at -= text.weight;
        if (at >= 0) continue;
        std::erase_if(possible, [&text](const Step& step) { return step.action != text.action; });
        break;
    }
    // Half of all changes bring a valid release.
    const auto isFaulty = [](const Step& step) {
        return step.action == Action::bundle && step.variant > static_cast<int>(BundleState::otherOptions);
    };
    if (dice.oneIn(2) && !std::all_of(possible.begin(), possible.end(), isFaulty))
        std::erase_if(possible, isFaulty);
    Step step = possible[dice.below(possible.size())];
    // A press that must be refused is tried now and then only.
    if (step.action == Action::flash && (model.alertIsOpen() || model.toolRuns()) && !dice.oneIn(4))
        return randomStep(model, dice);
    step.hurried = textOf(step.action).canBeHurried && dice.oneIn(4);
    return step;
}

}  // namespace

const std::vector<std::string>& deviceNames() {
    static const std::vector<std::string> names{"cu.usbmodem9",  "cu.usbmodem10",    "cu.SLAB_USBtoUART",
                                                "cu.usbserial1", "cu.wchusbserial1", "tty.usbmodem9",
                                                "cu.USBMODEM9"};
    return names;
}

std::string code(const Step& step) {
    const ActionText& text = textOf(step.action);
    return text.code + (text.variants.size() > 1 ? ":" + std::to_string(step.variant) : "") +
           (step.hurried ? "+" : "");
}

std::string words(const Step& step) {
    return textOf(step.action).variants[static_cast<std::size_t>(step.variant)] +
           (step.hurried ? ", and at once" : "");
}

std::vector<Step> allSteps() {
    std::vector<Step> steps;
    for (const ActionText& text : actionTexts())
        for (std::size_t variant = 0; variant < text.variants.size(); ++variant)
            steps.push_back({text.action, static_cast<int>(variant)});
    return steps;
}

std::vector<Step> stepsOf(const std::string& codes) {
    std::vector<Step> steps;
    std::istringstream text(codes);
    for (std::string word; text >> word;) steps.push_back(stepOf(word));
    return steps;
}

std::string codesOf(const std::vector<Step>& steps) {
    std::string codes;
    for (const Step& step : steps) codes += (codes.empty() ? "" : " ") + code(step);
    return codes;
}

std::vector<Step> randomSteps(std::uint64_t seed) {
    Dice dice(seed);
    WindowModel model({"", "", "", "", ""});
    std::vector<Step> steps;
    const auto take = [&](const Step& step) {
        steps.push_back(step);
        model.apply(step);
        if (!step.hurried) model.runPosted();
    };
    // Mostly a start from which a job is not far.
    if (!dice.oneIn(8)) take({Action::plug, static_cast<int>(dice.below(5))});
    for (std::size_t changes = dice.oneIn(3) ? dice.below(4) : 0; changes > 0; --changes)
        take(randomStep(model, dice));
    take({Action::start});
    for (std::size_t more = 3 + dice.below(10); more > 0; --more) take(randomStep(model, dice));
    return steps;
}

std::vector<Step> shortest(std::vector<Step> steps,
                           const std::function<bool(const std::vector<Step>&)>& fails) {
    // One that nothing has to follow at once is simpler, and may leave out what follows.
    for (std::size_t index = 0; index < steps.size(); ++index) {
        std::vector<Step> calmer = steps;
        calmer[index].hurried = false;
        if (steps[index].hurried && fails(calmer)) steps = calmer;
    }
    for (std::size_t length = steps.size() / 2; length > 0;) {
        bool shortened = false;
        for (std::size_t first = 0; first + length <= steps.size();) {
            std::vector<Step> fewer = steps;
            const auto begin = fewer.begin() + static_cast<std::ptrdiff_t>(first);
            fewer.erase(begin, begin + static_cast<std::ptrdiff_t>(length));
            if (fails(fewer)) {
                steps = fewer;
                shortened = true;
            } else {
                ++first;
            }
        }
        if (!shortened || length > steps.size()) length /= 2;
    }
    return steps;
}

}  // namespace qelmo
