#include "Commands.h"

#include "einvoice/PdfAttachments.h"
#include "util/Files.h"

#include <QDir>
#include <QFileInfo>

#include <cstdio>

using namespace Qt::Literals::StringLiterals;

namespace {

class AttachmentsCommand : public Command
{
public:
    QString name() const override { return u"attachments"_s; }
    QString summary() const override
    {
        return u"List the files embedded in a PDF and extract them, such as the XML of a hybrid e-invoice."_s;
    }

protected:
    void configure(QCommandLineParser& parser) override
    {
        parser.addOption(
            {u"xml"_s,
             u"Write the embedded invoice XML (factur-x.xml, xrechnung.xml, zugferd-invoice.xml) to "
             u"standard output, or to the file given with -o."_s});
        parser.addOption({{u"o"_s, u"output"_s}, u"With --xml: the file to write."_s, u"FILE"_s});
        parser.addOption({{u"x"_s, u"extract"_s}, u"Write every embedded file into DIR."_s, u"DIR"_s});
        parser.addPositionalArgument(u"FILE"_s, u"A PDF file."_s);
    }

    int run(const QCommandLineParser& parser) override
    {
        const QStringList arguments = parser.positionalArguments();
        if (arguments.size() != 1)
            return usageError(u"give exactly one PDF file"_s);
        const QString& path = arguments[0];
        QString readError;
        const std::optional<QByteArray> bytes = Files::read(path, &readError);
        if (!bytes)
            return fail(u"%1: cannot read the file: %2"_s.arg(path, readError));
        QList<PdfAttachments::Attachment> attachments;
        try {
            // Listing and extracting show every file; the invoice XML alone needs only its own.
            attachments =
                PdfAttachments::list(*bytes, parser.isSet(u"xml"_s) ? PdfAttachments::Contents::invoiceXml
                                                                    : PdfAttachments::Contents::all);
        } catch (const std::exception& error) {
            return fail(u"%1: not a readable PDF: %2"_s.arg(path, QString::fromUtf8(error.what())));
        }

        if (parser.isSet(u"xml"_s))
            return writeInvoiceXml(path, attachments, parser.value(u"output"_s));
        if (parser.isSet(u"extract"_s))
            return extract(attachments, parser.value(u"extract"_s));
        if (attachments.isEmpty()) {
            out() << path << ": no embedded files\n";
            return ExitCode::ok;
        }
        for (const PdfAttachments::Attachment& attachment : attachments) {
            if (!attachment.problem.isEmpty()) {
                out() << attachment.name << "  (not read: " << attachment.problem << ")\n";
                continue;
            }
            out() << attachment.name << "  " << attachment.data.size() << " bytes";
            const QString details =
                joinNonEmpty({attachment.mimeType, attachment.relationship, attachment.description});
            if (!details.isEmpty())
                out() << "  (" << details << ')';
            out() << '\n';
        }
        return ExitCode::ok;
    }

private:
    int writeInvoiceXml(const QString& path, const QList<PdfAttachments::Attachment>& attachments,
                        const QString& output)
    {
        const auto xml = PdfAttachments::invoiceXml(attachments);
        if (!xml)
            return fail(u"%1: no embedded invoice XML (looked for %2)"_s.arg(
                path, PdfAttachments::invoiceXmlNames().join(u", "_s)));
        if (!xml->problem.isEmpty())
            return fail(u"%1: %2"_s.arg(path, xml->problem));
        if (output.isEmpty()) {
            out().flush();
            std::fwrite(xml->data.constData(), 1, std::size_t(xml->data.size()), stdout);
            return ExitCode::ok;
        }
        if (const auto error = Files::writeAtomically(output, xml->data))
            return fail(u"%1: %2"_s.arg(output, *error));
        out() << output << '\n';
        return ExitCode::ok;
    }

    int extract(const QList<PdfAttachments::Attachment>& attachments, const QString& folder)
    {
        if (!QDir().mkpath(folder))
            return fail(u"%1: cannot create the folder"_s.arg(folder));
        int status = ExitCode::ok;
        for (const PdfAttachments::Attachment& attachment : attachments) {
            // Names come from the PDF: only the last part, so none can write outside the folder.
            const QString fileName = QFileInfo(attachment.name).fileName();
            if (fileName.isEmpty() || fileName == u".."_s) {
                status = fail(u"%1: skipped, not a usable file name"_s.arg(attachment.name));
                continue;
            }
            if (!attachment.problem.isEmpty()) {
                status = fail(u"%1: skipped, %2"_s.arg(attachment.name, attachment.problem));
                continue;
            }
            const QString target = QDir(folder).filePath(fileName);
            if (const auto error = Files::writeAtomically(target, attachment.data)) {
                status = fail(u"%1: %2"_s.arg(target, *error));
                continue;
            }
            out() << target << '\n';
        }
        return status;
    }
};

} // namespace

std::unique_ptr<Command> makeAttachmentsCommand()
{
    return std::make_unique<AttachmentsCommand>();
}
