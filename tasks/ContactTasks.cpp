#include "tasks/ContactTasks.h"

#include "exchange/ContactDropHandler.h"
#include "exchange/VCard.h"
#include "l10n/Strings.h"
#include "tasks/TaskError.h"
#include "tasks/Workspace.h"

using namespace Qt::Literals::StringLiterals;

namespace ContactTasks {

QList<Invoice> createInvoicesFromVCard(Workspace& workspace, const QByteArray& data)
{
    QList<Contact> contacts;
    try {
        contacts = ContactDropHandler::readContacts(data);
    } catch (const VCardError& error) {
        throw TaskError(u"Error parsing vCard: "_s + error.message());
    }
    if (contacts.isEmpty())
        throw TaskError(Strings::ui(u"The vCard holds no contact."));

    InvoiceManager& store = workspace.invoices();
    QList<Invoice> created;
    for (const Contact& contact : contacts) {
        Invoice invoice = store.createInvoice();
        ContactDropHandler::fillRecipient(invoice, contact);
        if (const auto error = store.saveInvoice(invoice))
            throw TaskError(Strings::ui(u"The invoice could not be saved: %1").arg(*error));
        created.append(invoice);
    }
    return created;
}

} // namespace ContactTasks
