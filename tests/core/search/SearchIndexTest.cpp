#include "search/SpotlightIndexer.h"

#include "model/InvoiceJson.h"
#include "support/StorageFixture.h"
#include "util/Files.h"

#include <QDir>
#include <QFile>
#include <QSignalSpy>

using namespace Qt::Literals::StringLiterals;

namespace {

QStringList titles(const QList<SearchResult>& results)
{
    QStringList list;
    for (const SearchResult& result : results)
        list.append(result.title);
    return list;
}

} // namespace

class SearchIndexTest : public StorageFixture
{
protected:
    QString indexPath() const { return m_home.filePath(u"cache/search-index.sqlite"_s); }

    Invoice saved(const QString& business, const QString& name, const QString& item, double price,
                  Status status = Status::sent, const QString& note = {})
    {
        Invoice invoice = invoices().createInvoice();
        invoice.businessName = business;
        invoice.name = name;
        invoice.items = {TestSupport::line(1, price, 19)};
        invoice.items[0].item = item;
        invoice.status = status;
        invoice.note = note;
        EXPECT_FALSE(invoices().saveInvoice(invoice));
        return invoice;
    }

    // A few invoices of the active profile, indexed through the stores.
    SpotlightIndexer& populated()
    {
        saved(u"Becker & Söhne GmbH"_s, u"Jana Becker"_s, u"Logo design"_s, 1288.6); // 1533,43 gross
        saved(u""_s, u"Thomas Müller"_s, u"Hosting"_s, 120);
        saved(u"Mueller Bau"_s, u""_s, u"Website relaunch"_s, 900);
        saved(u"Nordlicht Media"_s, u""_s, u"Fotos"_s, 400, Status::paid, u"Bitte an Becker weiterleiten"_s);
        m_indexer = std::make_unique<SpotlightIndexer>(indexPath());
        m_indexer->follow(profiles(), invoices());
        m_indexer->waitForIdle();
        return *m_indexer;
    }

    QStringList find(const QString& query) { return titles(m_indexer->searchNow(query)); }

    std::unique_ptr<SpotlightIndexer> m_indexer;
};

TEST_F(SearchIndexTest, ItemsCarryTitleDescriptionAndFullText)
{
    Profile profile = *profiles().activeProfile();
    Invoice invoice = invoices().createInvoice();
    invoice.items = {TestSupport::line(2, 100, 19)};
    invoice.items[0].item = u"Workshop"_s;
    invoice.status = Status::sent;

    SpotlightItem item = SpotlightItem::of(invoice, profile, Language::english);
    EXPECT_EQ(item.title, u"2025-001 · No recipient");
    EXPECT_EQ(item.uniqueIdentifier, SpotlightItem::uniqueIdentifierOf(profile.id, invoice.id));
    EXPECT_TRUE(item.domainIdentifier.startsWith(u"invoices."_s));
    EXPECT_EQ(item.description, u"Invoice 2025-001 for . Total €238.00. Dated 2025-03-14. Status: Sent.");
    EXPECT_TRUE(item.fullText.contains(u"Line items: Workshop."_s));
    EXPECT_TRUE(item.fullText.endsWith(u" · Sent"_s));

    // The business is the recipient where there is one; the person stays findable.
    invoice.businessName = u"Becker & Söhne GmbH"_s;
    invoice.name = u"Jana Becker"_s;
    invoice.addressCity = u"Hamburg"_s;
    invoice.addressPostcode = u"20457"_s;
    invoice.addressCountry = Country{u"FR"_s};
    item = SpotlightItem::of(invoice, profile, Language::german);
    EXPECT_EQ(item.title, u"2025-001 · Becker & Söhne GmbH");
    EXPECT_TRUE(item.fullText.contains(u"\n20457 Hamburg\nFrankreich\nJana Becker\n"_s))
        << item.fullText.toStdString();
    EXPECT_TRUE(
        item.description.startsWith(u"Rechnung 2025-001 für Becker & Söhne GmbH. Gesamt 238,00\u00a0€."_s))
        << item.description.toStdString();
    EXPECT_TRUE(item.keywords.contains(u"EUR"_s));
    EXPECT_TRUE(item.keywords.contains(u"Versendet"_s) || item.keywords.contains(u"Gesendet"_s))
        << item.keywords.join(u',').toStdString();

    const Invoice quote = invoices().createQuote();
    item = SpotlightItem::of(quote, profile, Language::english);
    EXPECT_TRUE(item.description.startsWith(u"Quote AN-2025-001 for"_s)) << item.description.toStdString();
    EXPECT_FALSE(item.description.contains(u"Status"_s));
    EXPECT_FALSE(item.fullText.contains(u" · Draft"_s));
}

