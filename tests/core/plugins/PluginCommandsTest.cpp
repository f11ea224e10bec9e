#include "plugins/PluginCommands.h"

#include "PluginFixture.h"
#include "plugins/PluginManager.h"

#include <QFile>

using namespace Qt::Literals::StringLiterals;

class PluginCommandsTest : public PluginFixture
{
protected:
    std::unique_ptr<PluginRuntime> plugin(const QByteArray& mainJs)
    {
        return runtimeFor(writePlugin(m_home.filePath(u"Probe.ledraplugin"_s), u"Probe"_s, mainJs));
    }
};

TEST_F(PluginCommandsTest, UpdateMarksInvoicesPaidThroughTheStore)
{
    Invoice sent = invoices().createInvoice();
    sent.status = Status::sent;
    sent.reference = u"RF-17"_s;
    ASSERT_FALSE(invoices().saveInvoice(sent));
    Invoice dated = invoices().createInvoice();
    Invoice alreadyPaid = invoices().createInvoice();
    alreadyPaid.status = Status::paid;
    alreadyPaid.statusUpdateDate = TestSupport::berlinTimestamp(u"2025-01-02T10:00:00"_s);
    ASSERT_FALSE(invoices().saveInvoice(alreadyPaid));

    installedPlugin(u"Bank"_s, u"Bank"_s,
                    QStringLiteral(R"(
        exports.updateInvoices = function (invoices) {
            var result = { '%1': { status: 'Paid' } };
            invoices.forEach(function (s) {
                if (s.reference === 'RF-17') result[s.id] = { status: 'Paid' };
                if (s.id === '%2') result[s.id] = { status: 'Cancelled', date: '2025-03-01' };
                if (s.id === '%3') result[s.id] = { status: 'Paid' };
            });
            return result;
        };)")
                        .arg(QUuid::createUuid().toString(QUuid::WithoutBraces),
                             dated.id.toString(QUuid::WithoutBraces).toUpper(),
                             alreadyPaid.id.toString(QUuid::WithoutBraces).toUpper())
                        .toUtf8());
    PluginManager manager(m_settings, u"1.12.3"_s, pluginsFolder());
    manager.reloadPlugins();
    EXPECT_FALSE(manager.runUpdate(u"Bank"_s)); // no stores yet
    manager.setStores(&invoices(), &profiles());
    EXPECT_EQ(manager.runUpdate(u"Bank"_s), 2);

    // The files say so, not just the list in memory.
    StorageFixture::m_invoices.reset();
    const Invoice* paid = invoices().invoice(sent.id);
    ASSERT_TRUE(paid);
    EXPECT_EQ(paid->status, Status::paid);
    EXPECT_EQ(paid->statusUpdateDate, Clock::nowTimestamp());
    EXPECT_EQ(invoices().invoice(dated.id)->status, Status::cancelled);
    EXPECT_EQ(invoices().invoice(dated.id)->statusUpdateDate.localDate(), QDate(2025, 3, 1));
    // Reported again, an invoice keeps the day it was paid.
    EXPECT_EQ(invoices().invoice(alreadyPaid.id)->statusUpdateDate,
              TestSupport::berlinTimestamp(u"2025-01-02T10:00:00"_s));

    manager.setEnabled(u"Bank"_s, false);
    EXPECT_FALSE(manager.runUpdate(u"Bank"_s));
}

