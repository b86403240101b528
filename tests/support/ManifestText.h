#pragma once

#include <algorithm>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace qelmo {

/// A manifest's JSON text, field by field. A value is raw JSON, so that every wrong one can be written too.
class ManifestText {
public:
    /// Replaces the value of "name" or "binary.name"; `json` is put in as it stands.
    ManifestText& set(std::string_view path, std::string json) {
        at(path)->second = std::move(json);
        return *this;
    }

    /// Writes the keys in the opposite order.
    ManifestText& reverse() {
        std::reverse(fields_.begin(), fields_.end());
        return *this;
    }

    [[nodiscard]] std::string text() const { return object(""); }

private:
    using Field = std::pair<std::string, std::string>;

    std::vector<Field>::iterator at(std::string_view path) {
        const auto field = std::find_if(fields_.begin(), fields_.end(),
                                        [path](const Field& one) { return one.first == path; });
        if (field == fields_.end()) throw std::logic_error("no such manifest field: " + std::string(path));
        return field;
    }

    /// The object whose fields begin with `prefix`; an inner object stands where its own field stands.
    [[nodiscard]] std::string object(const std::string& prefix) const {
        std::string json;
        for (const auto& [path, value] : fields_) {
            if (!path.starts_with(prefix)) continue;
            const std::string key = path.substr(prefix.size());
            if (key.find('.') != std::string::npos) continue;
            json += json.empty() ? "" : ", ";
            json += '"' + key + "\": " + (value == inner ? object(path + ".") : value);
        }
        return "{" + json + "}";
    }

    static constexpr const char* inner = "(its own fields)";

    std::vector<Field> fields_{{"schemaVersion", "1"},
                               {"name", R"("Varnox")"},
                               {"version", R"("1.0.0")"},
                               {"chipFamily", R"("ESP32-S3")"},
                               {"hardware", R"("Cardputer ADV")"},
                               {"binary", inner},
                               {"binary.path", R"("release-complete.bin")"},
                               {"binary.offset", "0"},
                               {"binary.size", "65537"},
                               {"binary.sha256", R"("")"},
                               {"flash", inner},
                               {"flash.baud", "921600"},
                               {"flash.flashSize", R"("8MB")"},
                               {"flash.flashMode", R"("dio")"},
                               {"flash.flashFrequency", R"("80m")"},
                               {"flash.eraseAllInternalFlash", "true"},
                               {"flash.after", R"("hard_reset")"},
                               {"flash.confirmationText", R"("FLASH VARNOX")"}};
};

}  // namespace qelmo
