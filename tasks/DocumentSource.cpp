#include "tasks/DocumentSource.h"

#include "model/InvoiceJson.h"
#include "numbering/NumberFormat.h"
#include "render/StylingManager.h"
#include "tasks/SyncTasks.h"
#include "tasks/TaskError.h"
#include "tasks/Workspace.h"
#include "util/Files.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

using namespace Qt::Literals::StringLiterals;

namespace {

bool refersToOthers(const Invoice& invoice)
{
    return invoice.cancelledInvoiceId || invoice.quoteId;
}

// Invoices live side by side in their profile's folder, so a file's neighbours are the
// invoices it may refer to.
QList<Invoice> invoicesBeside(const QString& path)
{
    QList<Invoice> invoices;
    const QDir folder = QFileInfo(path).absoluteDir();
    for (const QString& name : folder.entryList({u"*.json"_s}, QDir::Files)) {
        try {
            invoices.append(readInvoiceFile(folder.filePath(name)));
        } catch (const TaskError&) {
            // Not an invoice (a reminder, a broken file): not one that is referred to.
        }
    }
    return invoices;
}

Profile profileFromSnapshot(const Invoice& invoice)
{
    Profile profile = Profile::makeNew();
    profile.name = invoice.senderName;
    profile.businessName = invoice.senderBusinessName;
    profile.addressLineOne = invoice.senderAddressLineOne;
    profile.addressLineTwo = invoice.senderAddressLineTwo;
    profile.addressPostcode = invoice.senderAddressPostcode;
    profile.addressCity = invoice.senderAddressCity;
    profile.addressState = invoice.senderAddressState;
    profile.addressCountry = invoice.senderAddressCountry;
    profile.email = invoice.senderEmail;
    profile.phone = invoice.senderPhone;
    profile.website = invoice.senderWeb;
    profile.iban = invoice.senderIban;
    profile.bic = invoice.senderBic;
    profile.taxNumber = invoice.senderTaxNumber;
    profile.vatNumber = invoice.senderVatNumber;
    if (invoice.language)
        profile.language = *invoice.language;
    return profile;
}

} // namespace

Invoice readInvoiceFile(const QString& path)
{
    QString readError;
    // A file the user named: a pipe is read too, within the record's bound.
    const std::optional<QByteArray> bytes =
        Files::read(path, &readError, {Bounds::jsonRecordBytes, true, false});
    if (!bytes)
        throw TaskError(u"%1: cannot read the file: %2"_s.arg(path, readError));
    try {
        return InvoiceJson::decode(*bytes);
    } catch (const JsonDecodeError& error) {
        throw TaskError(u"%1: not a valid invoice: %2"_s.arg(path, error.message()));
    }
}

DocumentSource DocumentSource::of(Workspace& workspace, const Invoice& invoice)
{
    const Profile& profile = workspace.activeProfile();
    return {invoice,
            profile,
            workspace.activeStyling(),
            workspace.related(invoice),
            NumberFormat::displayNumber(invoice, profile),
            workspace.profiles().activeProfileFolder(),
            SyncTasks::numberClash(workspace, invoice)};
}

DocumentSource DocumentSource::fromFile(const QString& path)
{
    DocumentSource source;
    source.invoice = readInvoiceFile(path);
    source.profile = profileFromSnapshot(source.invoice);
    source.styling = Styling::makeNew(source.profile.addressCountry);
    if (refersToOthers(source.invoice))
        source.related = invoicesBeside(path);
    source.subject = path;
    return source;
}

DocumentSource DocumentSource::resolve(const QString& argument, const std::function<Workspace&()>& workspace)
{
    if (QFileInfo(argument).isFile())
        return fromFile(argument);
    if (argument.endsWith(u".json"_s) || argument.contains(u'/'))
        throw TaskError(u"%1: no such invoice file"_s.arg(argument));
    Workspace& data = workspace();
    DocumentSource source = of(data, data.find(argument));
    source.subject = argument;
    return source;
}

void DocumentSource::useStylingOf(const QString& folder)
{
    if (!QFileInfo(folder).isDir())
        throw TaskError(u"%1: no such profile folder"_s.arg(folder));
    const StylingManager manager(folder);
    if (manager.styling())
        styling = *manager.styling();
}
