#include "search/SearchIndex.h"

#include "calc/Totals.h"
#include "l10n/CodeNames.h"
#include "l10n/Strings.h"
#include "numbering/NumberFormat.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QStandardPaths>

#include <sqlite3.h>

Q_LOGGING_CATEGORY(lcSearch, "ledra.search", QtInfoMsg)

using namespace Qt::Literals::StringLiterals;

namespace {

// Bumped whenever the tables or the indexed texts change: an index of another layout is rebuilt.
constexpr int layoutVersion = 1;

QString recipientOf(const Invoice& invoice)
{
    const QString business = invoice.businessName.trimmed();
    return business.isEmpty() ? invoice.name.trimmed() : business;
}

// A number or amount as one word without separators: "2025-007" → "2025007".
QString compact(const QString& text)
{
    QString result;
    for (const QChar c : text)
        if (c.isLetterOrNumber())
            result.append(c.toLower());
    return result;
}

// One statement, finalised with its scope.
class Statement
{
public:
    Statement(sqlite3* db, const char* sql) : m_db(db)
    {
        if (sqlite3_prepare_v2(db, sql, -1, &m_statement, nullptr) != SQLITE_OK)
            throw SearchIndexError(QString::fromUtf8(sqlite3_errmsg(db)));
    }
    ~Statement() { sqlite3_finalize(m_statement); }
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;

    Statement& bind(int index, const QString& value)
    {
        const QByteArray utf8 = value.toUtf8();
        sqlite3_bind_text(m_statement, index, utf8.constData(), int(utf8.size()), SQLITE_TRANSIENT);
        return *this;
    }
    Statement& bind(int index, qint64 value)
    {
        sqlite3_bind_int64(m_statement, index, value);
        return *this;
    }
    Statement& bind(int index, double value)
    {
        sqlite3_bind_double(m_statement, index, value);
        return *this;
    }
    // True while there is a row.
    bool step()
    {
        const int result = sqlite3_step(m_statement);
        if (result == SQLITE_ROW)
            return true;
        if (result != SQLITE_DONE)
            throw SearchIndexError(QString::fromUtf8(sqlite3_errmsg(m_db)));
        return false;
    }
    QString text(int column) const
    {
        return QString::fromUtf8(reinterpret_cast<const char*>(sqlite3_column_text(m_statement, column)),
                                 sqlite3_column_bytes(m_statement, column));
    }
    qint64 integer(int column) const { return sqlite3_column_int64(m_statement, column); }
    double real(int column) const { return sqlite3_column_double(m_statement, column); }

private:
    sqlite3* m_db;
    sqlite3_stmt* m_statement = nullptr;
};

// The spellings a typed word may have in the texts: German umlauts as themselves or in their
// ASCII forms. (The tokenizer already folds other accents: "é" finds "e".)
QStringList spellings(const QString& word)
{
    static const QList<std::pair<QString, QString>> umlauts{
        {u"ä"_s, u"ae"_s}, {u"ö"_s, u"oe"_s}, {u"ü"_s, u"ue"_s}, {u"ß"_s, u"ss"_s}};
    QString ascii = word;
    QString german = word;
    for (const auto& [umlaut, replacement] : umlauts) {
        ascii.replace(umlaut, replacement);
        if (umlaut != u"ß")
            german.replace(replacement, umlaut);
    }
    QString sharp = word;
    sharp.replace(u"ss"_s, u"ß"_s);
    QStringList forms{word};
    for (const QString& form : {ascii, german, sharp})
        if (!forms.contains(form))
            forms.append(form);
    return forms;
}

// The tokens of a word as the tokenizer cuts them: runs of letters and digits.
QStringList tokens(const QString& word)
{
    QStringList parts;
    QString current;
    for (const QChar c : word) {
        if (c.isLetterOrNumber() || c.isMark()) {
            current.append(c);
        } else if (!current.isEmpty()) {
            parts.append(current);
            current.clear();
        }
    }
    if (!current.isEmpty())
        parts.append(current);
    return parts;
}

} // namespace

QString SpotlightItem::uniqueIdentifierOf(const QUuid& profileId, const QUuid& invoiceId)
{
    return profileId.toString(QUuid::WithoutBraces).toUpper() + u'/' +
           invoiceId.toString(QUuid::WithoutBraces).toUpper();
}

QString SpotlightItem::domainIdentifierOf(const QUuid& profileId)
{
    return u"invoices."_s + profileId.toString(QUuid::WithoutBraces).toUpper();
}

