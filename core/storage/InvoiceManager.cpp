#include "storage/InvoiceManager.h"

#include "l10n/Strings.h"
#include "model/InvoiceJson.h"
#include "numbering/NumberAssignment.h"
#include "numbering/NumberFormat.h"
#include "storage/SyncFiles.h"
#include "util/Clock.h"
#include "util/Files.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>

#include <algorithm>
#include <cmath>
#include <thread>
#include <vector>

#include <dirent.h>

using namespace Qt::Literals::StringLiterals;

namespace {

QString idPrefix(const QUuid& id)
{
    return id.toString(QUuid::WithoutBraces).left(6).toUpper();
}

// The "id" (or another UUID key) of a record file, without decoding the whole record.
std::optional<QUuid> uuidIn(const QString& path, QLatin1StringView key)
{
    const auto bytes = Files::read(path);
    if (!bytes)
        return std::nullopt;
    try {
        const JsonDocument document(*bytes);
        std::optional<QUuid> id;
        JsonFieldReader(document, DateEncoding::referenceSeconds).read(key, id);
        return id;
    } catch (const JsonDecodeError&) {
        return std::nullopt;
    }
}

// The ".json" file names of a folder, read from the directory alone (no stat per entry);
// with a prefix, only names that carry it after their date ("2025-03-14-3F2A9C…"). A save
// scans a folder of 10,000 invoices this way in well under a millisecond.
QStringList jsonFileNames(const QString& folder, const QByteArray& idPrefix = {})
{
    QStringList names;
    DIR* dir = ::opendir(QFile::encodeName(folder).constData());
    if (!dir)
        return names;
    while (const dirent* entry = ::readdir(dir)) {
        const std::string_view name(entry->d_name);
        if (name.size() <= 5 || name.substr(name.size() - 5) != ".json")
            continue;
        // Hidden and "~" files are writes in progress of sync engines and editors.
        if (name.front() == '.' || name.front() == '~')
            continue;
        if (!idPrefix.isEmpty() && (name.size() < 11 + size_t(idPrefix.size()) ||
                                    name.substr(11, size_t(idPrefix.size())) != idPrefix.constData()))
            continue;
        names.append(QFile::decodeName(entry->d_name));
    }
    ::closedir(dir);
    return names;
}

} // namespace

InvoiceManager::InvoiceManager(ProfileManager& profiles, QObject* parent)
    : QObject(parent), m_profiles(profiles), m_watcher([this] { return invoicesFolder(); })
{
    connect(&m_profiles, &ProfileManager::activeProfileChanged, this, &InvoiceManager::loadInvoices);
    connect(&m_watcher, &ProfileDirectoryWatcher::changed, this, &InvoiceManager::onFolderChanged);
    connect(this, &InvoiceManager::invoicesChanged, this, [this] { m_duplicates.reset(); });
}

QString InvoiceManager::fileStem(const Invoice& invoice)
{
    return invoice.date.localDate().toString(u"yyyy-MM-dd"_s) + u'-' + idPrefix(invoice.id);
}

QString InvoiceManager::fileName(const Invoice& invoice)
{
    return fileStem(invoice) + u".json"_s;
}

QString InvoiceManager::reminderFileName(const QString& invoiceStem, int number)
{
    return number == 0 ? invoiceStem + u"-reminder.json"_s
                       : invoiceStem + u"-reminder-"_s + QString::number(number) + u".json"_s;
}

bool InvoiceManager::isReminderFileName(const QString& name)
{
    static const QRegularExpression pattern(u"-reminder(-\\d+)?\\.json$"_s);
    // A conflict copy of a reminder file is a reminder too.
    return pattern.match(SyncFiles::originalName(name)).hasMatch();
}

QString InvoiceManager::deletionWarning(const Invoice& invoice)
{
    if (invoice.type != InvoiceType::invoice || invoice.status == Status::draft)
        return {};
    return Strings::ui(u"Invoices shouldn’t be deleted when already sent. Consider creating a cancellation "
                       u"invoice instead."_s);
}

std::optional<QString> InvoiceManager::invoicesFolder() const
{
    return m_profiles.activeSubfolder(QString::fromLatin1(folderName));
}

