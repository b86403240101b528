#include "platform/MainBundle.h"
#include "ui/ApplicationIcon.h"

namespace qelmo {

// The Dock draws the bundle's icon sharply in every size. An icon of the toolkit's would replace it with one
// small picture, and the toolkit cannot read the bundle's.
void setApplicationIcon(const std::optional<std::string>& /*path*/) {}

bool hasApplicationIcon() {
    return MainBundle::urlForApplicationIcon().has_value();
}

}  // namespace qelmo
