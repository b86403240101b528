#include <CommonCrypto/CommonDigest.h>

#include "platform/Sha256.h"

namespace qelmo {

Sha256Digest sha256(std::span<const std::byte> bytes) {
    Sha256Digest digest{};
    // A length of 4 GiB or more would not fit. The limits for files are far below that.
    CC_SHA256(bytes.data(), static_cast<CC_LONG>(bytes.size()),
              reinterpret_cast<unsigned char*>(digest.data()));
    return digest;
}

}  // namespace qelmo