void InvoiceManager::bumpRefreshTrigger()
{
    ++m_refreshTrigger;
    Q_EMIT refreshTriggerChanged(m_refreshTrigger);
}

void InvoiceManager::loadInvoices()
{
    m_invoices.clear();
    m_fileNames.clear();
    m_stamps.clear();
    m_conflicts.clear();
    m_conflictOwners.clear();
    const auto folder = invoicesFolder();
    if (!folder) {
        qCWarning(lcStorage) << "InvoiceManager: Error loading invoices: no active profile";
    } else {
        // Reading and decoding thousands of files is most of a profile switch: spread over
        // the cores, then put together in file order on this thread.
        struct Loaded
        {
            QString name;
            std::optional<Invoice> invoice;
            Stamp stamp;
            QString error;
        };
        std::vector<Loaded> loaded;
        for (const QString& name : jsonFileNames(*folder))
            if (!isReminderFileName(name))
                loaded.push_back({name, std::nullopt, {}, {}});
        auto work = [&](size_t begin, size_t end) {
            for (size_t i = begin; i < end; ++i) {
                Loaded& entry = loaded[i];
                const QString path = *folder + u'/' + entry.name;
                const auto bytes = SyncFiles::readSettled(path, &entry.error, &entry.stamp);
                if (!bytes)
                    continue;
                try {
                    entry.invoice = InvoiceJson::decode(*bytes);
                } catch (const JsonDecodeError& error) {
                    entry.error = error.message();
                }
            }
        };
        const size_t threads =
            std::clamp<size_t>(std::thread::hardware_concurrency(), 1, 1 + loaded.size() / 500);
        std::vector<std::thread> workers;
        const size_t chunk = (loaded.size() + threads - 1) / threads;
        for (size_t t = 1; t < threads; ++t)
            workers.emplace_back(work, std::min(loaded.size(), t * chunk),
                                 std::min(loaded.size(), (t + 1) * chunk));
        work(0, std::min(loaded.size(), chunk));
        for (std::thread& worker : workers)
            worker.join();

        QHash<QUuid, qsizetype> indexById;
        m_invoices.reserve(qsizetype(loaded.size()));
        for (Loaded& entry : loaded) {
            const QString& name = entry.name;
            if (!entry.invoice) {
                qCWarning(lcStorage).noquote() << "InvoiceManager: Error loading invoice from"
                                               << *folder + u'/' + name + u':' << entry.error;
                continue;
            }
            Invoice& invoice = *entry.invoice;
            const QUuid id = invoice.id;
            const Stamp stamp = entry.stamp;
            m_stamps.insert(name, stamp);
            if (const auto existing = indexById.constFind(invoice.id); existing != indexById.constEnd()) {
                // Two files for one invoice (edits on two machines, an interrupted rename): the
                // record is the plain file, the newer of two; the other is kept as a version in
                // conflict until the user decides.
                const QString otherName = m_fileNames.value(invoice.id);
                auto rank = [&](const QString& file) {
                    return std::pair(!SyncFiles::isConflictCopy(file), m_stamps.value(file).modified);
                };
                qCInfo(lcStorage).noquote() << "InvoiceManager: Two files for invoice"
                                            << invoice.id.toString() << u':' << otherName << "and" << name;
                QString other = name;
                if (rank(name) > rank(otherName)) {
                    m_invoices[*existing] = std::move(invoice);
                    m_fileNames.insert(id, name);
                    other = otherName;
                }
                m_conflicts[id].append(other);
                m_conflictOwners.insert(other, id);
            } else {
                indexById.insert(invoice.id, m_invoices.size());
                m_invoices.append(std::move(invoice));
                m_fileNames.insert(id, name);
            }
        }
    }
    for (QStringList& files : m_conflicts)
        files.sort();
    m_watcher.refresh();
    bumpRefreshTrigger();
    qCInfo(lcStorage).noquote() << "InvoiceManager: Loaded" << m_invoices.size()
                                << "invoices, refreshTrigger:" << m_refreshTrigger;
    Q_EMIT invoicesChanged();
}

