#pragma once

#include "search/SpotlightIndexer.h"

#include <QDBusArgument>
#include <QObject>
#include <QStringList>
#include <QVariantMap>

class ProfileManager;

// GNOME Shell's search of the desktop, answered from the invoice search index: typing in the
// overview lists matching invoices; choosing one opens it in the desktop program.
class SearchProvider : public QObject
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.gnome.Shell.SearchProvider2")
public:
    static constexpr const char* serviceName = "com.varnhelm.Ledra.SearchProvider";
    static constexpr const char* objectPath = "/com/varnhelm/Ledra/SearchProvider";

    // `desktopProgram` is started to open a result.
    SearchProvider(SpotlightIndexer& index, ProfileManager& profiles, QString desktopProgram,
                   QObject* parent = nullptr);

    // Registers the D-Bus type of GetResultMetas' answer; once per process.
    static void registerTypes();

public Q_SLOTS:
    QStringList GetInitialResultSet(const QStringList& terms);
    QStringList GetSubsearchResultSet(const QStringList& previousResults, const QStringList& terms);
    QList<QVariantMap> GetResultMetas(const QStringList& identifiers);
    void ActivateResult(const QString& identifier, const QStringList& terms, uint timestamp);
    void LaunchSearch(const QStringList& terms, uint timestamp);

Q_SIGNALS:
    // What was started to show a result or a search (for tests).
    void launched(const QStringList& arguments);

private:
    QStringList search(const QStringList& terms);

    SpotlightIndexer& m_index;
    ProfileManager& m_profiles;
    QString m_program;
    QHash<QString, SearchResult> m_lastResults;
};
