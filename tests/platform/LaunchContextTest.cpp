#include "platform/LaunchContext.h"

#include <gmock/gmock.h>

#include <array>
#include <filesystem>

#include "tests/support/ScopedEnvironment.h"

namespace qelmo {
namespace {

TEST(LaunchContext, HoldsWhatThisProcessWasStartedWith) {
    const ScopedEnvironment variable("QELMO_TEST_VARIABLE", "a=b\n\xFF");
    const ScopedEnvironment home("HOME", "/home folder");
    const std::array arguments{"name", "", "--exact", "\xFF"};
    const auto context = LaunchContext::ofThisProcess(arguments.size(), arguments.data());
    EXPECT_THAT(context.arguments, testing::ElementsAre("name", "", "--exact", "\xFF"));
    EXPECT_TRUE(context.hasArgument("--exact"));
    EXPECT_FALSE(context.hasArgument("--exac"));
    EXPECT_THAT(context.environment, testing::Contains("QELMO_TEST_VARIABLE=a=b\n\xFF"));
    EXPECT_EQ(context.homeFolder, "/home folder");
    EXPECT_TRUE(std::filesystem::exists(context.bundleURL + "/qelmo_platform_tests"));
}

}  // namespace
}  // namespace qelmo
