#include "DocumentInputs.h"

#include "render/StylingManager.h"

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