SpotlightItem SpotlightItem::of(const Invoice& invoice, const Profile& profile, Language language)
{
    SpotlightItem item;
    item.uniqueIdentifier = uniqueIdentifierOf(profile.id, invoice.id);
    item.domainIdentifier = domainIdentifierOf(profile.id);
    const QString number = NumberFormat::displayNumber(invoice, profile);
    const QString recipient = recipientOf(invoice);
    item.title =
        number + u" · "_s + (recipient.isEmpty() ? Strings::text(u"No recipient", language) : recipient);
    item.contentDate = invoice.date.toDateTime();

    const bool quote = invoice.type == InvoiceType::quote;
    const QString kind = labelText(quote ? InvoiceType::quote : InvoiceType::invoice, language);
    const double gross = Totals::grossTotal(invoice);
    const QString status = labelText(invoice.status, language);
    item.description = Strings::text(u"%1 %2 for %3.", language).arg(kind, number, recipient) + u' ' +
                       Strings::text(u"Total %1. Dated %2.", language)
                           .arg(Totals::formatMoney(gross, invoice.currency.code, language),
                                invoice.date.localDate().toString(u"yyyy-MM-dd"_s));
    if (!quote)
        item.description += u' ' + Strings::text(u"Status: %1.", language).arg(status);

    QStringList lines{item.title};
    const QString cityLine =
        (invoice.addressPostcode.trimmed() + u' ' + invoice.addressCity.trimmed()).trimmed();
    for (const QString& line : {invoice.addressLineOne.trimmed(), invoice.addressLineTwo.trimmed(), cityLine,
                                invoice.addressState.trimmed()})
        if (!line.isEmpty())
            lines.append(line);
    if (!invoice.addressCountry.code.isEmpty())
        lines.append(CodeNames::countryName(invoice.addressCountry, language));
    // The person as well, where the title names the business.
    if (!invoice.name.trimmed().isEmpty() && invoice.name.trimmed() != recipient)
        lines.append(invoice.name.trimmed());
    QStringList descriptions;
    for (const InvoiceItem& line : invoice.items)
        if (!line.item.trimmed().isEmpty())
            descriptions.append(line.item.trimmed());
    lines.append(Strings::text(u"Line items: ", language) + descriptions.join(u", "_s) + u'.');
    if (!invoice.note.trimmed().isEmpty())
        lines.append(invoice.note.trimmed());
    item.fullText = lines.join(u'\n');
    if (!quote)
        item.fullText += u" · "_s + status;

    // What people type that the texts do not hold as such: the number without separators, the
    // amount in plain digits, and the kind and status in both languages.
    item.keywords =
        QStringList{status, invoice.currency.code, compact(number), QString::number(gross, 'f', 2)};
    for (const Language other : {Language::english, Language::german}) {
        item.keywords.append(labelText(invoice.type, other));
        if (!quote)
            item.keywords.append(labelText(invoice.status, other));
    }
    item.keywords.removeDuplicates();
    return item;
}

std::optional<SpotlightInvoiceRef> SpotlightInvoiceRef::parse(QStringView identifier)
{
    const qsizetype slash = identifier.indexOf(u'/');
    if (slash < 0 || identifier.indexOf(u'/', slash + 1) >= 0)
        return std::nullopt;
    const QUuid profile = QUuid::fromString(identifier.left(slash));
    const QUuid invoice = QUuid::fromString(identifier.mid(slash + 1));
    if (profile.isNull() || invoice.isNull())
        return std::nullopt;
    return SpotlightInvoiceRef{profile, invoice};
}

QString SearchResult::snippetMarked(const QString& open, const QString& close) const
{
    QString text = snippet;
    text.replace(highlightStart, open);
    text.replace(highlightEnd, close);
    return text;
}

QString SearchResult::snippetHtml() const
{
    return snippet.toHtmlEscaped()
        .replace(highlightStart, u"<b>"_s)
        .replace(highlightEnd, u"</b>"_s)
        .replace(u'\n', u' ');
}

QString SearchIndex::defaultPath()
{
    return QStandardPaths::writableLocation(QStandardPaths::CacheLocation) + u"/search-index.sqlite"_s;
}

SearchIndex::SearchIndex(QString path) : m_path(std::move(path))
{
    try {
        open(false);
    } catch (const SearchIndexError& error) {
        // Damaged beyond reading: the data folder holds everything it had.
        qCWarning(lcSearch).noquote()
            << "Search index" << m_path << "is unusable, rebuilding it:" << error.message();
        try {
            open(true);
        } catch (const SearchIndexError&) {
            // No destructor runs for a constructor that throws.
            sqlite3_close(m_db);
            m_db = nullptr;
            throw;
        }
    }
}

