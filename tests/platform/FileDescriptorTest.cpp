#include "platform/FileDescriptor.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <type_traits>

namespace qelmo {
namespace {

static_assert(!std::is_copy_constructible_v<FileDescriptor> && !std::is_copy_assignable_v<FileDescriptor>);
static_assert(std::is_nothrow_move_constructible_v<FileDescriptor>);

int openAnything() {
    return ::open("/dev/null", O_RDONLY | O_CLOEXEC);
}

bool isOpen(int descriptor) {
    return ::fcntl(descriptor, F_GETFD) >= 0;
}

TEST(FileDescriptor, ClosesAtTheEndOfItsScope) {
    const int number = openAnything();
    {
        const FileDescriptor owner(number);
        EXPECT_TRUE(isOpen(number));
    }
    EXPECT_FALSE(isOpen(number));
}

TEST(FileDescriptor, GivesItsDescriptorAwayWhenMoved) {
    const int number = openAnything();
    FileDescriptor first(number);
    FileDescriptor second(std::move(first));
    EXPECT_FALSE(first.isOpen());  // that it is empty is the point
    EXPECT_EQ(second.get(), number);
    EXPECT_TRUE(isOpen(number));
}

TEST(FileDescriptor, ClosesTheOldDescriptorWhenItTakesAnother) {
    const int number = openAnything();
    FileDescriptor owner(number);
    const int next = openAnything();
    owner = FileDescriptor(next);
    EXPECT_FALSE(isOpen(number));
    EXPECT_EQ(owner.get(), next);
}

TEST(FileDescriptor, ClosesOnlyOnce) {
    FileDescriptor owner(openAnything());
    owner.close();
    const FileDescriptor other(openAnything());
    owner.close();
    EXPECT_TRUE(isOpen(other.get()));
    EXPECT_FALSE(owner.isOpen());
}

}  // namespace
}  // namespace qelmo