std::optional<Invoice> InvoiceManager::loadInvoice(const QUuid& id)
{
    const auto folder = invoicesFolder();
    const auto path = filePath(id);
    if (!folder || !path) {
        qCWarning(lcStorage).noquote() << "InvoiceManager: Error loading invoice by ID" << id.toString();
        return std::nullopt;
    }
    const auto bytes = Files::read(*path);
    try {
        if (!bytes)
            throw JsonDecodeError({}, QStringLiteral("cannot read %1").arg(*path));
        Invoice invoice = InvoiceJson::decode(*bytes);
        if (invoice.id != id)
            throw JsonDecodeError({}, QStringLiteral("%1 now holds another invoice").arg(*path));
        m_stamps.insert(QFileInfo(*path).fileName(), stampOf(*path));
        replaceOrAppend(invoice);
        Q_EMIT invoicesChanged();
        Q_EMIT invoiceChanged(invoice.id);
        return invoice;
    } catch (const JsonDecodeError& error) {
        qCWarning(lcStorage).noquote()
            << "InvoiceManager: Error loading invoice by ID" << id.toString() + u':' << error.message();
        return std::nullopt;
    }
}

const Invoice* InvoiceManager::invoice(const QUuid& id) const
{
    for (const Invoice& i : m_invoices)
        if (i.id == id)
            return &i;
    return nullptr;
}

std::optional<QString> InvoiceManager::filePath(const QUuid& id) const
{
    const auto folder = invoicesFolder();
    const auto name = m_fileNames.constFind(id);
    if (!folder || name == m_fileNames.constEnd())
        return std::nullopt;
    return *folder + u'/' + *name;
}

void InvoiceManager::replaceOrAppend(const Invoice& updated)
{
    for (Invoice& i : m_invoices) {
        if (i.id == updated.id) {
            i = updated;
            return;
        }
    }
    m_invoices.append(updated);
}

std::optional<QString> InvoiceManager::saveInvoice(const Invoice& invoice)
{
    const auto folder = invoicesFolder();
    if (!folder) {
        qCWarning(lcStorage) << "InvoiceManager: Error writing invoice file: no active profile folder";
        return u"no active profile folder"_s;
    }
    QByteArray bytes;
    try {
        bytes = InvoiceJson::encode(invoice);
    } catch (const JsonEncodeError& error) {
        qCWarning(lcStorage) << "InvoiceManager: Error saving invoice:" << error.what();
        return QString::fromUtf8(error.what());
    }

    // Files that belong to this invoice: the one the store knows and any named after its id.
    // Only these candidates are parsed, so a save costs the same in a folder of 10,000 invoices.
    const QString prefix = idPrefix(invoice.id);
    QStringList reminderCandidates;
    for (const QString& name : jsonFileNames(*folder, prefix.toLatin1()))
        if (isReminderFileName(name) && !SyncFiles::isConflictCopy(name))
            reminderCandidates.append(name);

    // Two invoices of one day whose ids begin alike would get the same name; the later one
    // takes more of its id rather than overwrite the other's file.
    QString stem = fileStem(invoice);
    const QString fullStem = invoice.date.localDate().toString(u"yyyy-MM-dd"_s) + u'-' +
                             invoice.id.toString(QUuid::WithoutBraces).toUpper();
    for (const qsizetype length : {6, 8, 36}) {
        stem = fullStem.left(11 + length);
        const QString path = *folder + u'/' + stem + u".json"_s;
        if (!QFileInfo::exists(path) || m_fileNames.value(invoice.id) == stem + u".json"_s ||
            uuidIn(path, "id"_L1).value_or(invoice.id) == invoice.id)
            break;
    }
    const QString currentName = stem + u".json"_s;

    // Only the file the store itself read or wrote for this invoice gives way to the new name;
    // any other file with this id is another machine's version and stays until the user decides.
    QStringList previousFiles;
    if (const QString known = m_fileNames.value(invoice.id);
        !known.isEmpty() && known != currentName && !m_conflictOwners.contains(known) &&
        uuidIn(*folder + u'/' + known, "id"_L1) == invoice.id)
        previousFiles.append(known);

    if (const auto error = Files::writeAtomically(*folder + u'/' + currentName, bytes)) {
        qCWarning(lcStorage).noquote() << "InvoiceManager: Error writing invoice file:" << *error;
        return error;
    }
    m_stamps.insert(currentName, stampOf(*folder + u'/' + currentName));
    for (const QString& name : std::as_const(previousFiles)) {
        QFile::remove(*folder + u'/' + name);
        m_stamps.remove(name);
    }
    m_fileNames.insert(invoice.id, currentName);

    // Reminder files follow the invoice's file name.
    for (const QString& name : std::as_const(reminderCandidates)) {
        const QString path = *folder + u'/' + name;
        std::optional<QUuid> owner;
        int number = 0;
        try {
            const JsonDocument document(Files::read(path).value_or(QByteArray()));
            const JsonFieldReader reader(document, DateEncoding::referenceSeconds);
            reader.read("invoiceId"_L1, owner);
            reader.read("number"_L1, number);
        } catch (const JsonDecodeError&) {
            continue; // not a reminder we can place
        }
        if (owner != invoice.id)
            continue;
        const QString target = reminderFileName(stem, number);
        if (target == name)
            continue;
        QFile::remove(*folder + u'/' + target);
        if (QFile::rename(path, *folder + u'/' + target)) {
            m_stamps.remove(name);
            m_stamps.insert(target, stampOf(*folder + u'/' + target));
        }
    }

    replaceOrAppend(invoice);
    Q_EMIT invoicesChanged();
    Q_EMIT invoiceChanged(invoice.id);
    Q_EMIT invoiceSaved(invoice.id);
    if (onInvoiceUpdated)
        onInvoiceUpdated(invoice);
    return std::nullopt;
}

