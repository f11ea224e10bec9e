#include "storage/RateLimitedSaver.h"

#include <algorithm>

RateLimitedSaver::RateLimitedSaver(std::chrono::milliseconds interval, QObject* parent)
    : QObject(parent), m_interval(interval)
{
    m_workItem.setSingleShot(true);
    m_workItem.setTimerType(Qt::PreciseTimer);
    connect(&m_workItem, &QTimer::timeout, this, &RateLimitedSaver::runScheduled);
}

void RateLimitedSaver::request(std::function<void()> action)
{
    m_latestAction = std::move(action);
    if (!m_lastFire.isValid() || std::chrono::milliseconds(m_lastFire.elapsed()) >= m_interval) {
        m_hasPendingRequest = false;
        m_lastFire.start();
        m_latestAction();
        return;
    }
    m_hasPendingRequest = true;
    if (m_workItem.isActive())
        return; // the scheduled run will take the latest action
    const auto elapsed = std::chrono::milliseconds(m_lastFire.elapsed());
    m_workItem.start(std::max(std::chrono::milliseconds(0), m_interval - elapsed));
}

void RateLimitedSaver::runScheduled()
{
    if (!m_hasPendingRequest)
        return;
    m_hasPendingRequest = false;
    m_lastFire.start();
    if (m_latestAction)
        m_latestAction();
}

void RateLimitedSaver::flush()
{
    m_workItem.stop();
    runScheduled();
}
