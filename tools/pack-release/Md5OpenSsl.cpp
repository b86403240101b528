#include <openssl/evp.h>

#include <stdexcept>

#include "tools/pack-release/Md5.h"

namespace qelmo {

Md5Digest md5(std::span<const std::byte> bytes) {
    Md5Digest digest{};
    if (EVP_Digest(bytes.data(), bytes.size(), reinterpret_cast<unsigned char*>(digest.data()), nullptr,
                   EVP_md5(), nullptr) != 1)
        throw std::runtime_error("MD5 is not available from the OpenSSL library.");
    return digest;
}

}  // namespace qelmo
