#include "platform/SystemError.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <system_error>

namespace qelmo {
namespace {

std::string textOfError(int error, std::string_view operation, std::string_view object) {
    try {
        throwSystemError(error, operation, object);
    } catch (const std::system_error& thrown) {
        EXPECT_EQ(thrown.code(), std::error_code(error, std::generic_category()));
        return thrown.what();
    }
}

TEST(SystemError, NamesTheOperationTheObjectAndTheReason) {
    EXPECT_EQ(textOfError(EACCES, "open", "/a b/x.bin"), "open /a b/x.bin: Permission denied");
}

TEST(SystemError, StaysOnOneLineOfTextWhateverThePathHolds) {
    using namespace std::string_literals;
    EXPECT_EQ(textOfError(ENOENT, "open", "/a\nb\0c\x7F\x1B[1m/\u20AC\xFF"s),
              "open /a?b?c??[1m/\u20AC\uFFFD: No such file or directory");
}

TEST(SystemError, FindsANulAnywhereInAPath) {
    using namespace std::string_literals;
    EXPECT_FALSE(holdsNul("/a/b"));
    EXPECT_TRUE(holdsNul("/a\0"s));
    EXPECT_TRUE(holdsNul("\0/a"s));
}

}  // namespace
}  // namespace qelmo
