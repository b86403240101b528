#include <algorithm>
#include <cstdlib>
#include <exception>
#include <system_error>
#include <vector>

#include "platform/ThisProcess.h"
#include "platform/Utf8.h"
#include "release/FlasherFailure.h"
#include "release/ReleaseTexts.h"
#include "tools/pack-release/NewRelease.h"
#include "tools/pack-release/Options.h"
#include "tools/pack-release/ReleaseReplacement.h"
#include "tools/pack-release/Signing.h"

namespace {

using namespace qelmo;

constexpr int misuse = 2;

void report(const std::string& message) {
    writeToStandardError("pack-release: " + shownOnOneLine(message) + "\n");
}

std::string summary(const PackRequest& request, const FlashManifest& manifest,
                    const std::optional<FlashManifest>& replaced) {
    return "Packed    " + manifest.name + " " + manifest.version + " into " + request.bundle + "\n" +
           "Image     " + manifest.binary.path + ", " + std::to_string(manifest.binary.size) + " bytes\n" +
           "SHA-256   " + manifest.binary.sha256 + "\n" + "Button    " + verifiedFlashButtonTitle(manifest) +
           "\n" + "Replaced  " + (replaced ? replaced->name + " " + replaced->version : "no release") + "\n";
}

/// The new release is in place even if the report cannot be printed; the error says so.
void printReport(const std::string& report) {
    try {
        writeToStandardOutput(report);
    } catch (const std::system_error& error) {
        throw FlasherFailure("the new release is in place, but: " + errorDescription(error));
    }
}

void pack(const PackRequest& request) {
    if (request.sign) requireSigningTool(systemSigningTool);
    const NewRelease release = newRelease(request);
    const auto replaced = replaceRelease(request.bundle, release);
    for (const std::string& warning : release.warnings) report("warning: " + warning);
    std::string text = summary(request, release.manifest, replaced);
    if (request.sign) {
        signBundle(systemSigningTool, request.bundle);
        text += "Signed    ad hoc, and verified\n";
    } else if (bundlesAreSealed) {
        text += signingNotice(request.bundle);
    }
    printReport(text);
}

}  // namespace

int main(int argc, char** argv) {
    try {
        undoInheritedRestrictions();
        const std::vector<std::string> arguments(argv + std::min(argc, 1), argv + argc);
        const auto request = packRequest(arguments);
        if (request) {
            pack(*request);
        } else {
            writeToStandardOutput(packUsage());
        }
        return EXIT_SUCCESS;
    } catch (const OptionError& error) {
        report(error.what());
        return misuse;
    } catch (const std::exception& error) {
        report(errorDescription(error));
        return EXIT_FAILURE;
    }
}
