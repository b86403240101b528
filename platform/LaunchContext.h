#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace qelmo {

/// The inputs of the program, read once at start-up. Paths are bytes.
struct LaunchContext {
    std::vector<std::string> arguments;    ///< the program's name is first
    std::vector<std::string> environment;  ///< "NAME=value" entries, as at start-up
    std::string bundleURL;                 ///< the folder that contains "Contents"
    std::string homeFolder;
    std::string deviceFolder = "/dev";
    std::string interpreter = "/usr/bin/python3";  ///< runs the flashing tool; PATH is not searched
    std::string windowReportFile = "/tmp/qelmo-flasher-window-self-test.txt";

    /// True if one of the arguments equals `argument` byte for byte.
    [[nodiscard]] bool hasArgument(std::string_view argument) const;

    /// Reads the inputs of this process. `argumentCount` and `arguments` are those of main.
    /// Errors: std::system_error if the executable's path cannot be determined.
    [[nodiscard]] static LaunchContext ofThisProcess(int argumentCount, const char* const* arguments);
};

}  // namespace qelmo