Invoice InvoiceManager::newFromProfile(InvoiceType type) const
{
    Invoice invoice = Invoice::makeNew();
    invoice.type = type;
    invoice.status = Status::draft;
    const Profile* profile = m_profiles.activeProfile();
    if (!profile)
        return invoice;
    invoice.senderName = profile->name;
    invoice.senderBusinessName = profile->businessName;
    invoice.senderAddressLineOne = profile->addressLineOne;
    invoice.senderAddressLineTwo = profile->addressLineTwo;
    invoice.senderAddressPostcode = profile->addressPostcode;
    invoice.senderAddressCity = profile->addressCity;
    invoice.senderAddressState = profile->addressState;
    invoice.senderAddressCountry = profile->addressCountry;
    invoice.senderEmail = profile->email;
    invoice.senderPhone = profile->phone;
    invoice.senderWeb = profile->website;
    invoice.senderAdditional = profile->additional;
    invoice.senderIban = profile->iban;
    invoice.senderBic = profile->bic;
    invoice.senderTaxNumber = profile->taxNumber;
    invoice.senderVatNumber = profile->vatNumber;
    invoice.senderAdditionalNumbers = profile->additionalNumbers;
    // Most customers are in the sender's own country.
    invoice.addressCountry = profile->addressCountry;
    invoice.numberFormat = profile->numberFormat;
    invoice.daysToPay = profile->daysToPay;
    invoice.currency = profile->currency;
    invoice.language = profile->language;
    invoice.vatExemptionReason = profile->vatExemptionReason;
    invoice.marginalNote = profile->marginalNote;
    if (type == InvoiceType::quote)
        invoice.quotePrefix = profile->quotePrefix;
    return invoice;
}

Invoice& InvoiceManager::storeNew(Invoice invoice)
{
    // A failed save is logged; the new record still opens in the editor, which saves it again.
    if (saveInvoice(invoice)) {
        m_invoices.append(invoice);
        Q_EMIT invoicesChanged();
        Q_EMIT invoiceChanged(invoice.id);
    }
    m_newlyCreatedInvoiceId = invoice.id;
    Q_EMIT newlyCreatedInvoiceIdChanged();
    for (Invoice& i : m_invoices)
        if (i.id == invoice.id)
            return i;
    return m_invoices.last();
}

Invoice InvoiceManager::createInvoice()
{
    Invoice invoice = newFromProfile(InvoiceType::invoice);
    invoice.number = nextInvoiceNumber();
    return storeNew(invoice);
}

Invoice InvoiceManager::createQuote()
{
    Invoice invoice = newFromProfile(InvoiceType::quote);
    invoice.number = nextQuoteNumber();
    return storeNew(invoice);
}

