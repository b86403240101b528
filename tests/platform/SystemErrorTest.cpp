#include "platform/SystemError.h"

#include <gtest/gtest.h>

#include <cerrno>

#include "tests/support/ErrorOf.h"

namespace qelmo {
namespace {

using namespace std::string_literals;

std::string opening(const std::string& object) {
    return errorOf([&] { throwSystemError(EACCES, "open", object); });
}

TEST(SystemError, IsOneLineOfTextThatNamesTheOperationTheObjectAndTheReason) {
    EXPECT_EQ(opening("/a b/x.bin"), "open /a b/x.bin: Permission denied");
    EXPECT_EQ(opening("/a\nb\0c\x7F\x1B[1m/\u20AC\xFF"s), "open /a?b?c??[1m/\u20AC\uFFFD: Permission denied");
}

TEST(SystemError, CutsAnObjectThatIsLongerThanAnyPath) {
    const std::string longest(4096, 'x');
    EXPECT_EQ(opening(longest), "open " + longest + ": Permission denied");
    EXPECT_EQ(opening(longest + "y"), "open " + longest + "...: Permission denied");
}

}  // namespace
}  // namespace qelmo
