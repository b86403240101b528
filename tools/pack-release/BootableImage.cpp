#include "tools/pack-release/BootableImage.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <string_view>

#include "platform/Sha256.h"
#include "release/FlasherFailure.h"
#include "tools/pack-release/Md5.h"

namespace qelmo {

namespace {

using Bytes = std::span<const std::byte>;

constexpr std::size_t tableOffset = 0x8000;
constexpr std::size_t applicationOffset = 0x10000;
constexpr unsigned chipIdOfEsp32S3 = 9;
constexpr std::string_view buildAgain = "Build and merge the firmware again.";

std::uint32_t littleEndian(Bytes bytes) {
    std::uint32_t value = 0;
    for (std::size_t at = bytes.size(); at > 0; --at)
        value = value << 8 | std::to_integer<std::uint32_t>(bytes[at - 1]);
    return value;
}

std::string hex(std::size_t value) {
    std::array<char, 2 + 2 * sizeof value + 1> text{};
    (void)std::snprintf(text.data(), text.size(), "0x%zX", value);
    return text.data();
}

/// Reads one program of the merged image from its first byte to its last.
class ProgramReader {
public:
    /// `space` begins with the program and ends at the last place where the program may end.
    ProgramReader(std::string_view name, std::size_t offset, Bytes space)
        : start_("The " + std::string(name) + " at " + hex(offset)), offset_(offset), space_(space) {}

    void requireBootable() {
        constexpr std::size_t headerBytes = 24;
        constexpr std::size_t segmentCountAt = 1;
        constexpr std::size_t chipIdAt = 12;
        constexpr std::size_t hasDigestAt = 23;
        const Bytes header = taken(headerBytes, "the header");
        const unsigned chipId = littleEndian(header.subspan(chipIdAt, 2));
        if (chipId != chipIdOfEsp32S3)
            refuse(" is built for the chip with id " + std::to_string(chipId) +
                   ", but the id of the ESP32-S3 is " + std::to_string(chipIdOfEsp32S3) +
                   ". Build it for the ESP32-S3.");

        const std::byte checksum = checksumOfSegments(std::to_integer<unsigned>(header[segmentCountAt]));
        requireChecksum(checksum);
        if (header[hasDigestAt] != std::byte{0}) requireDigest();
    }

private:
    [[noreturn]] void refuse(const std::string& fault) const { throw FlasherFailure(start_ + fault); }

    Bytes taken(std::size_t size, const std::string& what) {
        const std::size_t left = space_.size() - position_;
        if (size > left)
            refuse(" is cut off: " + what + " at " + hex(offset_ + position_) + " needs " +
                   std::to_string(size) + " bytes, but only " + std::to_string(left) + " are left. " +
                   std::string(buildAgain));
        position_ += size;
        return space_.subspan(position_ - size, size);
    }

    std::byte checksumOfSegments(unsigned count) {
        constexpr unsigned maximum = 16;
        if (count == 0 || count > maximum)
            refuse(" has " + std::to_string(count) + " segments according to its header; only 1 to " +
                   std::to_string(maximum) + " are possible. " + std::string(buildAgain));

        std::byte checksum{0xEF};
        for (unsigned segment = 1; segment <= count; ++segment) {
            const std::string name = "segment " + std::to_string(segment);
            const Bytes addressAndSize = taken(8, "the header of " + name);
            for (const std::byte value : taken(littleEndian(addressAndSize.last(4)), name)) checksum ^= value;
        }
        return checksum;
    }

    /// The checksum is the last byte of a row of 16.
    void requireChecksum(std::byte expected) {
        constexpr std::size_t row = 16;
        const Bytes padded = taken(row - position_ % row, "the checksum");
        if (padded.back() != expected)
            refuse(" is damaged: the checksum at " + hex(offset_ + position_ - 1) + " is " +
                   hex(std::to_integer<std::size_t>(padded.back())) + ", but the segments give " +
                   hex(std::to_integer<std::size_t>(expected)) + ". " + std::string(buildAgain));
    }

    void requireDigest() {
        const Sha256Digest expected = sha256(space_.first(position_));
        const Bytes digest = taken(expected.size(), "the SHA-256");
        if (!std::equal(digest.begin(), digest.end(), expected.begin()))
            refuse(" was changed after it was built: the SHA-256 at " +
                   hex(offset_ + position_ - digest.size()) +
                   " does not match its bytes. Build it again for these flash settings and merge it "
                   "unchanged.");
    }

    const std::string start_;  ///< of every message
    const std::size_t offset_;
    const Bytes space_;
    std::size_t position_ = 0;
};

/// Returns false if there is no table. A table may be built without an MD5; such a table is accepted.
bool hasIntactPartitionTable(Bytes image) {
    constexpr std::size_t rowBytes = 32;
    constexpr std::size_t maximumBytes = 0xC00;
    constexpr std::array entryMagic{std::byte{0xAA}, std::byte{0x50}};
    constexpr std::array md5Magic{std::byte{0xEB}, std::byte{0xEB}};
    const Bytes space = image.subspan(tableOffset, maximumBytes);
    const auto beginsWith = [](Bytes row, Bytes magic) {
        return std::equal(magic.begin(), magic.end(), row.begin());
    };

    std::size_t at = 0;
    while (at < space.size() && beginsWith(space.subspan(at), entryMagic)) at += rowBytes;
    if (at == 0 || at == space.size() || !beginsWith(space.subspan(at), md5Magic)) return at > 0;

    const Md5Digest expected = md5(space.first(at));
    const Bytes digest = space.subspan(at + rowBytes - expected.size(), expected.size());
    if (!std::equal(digest.begin(), digest.end(), expected.begin()))
        throw FlasherFailure("The partition table at " + hex(tableOffset) + " is damaged: the MD5 at " +
                             hex(tableOffset + at + rowBytes - expected.size()) +
                             " does not match its entries. " + std::string(buildAgain));
    return true;
}

}  // namespace

std::vector<std::string> requireBootableImage(Bytes image) {
    ProgramReader("boot loader", 0, image.first(applicationOffset)).requireBootable();
    ProgramReader("application", applicationOffset, image.subspan(applicationOffset)).requireBootable();
    if (hasIntactPartitionTable(image)) return {};
    return {"There is no partition table at " + hex(tableOffset) +
            ". The firmware starts only if its boot loader looks for the table in another place."};
}

}  // namespace qelmo
