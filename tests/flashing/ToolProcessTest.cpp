#include "flashing/ToolProcess.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <system_error>
#include <thread>

#include "flashing/FlashCommand.h"
#include "platform/ThisProcess.h"
#include "tests/support/Fifo.h"
#include "tests/support/InMemoryMainQueue.h"
#include "tests/support/ProcessResources.h"
#include "tests/support/ScopedEnvironment.h"
#include "tests/support/Waiting.h"

namespace qelmo {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

/// One run of a python script as the window runs the tool: text and completion come through the main queue.
class ToolRun {
public:
    explicit ToolRun(const std::string& script, std::vector<std::string> arguments = {},
                     const std::string& executable = pythonPath) {
        arguments.insert(arguments.begin(), {"-c", script});
        process =
            setUpToolProcess({executable, std::move(arguments), processEnvironment()}, queue, handlers());
    }
    ToolRun(const ToolRun&) = delete;
    ToolRun& operator=(const ToolRun&) = delete;
    ~ToolRun() {
        process->clearOutputHandler();
        EXPECT_TRUE(waitForThreads()) << "a thread was left behind";
    }

    [[nodiscard]] bool runToCompletion() {
        process->launchSupervised();
        return queue->runUntil([this] { return completions > 0; });
    }
    [[nodiscard]] std::string logText() const {
        std::string text;
        for (const std::string& chunk : log) text += chunk;
        return text;
    }
    [[nodiscard]] bool waitForThreads() const {
        return eventually([this] { return ProcessResources::now().threads <= before_.threads; });
    }

    const std::shared_ptr<InMemoryMainQueue> queue = std::make_shared<InMemoryMainQueue>();
    std::shared_ptr<ChildProcess> process;
    std::function<void()> onChunk = [] {};  ///< on the reader thread, before the chunk is posted
    // The main thread's.
    std::vector<std::string> log;
    int completions = 0;
    int status = -1;
    std::string logAtCompletion;

private:
    ToolProcessHandlers handlers() {
        return {[this](const std::string& text) {
                    onChunk();
                    queue->post([this, text] { log.push_back(text); });
                },
                [this](const std::shared_ptr<ChildProcess>& ended) {
                    EXPECT_EQ(ended, process);
                    ++completions;
                    status = ended->terminationStatus();
                    logAtCompletion = logText();
                }};
    }

