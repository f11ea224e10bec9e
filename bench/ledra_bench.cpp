// Measures decoding and encoding of invoice files, the work done when a data folder loads
// and when invoices are saved, and the data folder store on top of it.
// Usage: ledra-bench [COUNT] [ITEMS]
#include "einvoice/XMLGenerator.h"
#include "exchange/ProfileExchange.h"
#include "model/InvoiceJson.h"
#include "search/SpotlightIndexer.h"
#include "storage/InvoiceManager.h"
#include "storage/ProfileManager.h"

#include <QSettings>

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QLoggingCategory>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>

namespace {

Invoice sampleInvoice(int index, int items)
{
    Invoice invoice = Invoice::makeNew();
    invoice.number = index;
    invoice.name = QStringLiteral("Customer %1").arg(index);
    invoice.businessName = QStringLiteral("Business Name GmbH & Co. KG");
    invoice.addressLineOne = QStringLiteral("Hauptstraße %1").arg(index % 200);
    invoice.addressCity = QStringLiteral("München");
    invoice.addressPostcode = QStringLiteral("80331");
    invoice.addressCountry = Country{QStringLiteral("DE")};
    invoice.senderAddressCountry = Country{QStringLiteral("DE")};
    invoice.senderName = QStringLiteral("Mira Lindqvist");
    invoice.senderIban = QStringLiteral("DE02120300000000202051");
    invoice.note = QStringLiteral("Thank you for your order.");
    for (int i = 0; i < items; ++i)
        invoice.items.append({QUuid::createUuid(),
                              QStringLiteral("Line item %1 with a longer description").arg(i), 1.5 + i,
                              Unit::hour, 85.25 + i, i % 2 ? 19.0 : 7.0});
    return invoice;
}

} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    QLoggingCategory::setFilterRules(QStringLiteral("ledra.*.info=false"));
    const int count = argc > 1 ? std::atoi(argv[1]) : 10000;
    const int items = argc > 2 ? std::atoi(argv[2]) : 20;

    QList<QByteArray> files;
    files.reserve(count);
    for (int i = 0; i < count; ++i)
        files.append(InvoiceJson::encode(sampleInvoice(i, items)));
    qint64 bytes = 0;
    for (const QByteArray& f : files)
        bytes += f.size();

    QElapsedTimer timer;
    timer.start();
    QList<Invoice> decoded;
    decoded.reserve(count);
    for (const QByteArray& f : files)
        decoded.append(InvoiceJson::decode(f));
    const double decodeSeconds = double(timer.nsecsElapsed()) / 1e9;

    timer.restart();
    qint64 written = 0;
    for (const Invoice& invoice : decoded)
        written += InvoiceJson::encode(invoice).size();
    const double encodeSeconds = double(timer.nsecsElapsed()) / 1e9;

    // The same files from disk, as a data folder load does it.
    QTemporaryDir dir;
    for (int i = 0; i < count; ++i) {
        QFile file(dir.filePath(QStringLiteral("%1.json").arg(i)));
        file.open(QIODevice::WriteOnly);
        file.write(files[i]);
    }
    timer.restart();
    int loaded = 0;
    for (const QString& name : QDir(dir.path()).entryList({QStringLiteral("*.json")}, QDir::Files)) {
        QFile file(dir.filePath(name));
        file.open(QIODevice::ReadOnly);
        InvoiceJson::decode(file.readAll());
        ++loaded;
    }
    const double loadSeconds = double(timer.nsecsElapsed()) / 1e9;

    // The data folder: every invoice file of a profile loaded by the store, then single saves.
    QTemporaryDir home;
    QSettings settings(home.filePath(QStringLiteral("settings.ini")), QSettings::IniFormat);
    const QString data = home.filePath(QStringLiteral("Data"));
    ProfileManager profiles(settings, data, Country{QStringLiteral("DE")});
    profiles.load();
    for (int i = 0; i < count; ++i) {
        // Whole ids in the names: 10,000 invoices of one day would share some 6-character prefixes.
        QFile file(data + QStringLiteral("/Default/Invoices/") + InvoiceManager::fileStem(decoded[i]) +
                   decoded[i].id.toString(QUuid::WithoutBraces).mid(6) + QStringLiteral(".json"));
        file.open(QIODevice::WriteOnly);
        file.write(files[i]);
    }
    // As a synced folder leaves it: 50 invoices with a sync engine's conflict copy beside them,
    // 20 pairs of invoices that got the same number on two machines.
    const int conflicts = std::min(50, count / 4);
    const int duplicates = std::min(20, count / 8);
    for (int i = 0; i < conflicts; ++i) {
        Invoice theirs = decoded[i];
        theirs.note = QStringLiteral("edited on the laptop");
        QFile file(data + QStringLiteral("/Default/Invoices/") + InvoiceManager::fileStem(decoded[i]) +
                   QStringLiteral(".sync-conflict-20250314-101010-ABCDEFG.json"));
        file.open(QIODevice::WriteOnly);
        file.write(InvoiceJson::encode(theirs));
    }
    for (int i = 0; i < duplicates; ++i) {
        Invoice& twin = decoded[conflicts + 2 * i + 1];
        const Invoice& original = decoded[conflicts + 2 * i];
        // The twin's own file, rewritten (under its first name, so it stays one file).
        const QString name = InvoiceManager::fileStem(twin) + twin.id.toString(QUuid::WithoutBraces).mid(6);
        twin.type = original.type;
        twin.number = original.number;
        twin.date = original.date;
        twin.numberFormat = original.numberFormat;
        twin.numberVariable = original.numberVariable;
        QFile file(data + QStringLiteral("/Default/Invoices/") + name + QStringLiteral(".json"));
        file.open(QIODevice::WriteOnly);
        file.write(InvoiceJson::encode(twin));
    }
    InvoiceManager store(profiles);
    timer.restart();
    store.loadInvoices();
    const double storeLoadSeconds = double(timer.nsecsElapsed()) / 1e9;
    timer.restart();
    const qsizetype sameNumber = store.duplicateNumbers().size();
    const double duplicateMs = double(timer.nsecsElapsed()) / 1e6;
    // As while typing in the editor: the same invoice saved again and again.
    constexpr int saves = 200;
    Invoice edited = store.invoices().first();
    store.saveInvoice(edited);
    timer.restart();
    for (int i = 0; i < saves; ++i) {
        edited.note = QStringLiteral("saved %1").arg(i);
        store.saveInvoice(edited);
    }
    const double saveMs = double(timer.nsecsElapsed()) / 1e6 / saves;

    // E-invoices: 1,000 invoices of 20 lines written as XRechnung XML.
    Profile sender = Profile::makeNew(Country{QStringLiteral("DE")});
    timer.restart();
    qint64 xmlBytes = 0;
    for (int i = 0; i < 1000; ++i)
        xmlBytes += XMLGenerator::generate(decoded[i % decoded.size()], sender).value_or(QByteArray()).size();
    const double xmlSeconds = double(timer.nsecsElapsed()) / 1e9;

    // The search index: every invoice of the profile from scratch, then what people type.
    SpotlightIndexer indexer(home.filePath(QStringLiteral("cache/search-index.sqlite")));
    timer.restart();
    indexer.synchronize(profiles, true);
    indexer.waitForIdle();
    const double indexSeconds = double(timer.nsecsElapsed()) / 1e9;
    const QStringList queries{QStringLiteral("customer 4711"), QStringLiteral("münchen line"),
                              QStringLiteral("hauptstrasse 12"), QStringLiteral("2025"),
                              QStringLiteral("business gmbh")};
    constexpr int rounds = 20;
    timer.restart();
    qsizetype found = 0;
    for (int i = 0; i < rounds; ++i)
        for (const QString& query : queries)
            found += indexer.searchNow(query, std::nullopt, 50).size();
    const double queryMs = double(timer.nsecsElapsed()) / 1e6 / (rounds * queries.size());

    // Ledra Data files: the whole profile out to one file and back in beside it.
    const QString dataFile = home.filePath(QStringLiteral("Default.ledradata"));
    timer.restart();
    ProfileExporter(profiles).writeArchive({*profiles.activeProfile()}, dataFile);
    const double exportSeconds = double(timer.nsecsElapsed()) / 1e9;
    timer.restart();
    const ProfileImportResult imported = ProfileImporter(profiles).importFile(dataFile);
    const double importSeconds = double(timer.nsecsElapsed()) / 1e9;

    std::printf("invoices: %d with %d items each (%.1f MB of JSON)\n", count, items, double(bytes) / 1e6);
    std::printf("decode:   %.3f s  (target < 0.300 s for 10000 x 20)%s\n", decodeSeconds,
                count == 10000 && items == 20 ? (decodeSeconds < 0.3 ? "  OK" : "  SLOW") : "");
    std::printf("encode:   %.3f s  (%.1f MB)\n", encodeSeconds, double(written) / 1e6);
    std::printf("load from files: %.3f s for %d files\n", loadSeconds, loaded);
    std::printf("store: loading %lld invoices %.3f s (target < 0.500 s)%s\n", qint64(store.invoices().size()),
                storeLoadSeconds, count == 10000 ? (storeLoadSeconds < 0.5 ? "  OK" : "  SLOW") : "");
    std::printf("store: %lld invoices in conflict (of %d), %lld sharing a number (of %d); found in %.1f ms "
                "(target < 50 ms)%s\n",
                qint64(store.conflictedIds().size()), conflicts, qint64(sameNumber), 2 * duplicates,
                duplicateMs,
                store.conflictedIds().size() == conflicts && sameNumber >= 2 * duplicates && duplicateMs < 50
                    ? "  OK"
                    : "  SLOW");
    std::printf("xml:      %.3f s for 1000 invoices (%.1f MB; target < 0.500 s)%s\n", xmlSeconds,
                double(xmlBytes) / 1e6, items == 20 ? (xmlSeconds < 0.5 ? "  OK" : "  SLOW") : "");
    std::printf("store: saving one invoice %.2f ms (target < 5 ms)%s\n", saveMs,
                saveMs < 5 ? "  OK" : "  SLOW");
    std::printf("search: indexing %lld invoices %.3f s (target < 5 s)%s\n", indexer.count(), indexSeconds,
                indexSeconds < 5 ? "  OK" : "  SLOW");
    std::printf("search: one query %.2f ms, %lld results in all (target < 20 ms)%s\n", queryMs, qint64(found),
                queryMs < 20 ? "  OK" : "  SLOW");
    std::printf("profile export: %.3f s (%.1f MB file; target < 3 s)%s\n", exportSeconds,
                double(QFileInfo(dataFile).size()) / 1e6, exportSeconds < 3 ? "  OK" : "  SLOW");
    std::printf("profile import: %.3f s as \"%s\" (target < 3 s)%s\n", importSeconds,
                qPrintable(imported.imported.value(0)), importSeconds < 3 ? "  OK" : "  SLOW");
    return 0;
}
