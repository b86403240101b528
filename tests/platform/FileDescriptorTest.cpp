#include "platform/FileDescriptor.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <type_traits>

namespace qelmo {
namespace {

static_assert(!std::is_copy_constructible_v<FileDescriptor> && !std::is_copy_assignable_v<FileDescriptor>);

int openAnything() {
    return ::open("/dev/null", O_RDONLY | O_CLOEXEC);
}

bool isOpen(int descriptor) {
    return ::fcntl(descriptor, F_GETFD) >= 0;
}

TEST(FileDescriptor, ClosesWhatItOwnsOnceAndNothingElse) {
    const int first = openAnything();
    const int second = openAnything();
    FileDescriptor owner(first);
    owner = FileDescriptor(second);
    EXPECT_FALSE(isOpen(first));
    FileDescriptor next(std::move(owner));
    EXPECT_FALSE(owner.isOpen());  // that it is empty is the point
    owner.close();
    EXPECT_EQ(next.get(), second);
    EXPECT_TRUE(isOpen(second));
    next.close();
    EXPECT_FALSE(isOpen(second));
    const FileDescriptor sameNumbers[]{FileDescriptor(openAnything()), FileDescriptor(openAnything())};
    next.close();
    EXPECT_TRUE(isOpen(second));
}

}  // namespace
}  // namespace qelmo