    const ProcessResources before_ = ProcessResources::now();
};

TEST(LogText, MakesALineOfEachRedraw) {
    EXPECT_EQ(logTextOfChunk("Writing 10%\rWriting 20%\r"), "Writing 10%\nWriting 20%\n");
    EXPECT_EQ(logTextOfChunk("a\r\nb\n\r"), "a\n\nb\n\n");
}

TEST(LogText, ReplacesBothPartsOfACharacterThatIsSplitAcrossChunks) {
    EXPECT_EQ(logTextOfChunk("ab\xE2\x82"), "ab\uFFFD");
    EXPECT_EQ(logTextOfChunk("\xAC"
                             "cd"),
              "\uFFFDcd");
}

TEST(LogText, ChangesNothingElse) {
    EXPECT_EQ(logTextOfChunk(""), "");
    EXPECT_EQ(logTextOfChunk("\t\x1B[1m <b> & \u00E9 no line end"), "\t\x1B[1m <b> & \u00E9 no line end");
}

TEST(ToolEnvironment, AddsTheVariableThatMakesOutputUnbuffered) {
    EXPECT_THAT(toolEnvironment({"A=1", "B="}), ElementsAre("A=1", "B=", "PYTHONUNBUFFERED=1"));
}

TEST(ToolEnvironment, ReplacesTheVariableWhateverItsValueAndNoSimilarOne) {
    for (const char* before : {"PYTHONUNBUFFERED=", "PYTHONUNBUFFERED=0", "PYTHONUNBUFFERED=1"})
        EXPECT_THAT(toolEnvironment({before, "PYTHONUNBUFFERED2=x", "XPYTHONUNBUFFERED=y", before}),
                    ElementsAre("PYTHONUNBUFFERED2=x", "XPYTHONUNBUFFERED=y", "PYTHONUNBUFFERED=1"));
}

TEST(ToolProcess, GivesTheToolItsOwnEnvironmentWithUnbufferedOutput) {
    const ScopedEnvironment unbuffered("PYTHONUNBUFFERED", "no");
    const ScopedEnvironment other("QELMO_TEST_VARIABLE", "a=b \u00E9");
    std::string expected;
    for (const std::string& entry : toolEnvironment(processEnvironment())) expected += entry + "\n";
    const Fifo gate;
    ToolRun run(
        "import os, sys\n"
        "os.write(1, open('/proc/self/environ', 'rb').read().replace(b'\\0', b'\\n') + b'end of list')\n"
        "open(sys.argv[1]).read()",
        {gate.path()});
    run.process->launchSupervised();
    ASSERT_TRUE(
        run.queue->runUntil([&] { return run.logText().find("\nend of list") != std::string::npos; }));
    EXPECT_EQ(run.logText(), expected + "end of list");
    EXPECT_THAT(run.logText(), testing::HasSubstr("\nPYTHONUNBUFFERED=1\n"));
    gate.open();
    EXPECT_TRUE(run.queue->runUntil([&] { return run.completions > 0; }));
}

TEST(ToolProcess, GivesTheInterpreterNoArgumentOfItsOwn) {
    const std::string script =
        "import os, sys; os.write(1, open('/proc/self/cmdline', 'rb').read()); open(sys.argv[1]).read()";
    const Fifo gate;
    ToolRun run(script, {gate.path()});
    std::string expected;
    for (const std::string& argument : {std::string(pythonPath), std::string("-c"), script, gate.path()})
        expected += argument + '\0';
    run.process->launchSupervised();
    EXPECT_TRUE(run.queue->runUntil([&] { return run.logText().size() >= expected.size(); }));
    EXPECT_EQ(run.logText(), expected);
    gate.open();
    EXPECT_TRUE(run.queue->runUntil([&] { return run.completions > 0; }));
}

TEST(ToolProcess, ShowsOutputWhileTheToolRunsWithoutWaitingForWholeLines) {
    const Fifo gate;
    ToolRun run("import sys; print('Writing', end=''); open(sys.argv[1]).read()", {gate.path()});
    run.process->launchSupervised();
    EXPECT_TRUE(run.queue->runUntil([&] { return run.logText() == "Writing"; }));
    EXPECT_EQ(run.completions, 0);
    gate.open();
    EXPECT_TRUE(run.queue->runUntil([&] { return run.completions > 0; }));
}

TEST(ToolProcess, ShowsErrorsLikeOutputInTheOrderWritten) {
    const Fifo gate;
    ToolRun run(
        "import sys\n"
        "print('one'); print('two', file=sys.stderr); print('three'); print('four', file=sys.stderr)\n"
        "open(sys.argv[1]).read()",
        {gate.path()});
    run.process->launchSupervised();
    EXPECT_TRUE(run.queue->runUntil([&] { return run.logText() == "one\ntwo\nthree\nfour\n"; }));
    gate.open();
    EXPECT_TRUE(run.queue->runUntil([&] { return run.completions > 0; }));
}

// fault: a character is split across two chunks of the tool's output
TEST(ToolProcess, DecodesEachChunkOnItsOwn) {
    const Fifo gate;
    const Fifo end;
    ToolRun run(
        "import os, sys\n"
        "os.write(1, b'ab\\xE2\\x82'); open(sys.argv[1]).read(); os.write(1, b'\\xACcd')\n"
        "open(sys.argv[2]).read()",
        {gate.path(), end.path()});
    run.process->launchSupervised();
    ASSERT_TRUE(run.queue->runUntil([&] { return !run.log.empty(); }));
    gate.open();
    ASSERT_TRUE(run.queue->runUntil([&] { return run.log.size() == 2; }));
    EXPECT_THAT(run.log, ElementsAre("ab\uFFFD", "\uFFFDcd"));
    end.open();
    EXPECT_TRUE(run.queue->runUntil([&] { return run.completions > 0; }));
}

// fault: the tool prints nothing
TEST(ToolProcess, AddsNothingForAnEmptyRead) {
    ToolRun run("pass");
    ASSERT_TRUE(run.runToCompletion());
    ASSERT_TRUE(run.waitForThreads());
    run.queue->runAll();
    EXPECT_THAT(run.log, IsEmpty());
}

TEST(ToolProcess, CompletesExactlyOnceAfterTheChunksBeforeIt) {
    const Fifo gate;
    ToolRun run("import os, sys; os.write(1, b'all of it\\n'); open(sys.argv[1]).read(); sys.exit(2)",
                {gate.path()});
    Event delivered;
    run.onChunk = [&] { delivered.happen(); };
    run.process->launchSupervised();
    ASSERT_TRUE(delivered.wait());
    ASSERT_TRUE(eventually([&] { return !run.queue->isEmpty(); }));
    gate.open();
    // Nothing of the queue has run so far: the order is the queue's.
    ASSERT_TRUE(run.queue->runUntil([&] { return run.completions > 0; }));
    ASSERT_TRUE(run.waitForThreads());
    run.queue->runAll();
    EXPECT_EQ(run.completions, 1);
    EXPECT_EQ(run.status, 2);
    EXPECT_EQ(run.logAtCompletion, "all of it\n");
}

// fault: the tool is killed
TEST(ToolProcess, ReportsSuccessAndADeathBySignalApart) {
    ToolRun success("pass");
    ASSERT_TRUE(success.runToCompletion());
    EXPECT_EQ(success.status, 0);
    ToolRun killed("import os, signal; os.kill(os.getpid(), signal.SIGKILL)");
    ASSERT_TRUE(killed.runToCompletion());
    EXPECT_EQ(killed.status, SIGKILL);
}

// fault: the tool ends faster than its output is read
TEST(ToolProcess, DoesNotShowWhatIsStillInThePipeWhenTheToolHasEnded) {
    const Fifo gate;
    ToolRun run("import os, sys; os.write(1, b'first\\n'); open(sys.argv[1]).read(); print('second')",
                {gate.path()});
    Event begun;
    Event release;
    run.onChunk = [&] {
        begun.happen();
        EXPECT_TRUE(release.wait());
    };
    run.process->launchSupervised();
    ASSERT_TRUE(begun.wait());
    gate.open();
    // The completion step comes first, because the reader is still busy with the first chunk.
    ASSERT_TRUE(run.queue->runUntil([&] { return run.completions > 0; }));
    EXPECT_EQ(run.logAtCompletion, "");
    release.happen();
    ASSERT_TRUE(run.waitForThreads());
    run.queue->runAll();
    EXPECT_EQ(run.logText(), "first\n");
}

// fault: the tool leaves a process behind that keeps the pipe open
TEST(ToolProcess, EndsWithTheToolEvenWhenAGrandchildKeepsThePipeOpen) {
    const Fifo grandchildsEnd;
    ToolRun run(
        "import os, subprocess, sys\n"
        "subprocess.Popen(['/bin/sh', '-c', 'read line <\"$0\"', sys.argv[1]])\n"
        "os._exit(5)",
        {grandchildsEnd.path()});
    ASSERT_TRUE(run.runToCompletion());
    EXPECT_EQ(run.status, 5);
    EXPECT_TRUE(run.waitForThreads()) << "the reader still waits for the grandchild";
    grandchildsEnd.open();
}

/// Asks, as soon as something is posted, whether the reader's thread has ended.
class QueueThatWaitsForTheReader : public InMemoryMainQueue {
public:
    void post(Task task) override {
        readerHasEnded =
            eventually([this] { return ProcessResources::now().threads == before_.threads + 1; });
        InMemoryMainQueue::post(std::move(task));
    }
    bool readerHasEnded = false;

private:
    const ProcessResources before_ = ProcessResources::now();
};

TEST(ToolProcess, ReadsNothingMoreOnceItsEndIsPosted) {
    const Fifo grandchildsEnd;
    const auto queue = std::make_shared<QueueThatWaitsForTheReader>();
    bool completed = false;
    setUpToolProcess(
        {"/bin/sh", {"-c", R"({ read line <"$0"; } &)", grandchildsEnd.path()}, processEnvironment()}, queue,
        {[](const std::string&) {}, [&](const auto&) { completed = true; }})
        ->launchSupervised();
    EXPECT_TRUE(queue->runUntil([&] { return completed; }));
    EXPECT_TRUE(queue->readerHasEnded);
    grandchildsEnd.open();
}

// fault: the interpreter is missing
// seen: "start /nonexistent/python3: No such file or directory"
TEST(ToolProcess, NeverCompletesWhenItCannotBeLaunched) {
    ToolRun run("pass", {}, "/nonexistent/python3");
    try {
        run.process->launchSupervised();
        FAIL() << "launched";
    } catch (const std::system_error& error) {
        EXPECT_STREQ(error.what(), "start /nonexistent/python3: No such file or directory");
    }
    run.process->clearOutputHandler();
    ASSERT_TRUE(run.waitForThreads());
    EXPECT_TRUE(run.queue->isEmpty());
}

// fault: the window is gone before the tool has ended
TEST(ToolProcess, DropsTextAndCompletionWhenWhatTheyWereForIsGone) {
    const Fifo gate;
    const auto before = ProcessResources::now();
    const auto queue = std::make_shared<InMemoryMainQueue>();
    auto window = std::make_shared<std::string>();
    const std::weak_ptr<std::string> weak = window;
    int completed = 0;
    setUpToolProcess({pythonPath,
                      {"-c", "import sys; open(sys.argv[1]).read(); print('text')", gate.path()},
                      processEnvironment()},
                     queue,
                     {[=](const std::string& text) {
                          queue->post([=] {
                              if (const auto alive = weak.lock()) *alive += text;
                          });
                      },
                      [weak, &completed](const auto&) {
                          ++completed;
                          EXPECT_TRUE(weak.expired());
                      }})
        ->launchSupervised();
    window.reset();
    gate.open();
    EXPECT_TRUE(queue->runUntil([&] { return completed > 0; }));
    EXPECT_TRUE(before.areBack());
    queue->runAll();
    EXPECT_EQ(completed, 1);
}

}  // namespace
}  // namespace qelmo
