#include <openssl/evp.h>

#include <stdexcept>

#include "platform/Sha256.h"

namespace qelmo {

Sha256Digest sha256(std::span<const std::byte> bytes) {
    Sha256Digest digest{};
    if (EVP_Digest(bytes.data(), bytes.size(), reinterpret_cast<unsigned char*>(digest.data()), nullptr,
                   EVP_sha256(), nullptr) != 1)
        throw std::runtime_error("SHA-256 is not available from the OpenSSL library.");
    return digest;
}

}  // namespace qelmo
