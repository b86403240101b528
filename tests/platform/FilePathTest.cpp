#include "platform/FilePath.h"

#include <gtest/gtest.h>
#include <pwd.h>
#include <unistd.h>

#include <map>

#include "tests/support/ScopedEnvironment.h"

namespace qelmo {
namespace {

using Texts = std::map<std::string, std::string>;

TEST(FilePath, JoinsAsTextAndResolvesNothing) {
    const Texts joined{{"b", "/\xFF/b"}, {"", "/\xFF/"}, {"/etc", "/\xFF//etc"}, {"../b", "/\xFF/../b"}};
    for (const auto& [component, path] : joined) EXPECT_EQ(joinedPath("/\xFF", component), path);
    EXPECT_EQ(resourceFolder("/A.app"), "/A.app/Contents/Resources");
}

TEST(FilePath, TakesTheParentFromTheText) {
    const Texts parents{{"/a/b", "/a"}, {"/a", "/"}, {"/", "/"},   {"a/b", "a"},
                        {"a", "."},     {"", "."},   {"/a/", "/a"}};
    for (const auto& [path, parent] : parents) EXPECT_EQ(parentFolder(path), parent) << path;
}

TEST(FilePath, TakesTheHomeFolderFromAnAbsoluteHomeElseFromTheUserDatabase) {
    const passwd* const user = ::getpwuid(::geteuid());
    ASSERT_NE(user, nullptr);
    const std::string inDatabase = user->pw_dir;
    const ScopedEnvironment home("HOME", "/some where/\xFF");
    EXPECT_EQ(currentHomeFolder(), "/some where/\xFF");
    for (const std::optional<std::string>& useless : {std::optional<std::string>(), {""}, {"home"}}) {
        const ScopedEnvironment other("HOME", useless);
        EXPECT_EQ(currentHomeFolder(), inDatabase);
    }
}

TEST(FilePath, FindsTheBundleAroundContentsElseUsesTheExecutablesFolder) {
    const Texts bundles{{"/my apps/\u00FC\xFF.app/Contents/MacOS/A", "/my apps/\u00FC\xFF.app"},
                        {"/A.app/Contents/MacOS/B.app/Contents/MacOS/B", "/A.app/Contents/MacOS/B.app"},
                        {"/Contents/MacOS/A", "/Contents/MacOS"},
                        {"/A.app/Contents/MacOS/tools/A", "/A.app/Contents/MacOS/tools"},
                        {"/usr/local/bin/A", "/usr/local/bin"},
                        {"/A", "/"},
                        {"/A.app/myContents/MacOS/A", "/A.app/myContents/MacOS"}};
    for (const auto& [executable, bundle] : bundles) EXPECT_EQ(bundleOfExecutable(executable), bundle);
}

}  // namespace
}  // namespace qelmo
