#include "flashing/ToolProcessSetUp.h"

#include <gmock/gmock.h>

#include <filesystem>
#include <mutex>
#include <optional>

#include "tests/support/Fifo.h"
#include "tests/support/InMemoryMainQueue.h"
#include "tests/support/TemporaryFolder.h"

namespace qelmo {
namespace {

using namespace std::string_literals;
using testing::ElementsAre;

constexpr const char* python = "/usr/bin/python3";

// fault: the tool prints NUL, ESC, a lone surrogate and an incomplete character
TEST(LogText, PutsEachRedrawOnALineAndReplacesInvalidText) {
    EXPECT_EQ(logTextOfChunk("Writing 10%\rWriting 20%\r"), "Writing 10%\nWriting 20%\n");
    EXPECT_EQ(logTextOfChunk("a\r\nb\n\r"), "a\n\nb\n\n");
    EXPECT_EQ(logTextOfChunk("a\0b\x1B[1m\xED\xA0\x80 <b> & \t\u00E9\xE2\x82"s),
              "a\0b\x1B[1m\uFFFD\uFFFD\uFFFD <b> & \t\u00E9\uFFFD"s);
    EXPECT_EQ(logTextOfChunk(""), "");
}

// fault: a character is split across two chunks of the tool's output
TEST(ToolProcess, RunsTheCommandDecodesEachChunkSeparatelyAndCompletesOnceOnTheMainQueue) {
    const Fifo gate;
    const std::string script =
        "import os, sys\n"
        "command = b''.join(open('/proc/self/' + name, 'rb').read() for name in ('cmdline', 'environ'))\n"
        "for stream, chunk in (1, command), (1, b'ab\\xE2\\x82'), (2, b'\\xACcd\\r'), (1, b'\\n'):\n"
        "    os.write(stream, chunk); open(sys.argv[1]).read()\n"
        "sys.exit(2)";
    std::mutex mutex;
    std::vector<std::string> texts;
    std::vector<int> completions;
    const auto queue = std::make_shared<InMemoryMainQueue>();
    auto process =
        setUpToolProcess({python, {"-c", script, gate.path()}, {"A=1", "B=\u00E9"}}, queue,
                         {[&](const std::string& text) {
                              const std::lock_guard lock(mutex);
                              texts.push_back(text);
                          },
                          [&](const auto& ended) { completions.push_back(ended->terminationStatus()); }});
    process->launch();
    process.reset();  // it keeps itself alive
    for (std::size_t count = 1; count <= 4; ++count) {
        ASSERT_TRUE(eventually([&] {
            const std::lock_guard lock(mutex);
            return texts.size() == count;
        }));
        gate.open();
    }
    EXPECT_THAT(completions, testing::IsEmpty());
    EXPECT_TRUE(queue->runUntil([&] { return !completions.empty(); }));
    queue->runAll();
    EXPECT_THAT(completions, ElementsAre(2));
    EXPECT_THAT(texts, ElementsAre(python + "\0-c\0"s + script + '\0' + gate.path() + "\0A=1\0B=\u00E9\0"s,
                                   "ab\uFFFD", "\uFFFDcd\n", "\n"));
}

// fault: a process that the tool started outlives it, keeps the pipe open and goes on writing
TEST(ToolProcess, StopsReadingOnceItsEndIsPostedAndClosesThePipeWithTheJob) {
    const Fifo gate;
    const TemporaryFolder folder;
    const std::string ended = folder / "ended";
    const char* const script =
        "import os, sys\n"
        "if os.fork(): os._exit(5)\n"
        "open(sys.argv[1]).read()\n"
        "try:\n"
        "    while True: os.write(1, b'x')\n"
        "except BrokenPipeError:\n"
        "    open(sys.argv[2], 'w')\n";
    const auto queue = std::make_shared<InMemoryMainQueue>();
    std::optional<int> status;
    auto process = setUpToolProcess({python, {"-c", script, gate.path(), ended}, {}}, queue,
                                    {[](const std::string&) { ADD_FAILURE() << "nothing was printed"; },
                                     [&](const auto& run) { status = run->terminationStatus(); }});
    process->launch();
    EXPECT_TRUE(queue->runUntil([&] { return status.has_value(); }));
    EXPECT_EQ(status, 5);
    process.reset();
    gate.open();
    EXPECT_TRUE(eventually([&] { return std::filesystem::exists(ended); }));
}

}  // namespace
}  // namespace qelmo