TEST_F(PluginCommandsTest, ImportCreatesInvoicesWithProfilePresets)
{
    Profile profile = *profiles().activeProfile();
    profile.daysToPay = 30;
    profile.businessName = u"Lindqvist Design"_s;
    profile.marginalNote = u"Thank you"_s;
    ASSERT_FALSE(profiles().saveProfile(profile));
    invoices().createInvoice();

    auto runtime = plugin(R"(
        exports.importInvoices = function (text, profile) {
            return text.trim().split('\n').map(function (line) {
                var f = line.split(';');
                return { recipient: { name: f[0], address: { city: f[1], country: 'AT' } },
                         items: [ { description: f[2], quantity: Number(f[3]), unitPrice: Number(f[4]),
                                    vatPercentage: 20, unit: 'Hour' } ],
                         date: f[5], status: f[6], statusDate: f[5],
                         marginalNote: profile.businessName + ' import' };
            });
        };)");
    ASSERT_TRUE(runtime);
    const auto patches = runtime->importInvoices(
        u"Acme GmbH;Wien;Consulting;3;120;2025-02-10;Sent\nBeta AG;Graz;Support;1;80;not a date;Paid\n"_s,
        *profiles().activeProfile());
    ASSERT_TRUE(patches);
    const QList<Invoice> created = PluginCommands::applyImport(*patches, invoices());
    ASSERT_EQ(created.size(), 2);

    StorageFixture::m_invoices.reset();
    const Invoice* acme = invoices().invoice(created[0].id);
    ASSERT_TRUE(acme);
    EXPECT_EQ(acme->number, 2);
    EXPECT_EQ(acme->name, u"Acme GmbH");
    EXPECT_EQ(acme->addressCity, u"Wien");
    EXPECT_EQ(acme->addressCountry.code, u"AT");
    ASSERT_EQ(acme->items.size(), 1);
    EXPECT_EQ(acme->items[0].item, u"Consulting");
    EXPECT_EQ(acme->items[0].unit, Unit::hour);
    EXPECT_EQ(acme->items[0].unitPrice, 120);
    EXPECT_FALSE(acme->items[0].id.isNull());
    EXPECT_EQ(acme->date.localDate(), QDate(2025, 2, 10));
    EXPECT_EQ(acme->status, Status::sent);
    EXPECT_EQ(acme->marginalNote, u"Lindqvist Design import");
    // Presets of a new invoice where the patch says nothing.
    EXPECT_EQ(acme->daysToPay, 30);
    EXPECT_EQ(acme->senderBusinessName, u"Lindqvist Design");
    EXPECT_EQ(acme->currency.code, u"EUR");

    const Invoice* beta = invoices().invoice(created[1].id);
    ASSERT_TRUE(beta);
    EXPECT_EQ(beta->number, 3);
    EXPECT_EQ(beta->status, Status::paid);
    EXPECT_EQ(beta->date, Clock::nowTimestamp()); // the date did not parse
}

TEST_F(PluginCommandsTest, ExportWritesTheTextOrLogsThatThereWasNone)
{
    auto runtime = plugin(R"(
        exports.exportInvoice = function (invoice) { return invoice.number === 1 ? 'one ✓' : undefined; };
        exports.exportInvoices = function (invoices) { return invoices.length + ' invoices'; };)");
    ASSERT_TRUE(runtime);
    const Profile& profile = *profiles().activeProfile();
    const Invoice first = invoices().createInvoice();
    const Invoice second = invoices().createInvoice();

    const QString path = m_home.filePath(u"out.txt"_s);
    EXPECT_FALSE(PluginCommands::exportToFile(*runtime, {first}, profile, path));
    EXPECT_EQ(Files::read(path), QByteArray("one ✓"));
    EXPECT_FALSE(PluginCommands::exportToFile(*runtime, {first, second}, profile, path));
    EXPECT_EQ(Files::read(path), QByteArray("2 invoices"));

    QFile::remove(path);
    LogCapture log;
    EXPECT_TRUE(PluginCommands::exportToFile(*runtime, {second}, profile, path));
    EXPECT_TRUE(log.contains(u"AppCommands: plugin Probe returned no output"_s));
    EXPECT_FALSE(QFileInfo::exists(path));

    EXPECT_TRUE(
        PluginCommands::exportToFile(*runtime, {first}, profile, m_home.filePath(u"missing/dir/out.txt"_s)));
    EXPECT_TRUE(log.contains(u"AppCommands: failed to write plugin output: "_s));
}
