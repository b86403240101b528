#include <CommonCrypto/CommonDigest.h>

#include "tools/pack-release/Md5.h"

// Apple deprecates MD5 because it is not safe against attackers. Here it only detects accidental damage.
#pragma clang diagnostic ignored "-Wdeprecated-declarations"

namespace qelmo {

Md5Digest md5(std::span<const std::byte> bytes) {
    Md5Digest digest{};
    CC_MD5(bytes.data(), static_cast<CC_LONG>(bytes.size()), reinterpret_cast<unsigned char*>(digest.data()));
    return digest;
}

}  // namespace qelmo