SearchIndex::~SearchIndex()
{
    sqlite3_close(m_db);
}

void SearchIndex::open(bool recreate)
{
    if (m_db) {
        sqlite3_close(m_db);
        m_db = nullptr;
    }
    if (recreate) {
        for (const QString& suffix : {u""_s, u"-journal"_s, u"-wal"_s, u"-shm"_s})
            QFile::remove(m_path + suffix);
    }
    QDir().mkpath(QFileInfo(m_path).absolutePath());
    const bool existed = QFileInfo::exists(m_path);
    if (sqlite3_open_v2(QFile::encodeName(m_path).constData(), &m_db,
                        SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX,
                        nullptr) != SQLITE_OK) {
        // A failed open still hands back a handle (for its message), which must be closed.
        const QString reason = m_db ? error() : u"cannot open"_s;
        sqlite3_close(m_db);
        m_db = nullptr;
        throw SearchIndexError(reason);
    }
    sqlite3_busy_timeout(m_db, 2000);
    exec("PRAGMA journal_mode=WAL");
    exec("PRAGMA synchronous=NORMAL");

    int version = 0;
    {
        Statement statement(m_db, "PRAGMA user_version");
        if (statement.step())
            version = int(statement.integer(0));
    }
    if (existed && version == layoutVersion) {
        // A damaged file must not pass as an index: a quick check reads every page.
        Statement check(m_db, "PRAGMA quick_check");
        if (!check.step() || check.text(0) != u"ok")
            throw SearchIndexError(u"the database is damaged"_s);
        Statement fts(m_db, "INSERT INTO fts(fts) VALUES('integrity-check')");
        fts.step();
        m_new = false;
        return;
    }
    if (existed && version != layoutVersion && !recreate)
        return open(true);
    exec("DROP TABLE IF EXISTS items");
    exec("DROP TABLE IF EXISTS fts");
    exec("DROP TABLE IF EXISTS meta");
    exec("CREATE TABLE items(uid TEXT PRIMARY KEY, domain TEXT NOT NULL, file TEXT, stamp INTEGER, "
         "title TEXT, description TEXT, date REAL)");
    exec("CREATE INDEX items_domain ON items(domain)");
    exec("CREATE VIRTUAL TABLE fts USING fts5(title, description, fulltext, keywords, "
         "tokenize = 'unicode61 remove_diacritics 2')");
    exec("CREATE TABLE meta(key TEXT PRIMARY KEY, value TEXT)");
    exec(QByteArray("PRAGMA user_version=" + QByteArray::number(layoutVersion)).constData());
    m_new = true;
}

void SearchIndex::exec(const char* sql) const
{
    char* message = nullptr;
    if (sqlite3_exec(m_db, sql, nullptr, nullptr, &message) != SQLITE_OK) {
        const QString text = message ? QString::fromUtf8(message) : error();
        sqlite3_free(message);
        throw SearchIndexError(text);
    }
}

QString SearchIndex::error() const
{
    return QString::fromUtf8(sqlite3_errmsg(m_db));
}

void SearchIndex::begin()
{
    exec("BEGIN");
}

void SearchIndex::commit()
{
    exec("COMMIT");
}

void SearchIndex::rollback() noexcept
{
    sqlite3_exec(m_db, "ROLLBACK", nullptr, nullptr, nullptr);
}

void SearchIndex::upsert(const SpotlightItem& item, const QString& file, qint64 stamp)
{
    remove(item.uniqueIdentifier);
    Statement insert(m_db, "INSERT INTO items(uid, domain, file, stamp, title, description, date) "
                           "VALUES(?, ?, ?, ?, ?, ?, ?)");
    insert.bind(1, item.uniqueIdentifier)
        .bind(2, item.domainIdentifier)
        .bind(3, file)
        .bind(4, stamp)
        .bind(5, item.title)
        .bind(6, item.description)
        .bind(7, double(item.contentDate.toMSecsSinceEpoch()));
    insert.step();
    const qint64 row = sqlite3_last_insert_rowid(m_db);
    Statement text(m_db,
                   "INSERT INTO fts(rowid, title, description, fulltext, keywords) VALUES(?, ?, ?, ?, ?)");
    text.bind(1, row).bind(2, item.title).bind(3, item.description).bind(4, item.fullText);
    text.bind(5, item.keywords.join(u' '));
    text.step();
}

