#pragma once

#include "model/Invoice.h"
#include "model/Profile.h"

#include <QDateTime>
#include <QHash>
#include <QList>
#include <QLoggingCategory>
#include <QString>
#include <QStringList>
#include <QUuid>

#include <optional>
#include <stdexcept>

Q_DECLARE_LOGGING_CATEGORY(lcSearch)

struct sqlite3;

// The searchable form of one invoice: what a search shows and what it looks through.
struct SpotlightItem
{
    QString uniqueIdentifier; // profile UUID "/" invoice UUID
    QString domainIdentifier; // "invoices." profile UUID: all items of a profile at once
    QString title;
    QString description;
    QString fullText;
    QStringList keywords;
    QDateTime contentDate;

    // Built on the thread that owns the records, in the given language.
    static SpotlightItem of(const Invoice& invoice, const Profile& profile, Language language);
    static QString uniqueIdentifierOf(const QUuid& profileId, const QUuid& invoiceId);
    static QString domainIdentifierOf(const QUuid& profileId);
};

// A chosen search result back as the profile and invoice to open.
struct SpotlightInvoiceRef
{
    QUuid profileId;
    QUuid invoiceId;

    // "profile/invoice" with two valid UUIDs, else nothing.
    static std::optional<SpotlightInvoiceRef> parse(QStringView identifier);
    QString identifier() const { return SpotlightItem::uniqueIdentifierOf(profileId, invoiceId); }
};

struct SearchResult
{
    SpotlightInvoiceRef ref;
    QString title;
    QString description;
    // A piece of the matching text; the matched words between highlightStart and highlightEnd.
    QString snippet;
    QDateTime date;
    double rank = 0; // BM25, lower is better

    static constexpr QChar highlightStart = QChar(0x2);
    static constexpr QChar highlightEnd = QChar(0x3);
    // The snippet with its highlights as HTML bold, the rest escaped.
    QString snippetHtml() const;
    // The snippet with the highlights marked by these strings.
    QString snippetMarked(const QString& open, const QString& close) const;
};

class SearchIndexError : public std::runtime_error
{
public:
    explicit SearchIndexError(const QString& message) : std::runtime_error(message.toStdString()) {}
    QString message() const { return QString::fromUtf8(what()); }
};

// The invoice search index: a SQLite FTS5 database in the cache folder. It is a cache of the
// data folder and never the only copy of anything: a file that is missing, of another layout
// or damaged is replaced by an empty one (isNew()), which the caller fills from the data
// folder. Not thread-safe; one thread owns an instance.
class SearchIndex
{
public:
    // "search-index.sqlite" in the application's cache location.
    static QString defaultPath();

    explicit SearchIndex(QString path);
    ~SearchIndex();
    SearchIndex(const SearchIndex&) = delete;
    SearchIndex& operator=(const SearchIndex&) = delete;

    // Made empty just now: the file was missing, of another layout or unreadable.
    bool isNew() const { return m_new; }
    QString path() const { return m_path; }

    // Adds the item or replaces the one with its unique identifier. `file` and `stamp` name
    // the record file it came from, so that later runs can tell what changed on disk.
    void upsert(const SpotlightItem& item, const QString& file, qint64 stamp);
    void remove(const QString& uniqueIdentifier);
    void removeDomain(const QString& domainIdentifier);
    void clear();
    // The record files of a domain as indexed: file name → (unique identifier, stamp).
    QHash<QString, std::pair<QString, qint64>> files(const QString& domainIdentifier) const;
    QStringList domains() const;
    qint64 count() const;

    // A value kept beside the items (the language the texts were written in).
    QString meta(const QString& key) const;
    void setMeta(const QString& key, const QString& value);

    // Many changes as one write: much faster, and all or nothing.
    void begin();
    void commit();
    // Undoes what begin() started; never throws.
    void rollback() noexcept;

    // Ranked results for what a user typed: every word must match, as a prefix, in any order;
    // umlauts match their ASCII forms ("Müller", "Mueller"), numbers and amounts match with any
    // separators ("2025-007", "2025007"; "1533,44", "1533.44"). Empty for a query without words.
    QList<SearchResult> search(const QString& query, const std::optional<QUuid>& profileId = std::nullopt,
                               int limit = 50) const;
    // The FTS5 expression of a query; empty when it has no words.
    static QString matchExpression(const QString& query);

private:
    void open(bool recreate);
    void exec(const char* sql) const;
    QString error() const;

    QString m_path;
    sqlite3* m_db = nullptr;
    bool m_new = false;
};
