#include "platform/FilePath.h"

#include <gtest/gtest.h>
#include <pwd.h>
#include <unistd.h>

#include "tests/support/ScopedEnvironment.h"

namespace qelmo {
namespace {

TEST(FilePath, JoinsAsTextAndResolvesNothing) {
    EXPECT_EQ(joinedPath("/a", "b"), "/a/b");
    EXPECT_EQ(joinedPath("/a", ""), "/a/");
    EXPECT_EQ(joinedPath("/a", "/etc/passwd"), "/a//etc/passwd");
    EXPECT_EQ(joinedPath("/a", "../b"), "/a/../b");
    EXPECT_EQ(joinedPath("/\xFF", "\xFE"), "/\xFF/\xFE");
}

TEST(FilePath, TakesTheParentFromTheText) {
    EXPECT_EQ(parentFolder("/a/b"), "/a");
    EXPECT_EQ(parentFolder("/a"), "/");
    EXPECT_EQ(parentFolder("/"), "/");
    EXPECT_EQ(parentFolder("a/b"), "a");
    EXPECT_EQ(parentFolder("a"), ".");
    EXPECT_EQ(parentFolder(""), ".");
    EXPECT_EQ(parentFolder("/a/"), "/a");
}

TEST(FilePath, TakesTheHomeFolderFromAnAbsoluteHome) {
    const ScopedEnvironment home("HOME", "/some where/\xFF");
    EXPECT_EQ(homeFolder(), "/some where/\xFF");
}

TEST(FilePath, AsksTheUserDatabaseWhenHomeIsMissingEmptyOrRelative) {
    const passwd* user = ::getpwuid(::geteuid());
    ASSERT_NE(user, nullptr);
    const std::string expected = user->pw_dir;
    for (const std::optional<std::string>& value :
         {std::optional<std::string>(), std::optional<std::string>(""), std::optional<std::string>("home")}) {
        const ScopedEnvironment home("HOME", value);
        EXPECT_EQ(homeFolder(), expected);
    }
}

}  // namespace
}  // namespace qelmo
