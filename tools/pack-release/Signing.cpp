#include "tools/pack-release/Signing.h"

#include <unistd.h>

#include <vector>

#include "platform/Spawn.h"
#include "release/FlasherFailure.h"

namespace qelmo {

namespace {

/// A name that starts with a dash would be mistaken for an option.
std::string asArgument(const std::string& path) {
    return path.starts_with('-') ? "./" + path : path;
}

std::string quotedForShell(const std::string& text) {
    std::string quoted = "'";
    for (const char unit : text) {
        if (unit == '\'')
            quoted += "'\\''";
        else
            quoted += unit;
    }
    return quoted + "'";
}

std::string withoutTrailingNewlines(std::string text) {
    text.erase(text.find_last_not_of('\n') + 1);
    return text;
}

void run(const std::string& tool, const std::vector<std::string>& arguments, const std::string& purpose) {
    // The tool may print more than a pipe holds.
    const FinishedProcess process = runToEnd(tool, arguments, ReadOutput::whileRunning);
    if (process.terminationStatus == 0) return;
    throw FlasherFailure("the new release is in place, but " + purpose + " failed: " + tool +
                         " exited with status " + std::to_string(process.terminationStatus) + ": " +
                         withoutTrailingNewlines(process.output));
}

}  // namespace

void requireSigningTool(const std::string& tool) {
    if (::access(tool.c_str(), X_OK) != 0)
        throw FlasherFailure("--sign: there is no " + tool +
                             " here; bundles can be signed only on macOS, so leave out --sign");
}

void signBundle(const std::string& tool, const std::string& bundle) {
    const std::string target = asArgument(bundle);
    run(tool, {"--force", "--deep", "--sign", "-", target}, "signing the bundle");
    run(tool, {"--verify", "--deep", "--strict", target}, "verifying its signature");
}

std::string signingNotice(const std::string& bundle) {
    return "Sign it   the release was replaced, so the bundle must be signed again before it is given "
           "away:\n" +
           std::string("          ") + systemSigningTool + " --force --deep --sign - " +
           quotedForShell(asArgument(bundle)) + "\n";
}

}  // namespace qelmo