void InvoiceManager::copyContent(const Invoice& source, Invoice& target)
{
    target.numberFormat = source.numberFormat;
    target.date = source.date;
    target.serviceDateStart = source.serviceDateStart;
    target.serviceDateEnd = source.serviceDateEnd;
    target.name = source.name;
    target.businessName = source.businessName;
    target.addressLineOne = source.addressLineOne;
    target.addressLineTwo = source.addressLineTwo;
    target.addressPostcode = source.addressPostcode;
    target.addressCity = source.addressCity;
    target.addressState = source.addressState;
    target.addressCountry = source.addressCountry;
    target.email = source.email;
    target.senderName = source.senderName;
    target.senderBusinessName = source.senderBusinessName;
    target.senderAddressLineOne = source.senderAddressLineOne;
    target.senderAddressLineTwo = source.senderAddressLineTwo;
    target.senderAddressPostcode = source.senderAddressPostcode;
    target.senderAddressCity = source.senderAddressCity;
    target.senderAddressState = source.senderAddressState;
    target.senderAddressCountry = source.senderAddressCountry;
    target.senderEmail = source.senderEmail;
    target.senderPhone = source.senderPhone;
    target.senderWeb = source.senderWeb;
    target.senderAdditional = source.senderAdditional;
    target.senderIban = source.senderIban;
    target.senderBic = source.senderBic;
    target.senderTaxNumber = source.senderTaxNumber;
    target.senderVatNumber = source.senderVatNumber;
    target.senderAdditionalNumbers = source.senderAdditionalNumbers;
    target.items.clear();
    for (const InvoiceItem& item : source.items) {
        InvoiceItem copy = item;
        copy.id = QUuid::createUuid();
        target.items.append(copy);
    }
    target.grossPrices = source.grossPrices;
    target.discountPercentage = source.discountPercentage;
    target.discountAmount = source.discountAmount;
    target.vatExemptionReason = source.vatExemptionReason;
    target.marginalNote = source.marginalNote;
    target.daysToPay = source.daysToPay;
    target.currency = source.currency;
    target.language = source.language;
    target.note = source.note;
    target.reference = source.reference;
    target.status = Status::draft;
    target.statusUpdateDate = Clock::nowTimestamp();
}

std::optional<Invoice> InvoiceManager::duplicateInvoice(const QUuid& id)
{
    const Invoice* source = invoice(id);
    if (!source)
        return std::nullopt;
    // A copy of a quote is a quote; anything else becomes an ordinary invoice of today.
    Invoice copy =
        newFromProfile(source->type == InvoiceType::quote ? InvoiceType::quote : InvoiceType::invoice);
    copyContent(*source, copy);
    copy.date = Clock::nowTimestamp();
    copy.number = copy.type == InvoiceType::quote ? nextQuoteNumber() : nextInvoiceNumber();
    return storeNew(copy);
}

std::optional<Invoice> InvoiceManager::createInvoiceFromQuote(const QUuid& quoteId)
{
    const Invoice* quote = invoice(quoteId);
    if (!quote || quote->type != InvoiceType::quote)
        return std::nullopt;
    Invoice created = newFromProfile(InvoiceType::invoice);
    copyContent(*quote, created);
    created.date = Clock::nowTimestamp();
    created.number = nextInvoiceNumber();
    created.quoteId = quoteId;
    return storeNew(created);
}

std::optional<Invoice> InvoiceManager::cancelInvoice(const QUuid& id)
{
    const Invoice* found = invoice(id);
    if (!found || found->type != InvoiceType::invoice)
        return std::nullopt;
    Invoice cancelled = *found;
    Invoice cancellation = newFromProfile(InvoiceType::cancellation);
    copyContent(cancelled, cancellation);
    cancellation.number = nextCancellationNumber();
    if (const Profile* profile = m_profiles.activeProfile())
        cancellation.cancellationPrefix = profile->cancellationPrefix;
    cancellation.cancelledInvoiceId = cancelled.id;
    // A cancellation carries negative prices, also for credit lines that were negative already.
    for (InvoiceItem& item : cancellation.items)
        item.unitPrice = -std::fabs(item.unitPrice);
    cancellation.date = Clock::nowTimestamp();
    cancellation.statusUpdateDate = Clock::nowTimestamp();

    if (cancelled.status != Status::cancelled) {
        cancelled.status = Status::cancelled;
        cancelled.statusUpdateDate = Clock::nowTimestamp();
        saveInvoice(cancelled);
    }
    Invoice result = storeNew(cancellation);
    Q_EMIT invoiceCancelled(cancelled.id, result.id);
    return result;
}

