#pragma once

#include "storage/InvoiceManager.h"
#include "storage/ProfileManager.h"
#include "support/TestSupport.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QSettings>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <memory>

// A data home of its own per test: settings and data folder in a temporary directory, the
// clock pinned to 14 March 2025 in Berlin.
class StorageFixture : public ::testing::Test
{
protected:
    StorageFixture()
        : m_clock(TestSupport::berlin(QStringLiteral("2025-03-14T09:30:00"))),
          m_settings(m_home.filePath(QStringLiteral("settings.ini")), QSettings::IniFormat)
    {}

    QString dataFolder() const { return m_home.filePath(QStringLiteral("Data")); }

    ProfileManager& profiles()
    {
        if (!m_profiles) {
            m_profiles =
                std::make_unique<ProfileManager>(m_settings, dataFolder(), Country{QStringLiteral("DE")});
            m_profiles->load();
        }
        return *m_profiles;
    }

    InvoiceManager& invoices()
    {
        if (!m_invoices) {
            m_invoices = std::make_unique<InvoiceManager>(profiles());
            m_invoices->loadInvoices();
        }
        return *m_invoices;
    }

    QString invoicesFolder() { return *invoices().invoicesFolder(); }

    // Runs the event loop until the condition holds or the time is up.
    template <class Condition>
    static bool waitFor(Condition condition, int milliseconds = 3000)
    {
        QDeadlineTimer deadline(milliseconds);
        while (!condition()) {
            if (deadline.hasExpired())
                return false;
            QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
        }
        return true;
    }

    static void spin(int milliseconds)
    {
        QDeadlineTimer deadline(milliseconds);
        while (!deadline.hasExpired())
            QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
    }

    QTemporaryDir m_home;
    ScopedClock m_clock;
    QSettings m_settings;
    std::unique_ptr<ProfileManager> m_profiles;
    std::unique_ptr<InvoiceManager> m_invoices;
};
