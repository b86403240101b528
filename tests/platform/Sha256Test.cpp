#include "platform/Sha256.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/support/TestFiles.h"

namespace qelmo {
namespace {

std::string hexadecimalDigest(std::string_view message) {
    std::string text;
    for (const std::byte value : sha256(bytesOf(message))) {
        constexpr std::string_view digits = "0123456789abcdef";
        text += digits[std::to_integer<unsigned>(value) / 16];
        text += digits[std::to_integer<unsigned>(value) % 16];
    }
    return text;
}

// Known answers: NIST, "Cryptographic Standards and Guidelines, Examples with Intermediate Values" for
// FIPS 180-4 (SHA256.pdf: one block, two blocks), and the SHA test vectors of the Cryptographic Algorithm
// Validation Program (no message, one million times "a").

TEST(Sha256, KnowsTheDigestOfNothing) {
    EXPECT_EQ(hexadecimalDigest(""), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
}

TEST(Sha256, KnowsTheDigestOfOneBlock) {
    EXPECT_EQ(hexadecimalDigest("abc"), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
}

TEST(Sha256, KnowsTheDigestOfA448BitMessage) {
    EXPECT_EQ(hexadecimalDigest("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq"),
              "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1");
}

TEST(Sha256, KnowsTheDigestOfOneMillionLetters) {
    EXPECT_EQ(hexadecimalDigest(std::string(1'000'000, 'a')),
              "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0");
}

}  // namespace
}  // namespace qelmo
