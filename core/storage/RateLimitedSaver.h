#pragma once

#include <QElapsedTimer>
#include <QObject>
#include <QTimer>

#include <chrono>
#include <functional>

// Saves while the user types without writing more than once per interval: the first request
// runs at once, later ones within the interval merge into one run at its end, and the last
// request is never lost. Destroying the saver drops a pending run.
class RateLimitedSaver : public QObject
{
    Q_OBJECT
public:
    explicit RateLimitedSaver(std::chrono::milliseconds interval = std::chrono::seconds(1),
                              QObject* parent = nullptr);

    void request(std::function<void()> action);
    bool hasPendingRequest() const { return m_hasPendingRequest; }
    // Runs a pending request now (before the window closes or another record opens).
    void flush();

private:
    void runScheduled();

    std::chrono::milliseconds m_interval;
    QElapsedTimer m_lastFire; // invalid until the first run
    QTimer m_workItem;
    bool m_hasPendingRequest = false;
    std::function<void()> m_latestAction;
};
