#include "tasks/ViewerTasks.h"

#include "l10n/Strings.h"
#include "render/ReceivedEInvoiceDocument.h"
#include "util/Files.h"

#include <QFileInfo>

using namespace Qt::Literals::StringLiterals;

namespace ViewerTasks {

OpenedFile open(const QString& path)
{
    const QString name = QFileInfo(path).fileName();
    QString readError;
    const std::optional<QByteArray> bytes = Files::read(path, &readError);
    if (!bytes) {
        OpenedFile file;
        file.path = path;
        file.problem = Strings::ui(u"“%1” cannot be opened: %2"_s).arg(name, readError);
        return file;
    }
    OpenedFile file = openData(*bytes, name);
    file.path = path;
    return file;
}

OpenedFile openData(const QByteArray& bytes, const QString& name)
{
    OpenedFile file;
    file.path = name;
    file.bytes = bytes;
    file.einvoice = ReceivedEInvoice::read(bytes, name, &file.problem);
    return file;
}

QString html(const OpenedFile& file, Language language)
{
    if (file.einvoice)
        return ReceivedEInvoiceDocument::html(*file.einvoice, language);
    return ReceivedEInvoiceDocument::errorHtml(file.problem, language);
}

ValidationReport check(const OpenedFile& file)
{
    return EInvoiceValidator::shared().validateBytes(file.bytes);
}

ImportResult importAsInvoice(InvoiceManager& store, const Profile& profile, const OpenedFile& file)
{
    if (!file.einvoice)
        return {file.path, std::nullopt, file.problem, {}, false};
    return ImportTasks::importEInvoiceData(store, profile, file.path, file.bytes);
}

bool isViewable(const QString& path)
{
    const QString suffix = QFileInfo(path).suffix().toLower();
    return suffix == u"xml" || suffix == u"pdf";
}

} // namespace ViewerTasks
