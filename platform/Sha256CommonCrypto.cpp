#include <CommonCrypto/CommonDigest.h>

#include "platform/Sha256.h"

namespace qelmo {

Sha256Digest sha256(std::span<const std::byte> bytes) {
    Sha256Digest digest{};
    // A length of 4 GB or more would not fit; what is read is far below.
    CC_SHA256(bytes.data(), static_cast<CC_LONG>(bytes.size()),
              reinterpret_cast<unsigned char*>(digest.data()));
    return digest;
}

}  // namespace qelmo
