#include <CommonCrypto/CommonDigest.h>

#include <limits>
#include <stdexcept>

#include "platform/Sha256.h"

namespace qelmo {

Sha256Digest sha256(std::span<const std::byte> bytes) {
    if (bytes.size() > std::numeric_limits<CC_LONG>::max())
        throw std::runtime_error("SHA-256 of more than 4 GB is not available.");
    Sha256Digest digest{};
    CC_SHA256(bytes.data(), static_cast<CC_LONG>(bytes.size()),
              reinterpret_cast<unsigned char*>(digest.data()));
    return digest;
}

}  // namespace qelmo
