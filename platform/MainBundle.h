#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace qelmo {

/// The bundle folder from which this program runs.
///
/// It is found from the real path of the running executable (links resolved): inside X/Contents/MacOS/ it is
/// X, anywhere else the executable's own folder. Callable from any thread; nothing is cached.
/// Errors: std::system_error when the system does not tell the executable's path.
namespace MainBundle {

/// The bundle's root folder, the one that contains "Contents".
[[nodiscard]] std::string bundleURL();

/// The path of the application's icon file, when it exists. It is not opened.
[[nodiscard]] std::optional<std::string> urlForApplicationIcon();

/// The path of Contents/Resources/`name`.`extension`, when that file exists. It is not opened.
[[nodiscard]] std::optional<std::string> urlForResource(std::string_view name, std::string_view extension);

}  // namespace MainBundle

/// The folder for resources below a bundle's root folder.
[[nodiscard]] std::string resourceFolder(std::string_view bundleURL);

/// The bundle to which the executable at `executablePath` belongs, by the rule above.
[[nodiscard]] std::string bundleOfExecutable(std::string_view executablePath);

}  // namespace qelmo
