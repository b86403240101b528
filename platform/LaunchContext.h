#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace qelmo {

/// What the program takes from outside, read once, at the start. Paths are bytes.
struct LaunchContext {
    std::vector<std::string> arguments;    ///< the program's name comes first
    std::vector<std::string> environment;  ///< "NAME=value" entries, as at the start
    std::string bundleURL;                 ///< the folder that contains "Contents"
    std::string homeFolder;
    std::string deviceFolder = "/dev";
    std::string interpreter = "/usr/bin/python3";  ///< runs the flashing tool; nothing is searched
    std::string windowReportFile = "/tmp/qelmo-flasher-window-self-test.txt";

    /// True when an argument is exactly `argument`, byte for byte.
    [[nodiscard]] bool hasArgument(std::string_view argument) const;

    /// Reads this process's. `arguments` and `argumentCount` are those of main.
    /// Errors: std::system_error when the system does not tell the executable's path.
    [[nodiscard]] static LaunchContext ofThisProcess(int argumentCount, const char* const* arguments);
};

}  // namespace qelmo
