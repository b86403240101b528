#include "release/FlasherFailure.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <system_error>

namespace qelmo {
namespace {

using namespace std::string_literals;

TEST(FlasherFailure, IsDescribedByItsMessageAlone) {
    const FlasherFailure failure("The whole sentence.");
    EXPECT_EQ(failure.message, "The whole sentence.");
    EXPECT_EQ(failure.errorDescription(), "The whole sentence.");
    EXPECT_STREQ(failure.what(), "The whole sentence.");
    EXPECT_EQ(errorDescription(failure), "The whole sentence.");
}

TEST(FlasherFailure, KeepsAMessageThatHoldsANul) {
    EXPECT_EQ(errorDescription(FlasherFailure("tool said \0 and more"s)), "tool said \0 and more"s);
}

TEST(FlasherFailure, CanBeEmpty) {
    EXPECT_EQ(errorDescription(FlasherFailure("")), "");
}

TEST(ErrorDescription, IsTheTextOfAnyOtherError) {
    EXPECT_EQ(errorDescription(std::system_error(ENOENT, std::generic_category(), "open /x")),
              "open /x: No such file or directory");
}

}  // namespace
}  // namespace qelmo