std::optional<QString> InvoiceManager::deleteInvoice(const QUuid& id)
{
    const auto folder = invoicesFolder();
    const auto path = filePath(id);
    if (!folder || !invoice(id))
        return u"no such invoice"_s;
    if (path && QFileInfo::exists(*path) && !QFile::remove(*path))
        return QStringLiteral("cannot remove %1").arg(*path);
    // Reminders without their invoice would be orphans.
    for (const QString& name : jsonFileNames(*folder, idPrefix(id).toLatin1())) {
        if (!isReminderFileName(name))
            continue;
        const QString reminder = *folder + u'/' + name;
        if (uuidIn(reminder, "invoiceId"_L1) == id) {
            QFile::remove(reminder);
            m_stamps.remove(name);
        }
    }
    // Deleting an invoice deletes all its versions, or the next load would bring one back.
    for (const QString& name : m_conflicts.take(id)) {
        QFile::remove(*folder + u'/' + name);
        m_stamps.remove(name);
        m_conflictOwners.remove(name);
    }
    if (path)
        m_stamps.remove(QFileInfo(*path).fileName());
    m_fileNames.remove(id);
    m_invoices.removeIf([&](const Invoice& i) { return i.id == id; });
    Q_EMIT invoicesChanged();
    Q_EMIT invoiceRemoved(id);
    return std::nullopt;
}

int InvoiceManager::nextInvoiceNumber() const
{
    const Profile* profile = m_profiles.activeProfile();
    return profile ? NumberAssignment::nextNumber(InvoiceType::invoice, m_invoices, *profile) : 1;
}

int InvoiceManager::nextCancellationNumber() const
{
    const Profile* profile = m_profiles.activeProfile();
    return profile ? NumberAssignment::nextNumber(InvoiceType::cancellation, m_invoices, *profile) : 1;
}

int InvoiceManager::nextQuoteNumber() const
{
    const Profile* profile = m_profiles.activeProfile();
    return profile ? NumberAssignment::nextNumber(InvoiceType::quote, m_invoices, *profile) : 1;
}

std::optional<InvoiceItem> InvoiceManager::pasteItem() const
{
    if (!m_copiedItem)
        return std::nullopt;
    InvoiceItem item = *m_copiedItem;
    item.id = QUuid::createUuid();
    return item;
}

bool InvoiceManager::changedOnDisk(const QUuid& id) const
{
    const auto path = filePath(id);
    return path && stampOf(*path) != m_stamps.value(QFileInfo(*path).fileName());
}

bool InvoiceManager::placeFile(const QString& name, const Invoice& invoice, const QSet<QString>& onDisk)
{
    const QUuid id = invoice.id;
    const QString primary = m_fileNames.value(id);
    if (primary.isEmpty() || primary == name || !onDisk.contains(primary)) {
        // The invoice's own file, a new invoice, or the file it moved to.
        if (!primary.isEmpty() && primary != name)
            m_stamps.remove(primary);
        m_fileNames.insert(id, name);
        if (m_conflicts.contains(id) && m_conflicts[id].removeAll(name) > 0) {
            m_conflictOwners.remove(name);
            if (m_conflicts[id].isEmpty())
                m_conflicts.remove(id);
        }
        replaceOrAppend(invoice);
        return true;
    }
    // A second file for an invoice the store has: another version of it.
    if (!m_conflictOwners.contains(name)) {
        m_conflicts[id].append(name);
        m_conflicts[id].sort();
        m_conflictOwners.insert(name, id);
        qCInfo(lcStorage).noquote() << "InvoiceManager: Two files for invoice" << id.toString() << u':'
                                    << primary << "and" << name;
    }
    return false;
}

