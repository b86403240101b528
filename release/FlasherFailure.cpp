#include "release/FlasherFailure.h"

namespace qelmo {

std::string errorDescription(const std::exception& error) {
    if (const auto* failure = dynamic_cast<const FlasherFailure*>(&error)) return failure->errorDescription();
    return error.what();
}

}  // namespace qelmo
