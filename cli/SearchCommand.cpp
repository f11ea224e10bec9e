#include "Commands.h"

#include "search/SpotlightIndexer.h"

#include <unistd.h>

using namespace Qt::Literals::StringLiterals;

namespace {

// The invoice search of all profiles, through the same index the desktop program keeps.
class SearchCommand : public Command
{
public:
    QString name() const override { return u"search"_s; }
    QString summary() const override
    {
        return u"Find invoices of all profiles by number, recipient, address, items, notes or amount."_s;
    }

protected:
    void configure(QCommandLineParser& parser) override
    {
        parser.addOption({u"json"_s, u"Machine-readable output."_s});
        parser.addOption({u"profile"_s, u"Only invoices of this profile."_s, u"NAME"_s});
        parser.addOption({u"limit"_s, u"At most this many results (default 20)."_s, u"N"_s, u"20"_s});
        parser.addOption({u"reindex"_s, u"Build the index again from the data folder."_s});
        parser.addPositionalArgument(
            u"query"_s,
            u"Words to find, in any order; a word may be the start of one (\"beck rech\"). Umlauts match "
            u"their ASCII forms, numbers and amounts match with or without separators."_s,
            u"QUERY..."_s);
    }

    int run(const QCommandLineParser& parser) override
    {
        const QString query = parser.positionalArguments().join(u' ');
        if (query.trimmed().isEmpty() && !parser.isSet(u"reindex"_s))
            return usageError(u"QUERY is missing"_s);
        bool limitOk = false;
        const int limit = parser.value(u"limit"_s).toInt(&limitOk);
        if (!limitOk || limit < 1)
            return usageError(u"--limit must be a positive number"_s);
        try {
            Workspace& data = workspace();
            std::optional<QUuid> profileId;
            if (parser.isSet(u"profile"_s)) {
                const Profile* profile = data.profiles().profileNamed(parser.value(u"profile"_s));
                if (!profile)
                    throw CliError(u"there is no profile \"%1\""_s.arg(parser.value(u"profile"_s)));
                profileId = profile->id;
            }
            // The index is a cache: brought up to date with what changed in the data folder first.
            SpotlightIndexer indexer;
            indexer.synchronize(data.profiles(), parser.isSet(u"reindex"_s));
            if (parser.isSet(u"reindex"_s)) {
                const qint64 items = indexer.count();
                err() << "Indexed " << items << " invoices in " << indexer.indexPath() << Qt::endl;
                if (query.trimmed().isEmpty())
                    return ExitCode::ok;
            }
            const QList<SearchResult> results = indexer.searchNow(query, profileId, limit);
            if (parser.isSet(u"json"_s))
                printJson(data, results);
            else
                printText(data, results);
            return results.isEmpty() ? ExitCode::failure : ExitCode::ok;
        } catch (const TaskError& error) {
            return fail(error.message());
        }
    }

private:
    static QString profileName(Workspace& data, const QUuid& id)
    {
        const Profile* profile = data.profiles().profile(id);
        return profile ? profile->displayName() : QString();
    }

    static void printText(Workspace& data, const QList<SearchResult>& results)
    {
        if (results.isEmpty()) {
            err() << "No invoices found." << Qt::endl;
            return;
        }
        // Highlights in bold on a terminal, between asterisks elsewhere.
        const bool terminal = ::isatty(STDOUT_FILENO);
        const QString open = terminal ? u"\x1b[1m"_s : u"*"_s;
        const QString close = terminal ? u"\x1b[0m"_s : u"*"_s;
        for (const SearchResult& result : results) {
            out() << result.title << "  [" << profileName(data, result.ref.profileId) << "]\n";
            out() << "  " << result.description << '\n';
            out() << "  " << result.snippetMarked(open, close).replace(u'\n', u" / "_s) << '\n';
            out() << "  " << result.ref.invoiceId.toString(QUuid::WithoutBraces).toUpper() << "\n\n";
        }
    }

    static void printJson(Workspace& data, const QList<SearchResult>& results)
    {
        JsonWriter w;
        w.beginArray();
        for (const SearchResult& result : results) {
            w.beginObject();
            w.field("id"_L1, result.ref.invoiceId.toString(QUuid::WithoutBraces).toUpper());
            w.field("profileId"_L1, result.ref.profileId.toString(QUuid::WithoutBraces).toUpper());
            w.field("profile"_L1, profileName(data, result.ref.profileId));
            w.field("identifier"_L1, result.ref.identifier());
            w.field("title"_L1, result.title);
            w.field("description"_L1, result.description);
            w.field("snippet"_L1, result.snippetMarked(u"["_s, u"]"_s));
            w.field("date"_L1, result.date.toString(Qt::ISODate));
            w.field("rank"_L1, result.rank);
            w.endObject();
        }
        w.endArray();
        out() << w.take() << Qt::flush;
    }
};

} // namespace

std::unique_ptr<Command> makeSearchCommand()
{
    return std::make_unique<SearchCommand>();
}
