#pragma once

#include <stdexcept>
#include <string>
#include <string_view>

namespace qelmo {

/// The JSON text of a valid manifest. Its values can be replaced, even with invalid ones.
class ManifestText {
public:
    /// Replaces the value of the field at `path`, such as "name" or "binary.path". `json` is inserted
    /// unchanged.
    ManifestText& set(std::string_view path, std::string_view json) {
        // No key occurs twice, and each value ends at the end of its line.
        const std::string key = '"' + std::string(path.substr(path.rfind('.') + 1)) + "\": ";
        const std::size_t found = text_.find(key);
        if (found == std::string::npos)
            throw std::logic_error("no such manifest field: " + std::string(path));
        const std::size_t value = found + key.size();
        std::size_t end = text_.find('\n', value);
        if (text_[end - 1] == ',') --end;
        text_.replace(value, end - value, json);
        return *this;
    }

    [[nodiscard]] const std::string& text() const { return text_; }

private:
    // The order differs from the one in which the keys are decoded, so that no test relies on it.
    std::string text_ = R"({
"flash": {
"after": "hard_reset",
"baud": 921600,
"confirmationText": "FLASH VARNOX",
"eraseAllInternalFlash": true,
"flashFrequency": "80m",
"flashMode": "dio",
"flashSize": "8MB"
},
"binary": {
"sha256": "",
"size": 65537,
"offset": 0,
"path": "release-complete.bin"
},
"hardware": "Cardputer ADV",
"chipFamily": "ESP32-S3",
"version": "1.0.0",
"name": "Varnox",
"schemaVersion": 1
})";
};

}  // namespace qelmo
