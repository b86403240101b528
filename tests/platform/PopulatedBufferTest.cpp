#include "platform/PopulatedBuffer.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <new>
#include <utility>
#include <vector>

namespace qelmo {
namespace {

constexpr std::size_t imageBytes = std::size_t{8} << 20;

TEST(PopulatedBuffer, GivesExactlyTheBytesThatWereAskedForAndAllOfThemCanBeWritten) {
    for (const std::size_t size : {std::size_t{1}, std::size_t{4097}, imageBytes - 1, imageBytes + 1}) {
        const PopulatedBuffer buffer(size);
        ASSERT_EQ(buffer.span().size(), size);
        std::fill(buffer.span().begin(), buffer.span().end(), std::byte{0xA5});
        EXPECT_EQ(buffer.span().back(), std::byte{0xA5});
    }
}

TEST(PopulatedBuffer, OfNothingHoldsNothing) {
    EXPECT_TRUE(PopulatedBuffer(0).span().empty());
}

#if defined(MADV_POPULATE_WRITE) && !defined(QELMO_SANITIZED)  // a sanitized buffer is an allocation
TEST(PopulatedBuffer, HasAllItsPagesBeforeTheFirstWrite) {
    const PopulatedBuffer buffer(imageBytes);
    std::vector<unsigned char> isThere(imageBytes / static_cast<std::size_t>(::getpagesize()));
    ASSERT_EQ(::mincore(buffer.span().data(), imageBytes, isThere.data()), 0);
    EXPECT_EQ(std::count(isThere.begin(), isThere.end(), 0), 0);
}
#endif

TEST(PopulatedBuffer, MovesWithItsBytes) {
    PopulatedBuffer first(imageBytes);
    first.span()[imageBytes - 1] = std::byte{7};
    const PopulatedBuffer second(std::move(first));
    EXPECT_EQ(second.span()[imageBytes - 1], std::byte{7});
    EXPECT_TRUE(first.span().empty());  // that it is empty is the point
}

TEST(PopulatedBuffer, SaysSoWhenThereIsNotSoMuchMemory) {
    EXPECT_THROW(PopulatedBuffer(std::size_t{1} << 62), std::bad_alloc);
    EXPECT_THROW(PopulatedBuffer(~std::size_t{0}), std::bad_alloc);
}

}  // namespace
}  // namespace qelmo