void InvoiceManager::dropFile(const QString& name)
{
    if (const auto owner = m_conflictOwners.constFind(name); owner != m_conflictOwners.constEnd()) {
        const QUuid id = *owner;
        m_conflictOwners.erase(owner);
        m_conflicts[id].removeAll(name);
        if (m_conflicts[id].isEmpty())
            m_conflicts.remove(id);
        return;
    }
    const QList<QUuid> gone = m_fileNames.keys(name);
    for (const QUuid& id : gone) {
        m_fileNames.remove(id);
        // Its other version, if any, is what remains of the invoice.
        if (const QStringList others = m_conflicts.take(id); !others.isEmpty()) {
            const QString next = others.first();
            m_conflictOwners.remove(next);
            if (others.size() > 1)
                m_conflicts.insert(id, others.mid(1));
            const auto folder = invoicesFolder();
            if (folder) {
                try {
                    const auto bytes = SyncFiles::readSettled(*folder + u'/' + next);
                    const Invoice invoice = InvoiceJson::decode(bytes.value_or(QByteArray()));
                    if (invoice.id == id) {
                        m_fileNames.insert(id, next);
                        replaceOrAppend(invoice);
                        continue;
                    }
                } catch (const JsonDecodeError&) {
                }
            }
        }
        m_invoices.removeIf([&](const Invoice& i) { return i.id == id; });
    }
}

void InvoiceManager::onFolderChanged()
{
    const auto folder = invoicesFolder();
    if (!folder)
        return;
    // Compare the folder with what the store last read or wrote; its own writes show no difference.
    QHash<QString, Stamp> onDisk;
    for (const QString& name : jsonFileNames(*folder))
        if (!isReminderFileName(name))
            onDisk.insert(name, stampOf(*folder + u'/' + name));
    QSet<QString> names;
    for (auto entry = onDisk.constBegin(); entry != onDisk.constEnd(); ++entry)
        names.insert(entry.key());
    bool changed = false;
    // Removals first, so that a file moved under a new name (another machine changed the date)
    // is taken as the invoice's file, not as a second version.
    const QStringList known = m_stamps.keys();
    for (const QString& name : known) {
        if (onDisk.contains(name))
            continue;
        dropFile(name);
        m_stamps.remove(name);
        changed = true;
    }
    QStringList changedNames;
    for (auto entry = onDisk.constBegin(); entry != onDisk.constEnd(); ++entry)
        if (!m_stamps.contains(entry.key()) || m_stamps.value(entry.key()) != entry.value())
            changedNames.append(entry.key());
    // Plain files before conflict copies: a copy that arrives with its original is the copy.
    std::sort(changedNames.begin(), changedNames.end(), [](const QString& a, const QString& b) {
        return std::pair(SyncFiles::isConflictCopy(a), a) < std::pair(SyncFiles::isConflictCopy(b), b);
    });
    for (const QString& name : std::as_const(changedNames)) {
        const QString path = *folder + u'/' + name;
        const auto bytes = SyncFiles::readSettled(path);
        if (!bytes)
            continue;
        try {
            const Invoice updated = InvoiceJson::decode(*bytes);
            placeFile(name, updated, names);
        } catch (const JsonDecodeError& error) {
            qCWarning(lcStorage).noquote()
                << "InvoiceManager: Error loading invoice from" << path + u':' << error.message();
        }
        m_stamps.insert(name, stampOf(path));
        changed = true;
    }
    if (!changed)
        return;
    bumpRefreshTrigger();
    Q_EMIT invoicesChanged();
}

std::optional<Invoice> InvoiceManager::conflictVersion(const QUuid& id, const QString& fileName,
                                                       QString* error) const
{
    const auto folder = invoicesFolder();
    if (!folder || !m_conflicts.value(id).contains(fileName)) {
        if (error)
            *error = u"%1 is no other version of this invoice"_s.arg(fileName);
        return std::nullopt;
    }
    const QString path = *folder + u'/' + fileName;
    QString problem;
    const auto bytes = SyncFiles::readSettled(path, &problem);
    try {
        if (!bytes)
            throw JsonDecodeError({}, problem);
        Invoice invoice = InvoiceJson::decode(*bytes);
        if (invoice.id != id)
            throw JsonDecodeError({}, u"it now holds another invoice"_s);
        return invoice;
    } catch (const JsonDecodeError& decodeError) {
        if (error)
            *error = path + u": "_s + decodeError.message();
        return std::nullopt;
    }
}