TEST_F(SearchIndexTest, IdentifiersParseBackOrOpenNothing)
{
    const QUuid profile = QUuid::createUuid();
    const QUuid invoice = QUuid::createUuid();
    const auto ref = SpotlightInvoiceRef::parse(SpotlightItem::uniqueIdentifierOf(profile, invoice));
    ASSERT_TRUE(ref);
    EXPECT_EQ(ref->profileId, profile);
    EXPECT_EQ(ref->invoiceId, invoice);
    for (const QString& bad : {u""_s, profile.toString(), u"abc/def"_s, profile.toString() + u"/"_s,
                               profile.toString() + u"/"_s + invoice.toString() + u"/x"_s})
        EXPECT_FALSE(SpotlightInvoiceRef::parse(bad)) << bad.toStdString();
}

TEST_F(SearchIndexTest, FindsWhatPeopleType)
{
    populated();
    // Prefixes, any order; the document words of the interface language and of the other.
    EXPECT_EQ(find(u"beck logo"_s), QStringList{u"2025-001 · Becker & Söhne GmbH"_s});
    EXPECT_EQ(find(u"rech beck"_s).first(), u"2025-001 · Becker & Söhne GmbH");
    EXPECT_EQ(find(u"invoice beck"_s).first(), u"2025-001 · Becker & Söhne GmbH");
    // Umlauts and their ASCII forms, both ways.
    EXPECT_EQ(find(u"Müller"_s), (QStringList{u"2025-002 · Thomas Müller"_s, u"2025-003 · Mueller Bau"_s}));
    EXPECT_EQ(find(u"mueller"_s).size(), 2);
    EXPECT_EQ(find(u"sohne"_s).size(), 1);
    EXPECT_EQ(find(u"soehne"_s).size(), 1);
    EXPECT_EQ(find(u"sohne gmbh"_s).size(), 1);
    // Numbers with and without separators, amounts in both decimal forms.
    EXPECT_EQ(find(u"2025-003"_s), QStringList{u"2025-003 · Mueller Bau"_s});
    EXPECT_EQ(find(u"2025003"_s), QStringList{u"2025-003 · Mueller Bau"_s});
    EXPECT_EQ(find(u"1533,43"_s), QStringList{u"2025-001 · Becker & Söhne GmbH"_s});
    EXPECT_EQ(find(u"1533.43"_s), QStringList{u"2025-001 · Becker & Söhne GmbH"_s});
    EXPECT_EQ(find(u"1.533,43"_s), QStringList{u"2025-001 · Becker & Söhne GmbH"_s});
    // Nothing to look for, and words nobody wrote.
    EXPECT_TRUE(find(u"  ,. "_s).isEmpty());
    EXPECT_TRUE(find(u"becker hosting"_s).isEmpty());
    EXPECT_TRUE(find(u"\"unbalanced AND ( OR"_s).isEmpty());

    // Ranked: the recipient in the title before a mention in a note; the snippet marks the hit.
    const QList<SearchResult> results = m_indexer->searchNow(u"becker"_s);
    ASSERT_EQ(results.size(), 2);
    EXPECT_EQ(results[0].title, u"2025-001 · Becker & Söhne GmbH");
    EXPECT_EQ(results[1].title, u"2025-004 · Nordlicht Media");
    EXPECT_TRUE(results[1].snippetHtml().contains(u"<b>Becker</b>"_s))
        << results[1].snippetHtml().toStdString();

    // Another profile's invoices are found too, unless the search is narrowed to one profile.
    Profile other = Profile::makeNew(Country{u"DE"_s});
    ASSERT_FALSE(profiles().createProfile(u"Studio"_s, &other));
    profiles().setActiveProfile(other.id);
    invoices().loadInvoices();
    saved(u"Becker Events"_s, u""_s, u"Catering"_s, 50);
    m_indexer->waitForIdle();
    EXPECT_EQ(find(u"becker"_s).size(), 3);
    EXPECT_EQ(titles(m_indexer->searchNow(u"becker"_s, other.id)),
              QStringList{u"2025-001 · Becker Events"_s});
}

