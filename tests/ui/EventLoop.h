#pragma once

#include <QDeadlineTimer>
#include <QEventLoop>
#include <QTimer>

#include "tests/support/Waiting.h"

namespace qelmo {

/// Runs the event loop until `condition` holds; false when it did not within the limit.
template <typename Condition>
[[nodiscard]] bool waitUntil(Condition condition) {
    if (condition()) return true;
    QEventLoop loop;
    QTimer look;
    const QDeadlineTimer limit(waitingLimit);
    bool holds = false;
    QObject::connect(&look, &QTimer::timeout, &loop, [&] {
        holds = condition();
        if (holds || limit.hasExpired()) loop.quit();
    });
    look.start(2);
    loop.exec();
    return holds;
}

}  // namespace qelmo
