#include "DocumentInputs.h"

#include "render/StylingManager.h"

#include <QFileInfo>

using namespace Qt::Literals::StringLiterals;

void addDocumentInputOptions(QCommandLineParser& parser)
{
    parser.addOption({u"profile-dir"_s,
                      u"The profile folder whose styling.json, logo and CSS are used (default: the invoice's "
                      u"profile)."_s,
                      u"DIR"_s});
    parser.addPositionalArgument(u"INVOICE"_s, u"An invoice file, or an invoice of the active profile."_s);
}

DocumentInputs documentInputs(const QCommandLineParser& parser, const QString& argument)
{
    InvoiceContext context = resolveInvoice(argument);
    Styling styling = Styling::makeNew(context.profile.addressCountry);
    if (const auto folder = stylingFolder(parser, context)) {
        StylingManager manager(*folder);
        styling = *manager.styling();
    }
    return {std::move(context), std::move(styling)};
}

QString defaultOutputPath(const QString& argument, const InvoiceContext& context, const QString& ending)
{
    const QFileInfo input(argument);
    if (input.isFile())
        return input.path() + u'/' + input.completeBaseName() + ending;
    return context.invoice.id.toString(QUuid::WithoutBraces).toUpper() + ending;
}
