#pragma once

#include "support/CliRunner.h"

#include <QProcessEnvironment>
#include <QTemporaryDir>

#include <gtest/gtest.h>

// The `ledra` command in a home of its own: data, settings and the mail add-on's folder in a
// temporary directory, a German region, the clock pinned to 14 March 2025 in Berlin.
class CliHome : public ::testing::Test
{
protected:
    CliHome()
    {
        m_environment = QProcessEnvironment::systemEnvironment();
        m_environment.insert(u"XDG_DATA_HOME"_qs, m_home.filePath(u"data"_qs));
        m_environment.insert(u"XDG_CONFIG_HOME"_qs, m_home.filePath(u"config"_qs));
        m_environment.insert(u"XDG_CACHE_HOME"_qs, m_home.filePath(u"cache"_qs));
        m_environment.insert(u"LEDRA_REGION"_qs, u"DE"_qs);
        m_environment.insert(u"LEDRA_NOW"_qs, u"2025-03-14T09:30:00+01:00"_qs);
        m_environment.insert(u"LEDRA_TIMEZONE"_qs, u"Europe/Berlin"_qs);
    }

#ifdef LEDRA_CLI
    CliResult ledra(const QStringList& arguments)
    {
        return runLedra(QStringLiteral(LEDRA_CLI), arguments, m_environment);
    }
#endif

    QString dataFolder() const
    {
        return m_home.filePath(u"data/Ledra/Data"_qs);
    }
    QString invoicesFolder() const
    {
        return dataFolder() + u"/Default/Invoices"_qs;
    }

    QTemporaryDir m_home;
    QProcessEnvironment m_environment;
};
