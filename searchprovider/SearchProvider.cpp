#include "SearchProvider.h"

#include "storage/ProfileManager.h"

#include <QDBusMetaType>
#include <QProcess>

using namespace Qt::Literals::StringLiterals;

namespace {

// The shell shows a handful; more would only cost time while the user types.
constexpr int resultLimit = 20;

} // namespace

SearchProvider::SearchProvider(SpotlightIndexer& index, ProfileManager& profiles, QString desktopProgram,
                               QObject* parent)
    : QObject(parent), m_index(index), m_profiles(profiles), m_program(std::move(desktopProgram))
{}

void SearchProvider::registerTypes()
{
    qDBusRegisterMetaType<QList<QVariantMap>>();
}

QStringList SearchProvider::search(const QStringList& terms)
{
    // The data folder may have changed since the last search (the desktop program, `ledra`).
    m_index.synchronize(m_profiles);
    QStringList identifiers;
    m_lastResults.clear();
    for (const SearchResult& result : m_index.searchNow(terms.join(u' '), std::nullopt, resultLimit)) {
        const QString identifier = result.ref.identifier();
        identifiers.append(identifier);
        m_lastResults.insert(identifier, result);
    }
    return identifiers;
}

QStringList SearchProvider::GetInitialResultSet(const QStringList& terms)
{
    return search(terms);
}

QStringList SearchProvider::GetSubsearchResultSet(const QStringList&, const QStringList& terms)
{
    // A fresh query is fast enough and ranks the narrowed results anew.
    return search(terms);
}

QList<QVariantMap> SearchProvider::GetResultMetas(const QStringList& identifiers)
{
    QList<QVariantMap> metas;
    for (const QString& identifier : identifiers) {
        const auto found = m_lastResults.constFind(identifier);
        if (found == m_lastResults.constEnd())
            continue;
        metas.append({{u"id"_s, identifier},
                      {u"name"_s, found->title},
                      {u"description"_s, found->description},
                      {u"gicon"_s, u"com.varnhelm.Ledra"_s}});
    }
    return metas;
}

void SearchProvider::ActivateResult(const QString& identifier, const QStringList&, uint)
{
    if (!SpotlightInvoiceRef::parse(identifier))
        return;
    const QStringList arguments{u"--show"_s, identifier};
    QProcess::startDetached(m_program, arguments);
    Q_EMIT launched(arguments);
}

void SearchProvider::LaunchSearch(const QStringList&, uint)
{
    QProcess::startDetached(m_program, {});
    Q_EMIT launched({});
}