TEST_F(SearchIndexTest, FollowsSavesDeletionsAndChangesOnDisk)
{
    populated();
    Invoice invoice = saved(u"Alpenblick Hotel"_s, u""_s, u"Brochure"_s, 300);
    m_indexer->waitForIdle();
    EXPECT_EQ(find(u"alpenblick"_s).size(), 1);
    invoice.businessName = u"Seeblick Hotel"_s;
    ASSERT_FALSE(invoices().saveInvoice(invoice));
    m_indexer->waitForIdle();
    EXPECT_TRUE(find(u"alpenblick"_s).isEmpty());
    EXPECT_EQ(find(u"seeblick"_s).size(), 1);
    ASSERT_FALSE(invoices().deleteInvoice(invoice.id));
    m_indexer->waitForIdle();
    EXPECT_TRUE(find(u"seeblick"_s).isEmpty());

    // Another program changed a file and removed one: the next synchronisation catches up.
    const Invoice* mueller = nullptr;
    for (const Invoice& candidate : invoices().invoices())
        if (candidate.businessName == u"Mueller Bau")
            mueller = &candidate;
    ASSERT_NE(mueller, nullptr);
    Invoice changed = *mueller;
    changed.businessName = u"Schmidt Bau"_s;
    const QString path = *invoices().filePath(changed.id);
    ASSERT_FALSE(Files::writeAtomically(path, InvoiceJson::encode(changed)));
    const Invoice* hosting = nullptr;
    for (const Invoice& candidate : invoices().invoices())
        if (candidate.name == u"Thomas Müller")
            hosting = &candidate;
    ASSERT_TRUE(QFile::remove(*invoices().filePath(hosting->id)));
    QCoreApplication::processEvents(); // the report of the first synchronisation
    QSignalSpy done(m_indexer.get(), &SpotlightIndexer::synchronized);
    m_indexer->synchronize(profiles());
    ASSERT_TRUE(done.wait(5000));
    EXPECT_EQ(done.first().first().toInt(), 2);
    EXPECT_EQ(find(u"schmidt"_s).size(), 1);
    EXPECT_TRUE(find(u"mueller"_s).isEmpty());

    // A profile that is gone takes its items along.
    const QUuid doomed = profiles().activeProfile()->id;
    ASSERT_FALSE(profiles().createProfile(u"Studio"_s));
    ASSERT_FALSE(profiles().deleteProfile(doomed));
    m_indexer->waitForIdle();
    ASSERT_TRUE(waitFor([&] { return find(u"becker"_s).isEmpty(); }));
}

TEST_F(SearchIndexTest, AMissingOrDamagedIndexIsRebuiltFromTheDataFolder)
{
    populated();
    EXPECT_EQ(m_indexer->count(), 4);
    m_indexer.reset();

    ASSERT_TRUE(QFile::remove(indexPath()));
    m_indexer = std::make_unique<SpotlightIndexer>(indexPath());
    m_indexer->synchronize(profiles());
    EXPECT_EQ(m_indexer->count(), 4);
    m_indexer.reset();

    // Garbage where the index was: reported, replaced, filled again, never trusted.
    for (const QString& suffix : {u"-wal"_s, u"-shm"_s})
        QFile::remove(indexPath() + suffix);
    QFile file(indexPath());
    ASSERT_TRUE(file.open(QIODevice::ReadWrite));
    file.seek(100);
    file.write(QByteArray(3000, '\x5a'));
    file.close();
    m_indexer = std::make_unique<SpotlightIndexer>(indexPath());
    m_indexer->synchronize(profiles());
    EXPECT_EQ(m_indexer->count(), 4);
    EXPECT_EQ(find(u"nordlicht"_s).size(), 1);
}

TEST_F(SearchIndexTest, AnIndexThatCannotBeOpenedIsALogLineNotAFailure)
{
    // A folder where the database file should be: neither opened nor replaced.
    QDir().mkpath(indexPath());
    QDir().mkpath(indexPath() + u"/inside"_s);
    QStringList lines;
    static QStringList* s_lines = nullptr;
    s_lines = &lines;
    const QtMessageHandler previous =
        qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString& message) {
            if (s_lines)
                s_lines->append(message);
        });
    {
        SpotlightIndexer indexer(indexPath());
        const Invoice invoice = saved(u"Becker"_s, u""_s, u"Logo"_s, 10);
        indexer.index(invoice, *profiles().activeProfile(), *invoices().filePath(invoice.id));
        indexer.remove(profiles().activeProfile()->id, invoice.id);
        EXPECT_TRUE(indexer.searchNow(u"becker"_s).isEmpty());
    }
    qInstallMessageHandler(previous);
    s_lines = nullptr;
    const QString log = lines.join(u'\n');
    EXPECT_TRUE(log.contains(u"Spotlight indexing failed:"_s)) << log.toStdString();
    EXPECT_TRUE(log.contains(u"Spotlight removal failed:"_s)) << log.toStdString();
}