std::optional<QString> InvoiceManager::resolveConflict(const QUuid& id, const QString& fileName,
                                                       Resolution resolution, Invoice* created)
{
    const auto folder = invoicesFolder();
    QString error;
    const auto other = conflictVersion(id, fileName, &error);
    if (!folder || !other)
        return error;
    if (resolution == Resolution::keepOther) {
        // The other version is written as the record (under the record's name), then its copy goes.
        if (const auto saveError = saveInvoice(*other))
            return saveError;
    } else if (resolution == Resolution::keepBoth) {
        Invoice separate = *other;
        separate.id = QUuid::createUuid();
        separate.number = nextFreeNumber(separate);
        for (InvoiceItem& item : separate.items)
            item.id = QUuid::createUuid();
        if (const auto saveError = saveInvoice(separate))
            return saveError;
        if (created)
            *created = separate;
    }
    const QString path = *folder + u'/' + fileName;
    if (m_fileNames.value(id) != fileName && QFileInfo::exists(path) && !QFile::remove(path))
        return u"cannot remove %1"_s.arg(path);
    m_stamps.remove(fileName);
    m_conflictOwners.remove(fileName);
    m_conflicts[id].removeAll(fileName);
    if (m_conflicts[id].isEmpty())
        m_conflicts.remove(id);
    qCInfo(lcStorage).noquote() << "InvoiceManager: Conflict of invoice" << id.toString() << "resolved,"
                                << fileName
                                << (resolution == Resolution::keepThis    ? "discarded"
                                    : resolution == Resolution::keepOther ? "kept instead"
                                                                          : "kept as a new invoice");
    Q_EMIT invoicesChanged();
    Q_EMIT invoiceChanged(id);
    return std::nullopt;
}

const QHash<QUuid, QList<QUuid>>& InvoiceManager::duplicateNumbers() const
{
    if (!m_duplicates) {
        m_duplicates.emplace();
        const Profile* profile = m_profiles.activeProfile();
        if (profile) {
            QHash<QString, QList<QUuid>> byNumber;
            byNumber.reserve(m_invoices.size());
            for (const Invoice& invoice : m_invoices)
                byNumber[rawValue(invoice.type) + u'\n' + NumberFormat::displayNumber(invoice, *profile)]
                    .append(invoice.id);
            for (const QList<QUuid>& ids : std::as_const(byNumber)) {
                if (ids.size() < 2)
                    continue;
                for (const QUuid& id : ids) {
                    QList<QUuid> others = ids;
                    others.removeAll(id);
                    m_duplicates->insert(id, others);
                }
            }
        }
    }
    return *m_duplicates;
}

int InvoiceManager::nextFreeNumber(const Invoice& invoice) const
{
    const Profile* profile = m_profiles.activeProfile();
    if (!profile)
        return 1;
    int number = NumberAssignment::nextNumber(invoice.type, m_invoices, *profile);
    // One above the largest is free unless a format without a number chip, or one whose date
    // part differs, shows it already; then look further.
    QSet<QString> used;
    for (const Invoice& other : m_invoices)
        if (other.type == invoice.type && other.id != invoice.id)
            used.insert(NumberFormat::displayNumber(other, *profile));
    Invoice probe = invoice;
    for (int tries = 0; tries < 1000; ++tries, ++number) {
        probe.number = number;
        if (!used.contains(NumberFormat::displayNumber(probe, *profile)))
            break;
    }
    return number;
}

InvoiceFileWatcher::InvoiceFileWatcher(InvoiceManager& invoices, QObject* parent)
    : QObject(parent), m_invoices(invoices)
{
    connect(&m_fileWatcher, &FileWatcherManager::fileChanged, this, [this] {
        if (m_currentInvoiceId && m_invoices.changedOnDisk(*m_currentInvoiceId))
            Q_EMIT invoiceUpdated(*m_currentInvoiceId);
    });
    // The store moves the file when the invoice's date changes; follow it.
    connect(&m_invoices, &InvoiceManager::invoiceSaved, this, [this](const QUuid& id) {
        if (id == m_currentInvoiceId)
            setInvoice(id);
    });
}

void InvoiceFileWatcher::setInvoice(const std::optional<QUuid>& id)
{
    m_fileWatcher.stopAll();
    m_currentInvoiceId = id;
    if (!id)
        return;
    if (const auto path = m_invoices.filePath(*id))
        m_fileWatcher.watchFile(*path);
}
