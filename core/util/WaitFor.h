#pragma once

#include <QEventLoop>
#include <QTimer>

#include <optional>
#include <utility>

// For callers without an event loop of their own (the command line, tests): starts an
// operation that reports through a callback, runs a local event loop until it reports and
// returns the report. With a timeout in milliseconds: nothing when no report came in time.
template <typename T, typename Start>
std::optional<T> waitForReport(Start&& start, int timeoutMs = -1)
{
    std::optional<T> result;
    QEventLoop loop;
    if (timeoutMs >= 0)
        QTimer::singleShot(timeoutMs, &loop, &QEventLoop::quit);
    start([&](T value) {
        result.emplace(std::move(value));
        loop.quit();
    });
    if (!result)
        loop.exec();
    return result;
}
