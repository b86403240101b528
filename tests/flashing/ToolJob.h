#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "flashing/ToolProcess.h"
#include "platform/ThisProcess.h"
#include "tests/support/DescriptorLimit.h"
#include "tests/support/InMemoryMainQueue.h"
#include "tests/support/ProcessResources.h"

namespace qelmo {

/// One job whose text is taken on the reader thread, so that no queue of chunks hides what the reader needs.
class ToolJob {
public:
    explicit ToolJob(std::string executable, std::vector<std::string> arguments = {})
        : process_(setUpToolProcess({std::move(executable), std::move(arguments), processEnvironment()},
                                    queue_,
                                    {[this](const std::string& text) { onText(text); },
                                     [this](const auto& ended) { status = ended->terminationStatus(); }})) {}
    ToolJob(const ToolJob&) = delete;
    ToolJob& operator=(const ToolJob&) = delete;
    ~ToolJob() {
        process_->clearOutputHandler();
        release();
        EXPECT_TRUE(before_.areBack()) << "a thread or a descriptor was left behind";
        // The detached reader's last text is complete before its members go.
        const std::lock_guard lock(mutex_);
    }

    /// The reason why it could not be launched, or "". The descriptors are back when the reason is looked at:
    /// a sanitizer needs some for that.
    [[nodiscard]] std::string launch(std::optional<std::size_t> descriptorsLeft = {}) const {
        try {
            std::optional<DescriptorLimit> limit;
            if (descriptorsLeft) limit.emplace(*descriptorsLeft);
            process_->launchSupervised();
        } catch (const std::system_error& error) {
            return error.what();
        }
        return "";
    }
    [[nodiscard]] bool waitForEnd() const {
        return queue_->runUntil([this] { return status.has_value(); });
    }
    /// Runs to the end; the exit status or the signal, or nothing.
    [[nodiscard]] std::optional<int> run() const {
        if (launch().empty()) (void)waitForEnd();
        return status;
    }
    [[nodiscard]] bool waitForText(std::string_view expected) {
        return eventually([&] {
            const std::lock_guard lock(mutex_);
            return text_ == expected;
        });
    }
    [[nodiscard]] bool waitForThreads(std::size_t count) const {
        return eventually([&] { return ProcessResources::now().threads == before_.threads + count; });
    }
    /// The window forgets a job once it has ended.
    void release() { process_ = ChildProcess::create("", {}); }

    std::optional<int> status;
    std::function<void(const std::string& text)> onText = [this](const std::string& text) {
        const std::lock_guard lock(mutex_);
        text_ += text;
    };

private:
    const ProcessResources before_ = ProcessResources::now();
    const std::shared_ptr<InMemoryMainQueue> queue_ = std::make_shared<InMemoryMainQueue>();
    std::shared_ptr<ChildProcess> process_;
    std::mutex mutex_;
    std::string text_;
};

}  // namespace qelmo