void SearchIndex::remove(const QString& uniqueIdentifier)
{
    Statement find(m_db, "SELECT rowid FROM items WHERE uid = ?");
    find.bind(1, uniqueIdentifier);
    if (!find.step())
        return;
    const qint64 row = find.integer(0);
    Statement(m_db, "DELETE FROM fts WHERE rowid = ?").bind(1, row).step();
    Statement(m_db, "DELETE FROM items WHERE rowid = ?").bind(1, row).step();
}

void SearchIndex::removeDomain(const QString& domainIdentifier)
{
    Statement(m_db, "DELETE FROM fts WHERE rowid IN (SELECT rowid FROM items WHERE domain = ?)")
        .bind(1, domainIdentifier)
        .step();
    Statement(m_db, "DELETE FROM items WHERE domain = ?").bind(1, domainIdentifier).step();
}

void SearchIndex::clear()
{
    exec("DELETE FROM fts");
    exec("DELETE FROM items");
}

QHash<QString, std::pair<QString, qint64>> SearchIndex::files(const QString& domainIdentifier) const
{
    QHash<QString, std::pair<QString, qint64>> result;
    Statement select(m_db, "SELECT file, uid, stamp FROM items WHERE domain = ?");
    select.bind(1, domainIdentifier);
    while (select.step())
        result.insert(select.text(0), {select.text(1), select.integer(2)});
    return result;
}

QStringList SearchIndex::domains() const
{
    QStringList result;
    Statement select(m_db, "SELECT DISTINCT domain FROM items");
    while (select.step())
        result.append(select.text(0));
    return result;
}

qint64 SearchIndex::count() const
{
    Statement select(m_db, "SELECT count(*) FROM items");
    return select.step() ? select.integer(0) : 0;
}

QString SearchIndex::meta(const QString& key) const
{
    Statement select(m_db, "SELECT value FROM meta WHERE key = ?");
    select.bind(1, key);
    return select.step() ? select.text(0) : QString();
}

void SearchIndex::setMeta(const QString& key, const QString& value)
{
    Statement(m_db, "INSERT OR REPLACE INTO meta(key, value) VALUES(?, ?)")
        .bind(1, key)
        .bind(2, value)
        .step();
}

QString SearchIndex::matchExpression(const QString& query)
{
    // Each typed word: its tokens as a phrase with the last one a prefix ("1533,44" is the
    // phrase "1533 44*"), in each of its spellings; all words must match.
    QStringList words;
    for (const QString& word : query.toLower().split(u' ', Qt::SkipEmptyParts)) {
        QStringList alternatives;
        for (const QString& spelling : spellings(word)) {
            const QStringList parts = tokens(spelling);
            if (!parts.isEmpty())
                alternatives.append(u"\""_s + parts.join(u' ') + u"\" *"_s);
        }
        alternatives.removeDuplicates();
        if (!alternatives.isEmpty())
            words.append(alternatives.size() == 1 ? alternatives.first()
                                                  : u"("_s + alternatives.join(u" OR "_s) + u')');
    }
    return words.join(u" AND "_s);
}

QList<SearchResult> SearchIndex::search(const QString& query, const std::optional<QUuid>& profileId,
                                        int limit) const
{
    QList<SearchResult> results;
    const QString expression = matchExpression(query);
    if (expression.isEmpty())
        return results;
    // Title and keywords weigh most: a hit in the number or the recipient is what one looks for.
    QByteArray sql = "SELECT items.uid, items.title, items.description, items.date, "
                     "snippet(fts, 2, char(2), char(3), '…', 12), bm25(fts, 10.0, 4.0, 1.0, 6.0) AS rank, "
                     "snippet(fts, 1, char(2), char(3), '…', 12) "
                     "FROM fts JOIN items ON items.rowid = fts.rowid WHERE fts MATCH ?";
    if (profileId)
        sql += " AND items.domain = ?";
    sql += " ORDER BY rank LIMIT ?";
    Statement select(m_db, sql.constData());
    int index = 1;
    select.bind(index++, expression);
    if (profileId)
        select.bind(index++, SpotlightItem::domainIdentifierOf(*profileId));
    select.bind(index, qint64(limit));
    while (select.step()) {
        const auto ref = SpotlightInvoiceRef::parse(select.text(0));
        if (!ref)
            continue;
        // The address, items and note where the words are found there; else the description
        // (the amount, the status). The keywords are for finding, not for showing.
        QString snippet = select.text(4);
        if (!snippet.contains(SearchResult::highlightStart) &&
            select.text(6).contains(SearchResult::highlightStart))
            snippet = select.text(6);
        results.append({*ref, select.text(1), select.text(2), snippet,
                        QDateTime::fromMSecsSinceEpoch(qint64(select.real(3))), select.real(5)});
    }
    return results;
}
