#pragma once

#include "model/Invoice.h"
#include "model/Profile.h"
#include "render/Html.h"
#include "render/PaginatedDocument.h"
#include "render/Styling.h"

#include <QDate>
#include <QHash>
#include <QList>
#include <QString>

class WebFontManager;

enum class ColorScheme
{
    light,
    dark
};

// One invoice, quote or cancellation as an HTML page built from the resource templates
// "Shell.html", "Template.css" and "InvoiceContent.html". Built fresh for every rendering.
class InvoiceDocument : public PaginatedDocument
{
public:
    // `invoices` are the profile's invoices, to name the invoice that a cancellation cancels
    // and the quote an invoice came from. `fonts` defaults to the shared catalogue.
    InvoiceDocument(Invoice invoice, Profile profile, Styling styling, QList<Invoice> invoices = {},
                    ColorScheme scheme = ColorScheme::light, const WebFontManager* fonts = nullptr);

    QString render(PageKind kind, const std::optional<QList<int>>& blocks,
                   const QString& extraClasses = {}) const override;
    QStringList selectors() const override;
    int blockCount() const override;
    PageFormat pageFormat() const override { return m_styling.pageFormat; }
    int paddingCount() const override;
    std::optional<QString> headerSelector() const override { return QStringLiteral(".main-table thead"); }
    double topReserve(double rem) const override;

    const Invoice& invoice() const { return m_invoice; }
    const Styling& styling() const { return m_styling; }
    Language language() const { return m_language; }

    // "Template.css" with every style placeholder filled.
    QString styleSheet() const;
    // The same for a style sheet already loaded.
    QString filledStyleSheet(const QString& css) const;
    // The style placeholders and their values (without "{{" "}}").
    QHash<QString, QString> styleValues() const;

    // Helpers shared with the reminder letter. Markup is built as Html, so that every text
    // that meets it is escaped (render/Html.h).
    // Escaped text with **strong** and *emphasis*.
    static Html inlineMarkdown(const QString& text);
    // One <div class="LINE-CLASS"> per entry of `lines` whose index `shown` accepts (all
    // without a list), markdown applied, a blank line kept as a space; empty when none is shown.
    static Html linesHtml(const QStringList& lines, const QString& lineClass,
                          const std::optional<QList<int>>& shown = std::nullopt);
    // Page geometry: rounded to thousandths, whole numbers without a point.
    static QString formatGeometry(double value);
    // "1.234,50 €" in German, "€1,234.50" in English.
    static QString formatAmount(double amount, const QString& currency, Language language);
    static QString formatDate(QDate date, Language language, bool withYear = true);
    static QString formatQuantity(double quantity, Language language);
    static Html loadTemplate(const QString& name, QString* error);
    static QString errorPage(const QString& error);

protected:
    // `paymentCode` goes under the bank details of the marginal column.
    // The whole page; empty when a template is missing (`error` says why).
    Html shell(const Html& content, const QString& bodyClasses, QString* error,
               const Html& paymentCode = {}) const;
    QString text(const QString& key) const;
    Html logoHtml() const;
    // The colour a recoloured logo takes: primary or accent, as light as the page's text.
    QString logoColor() const;
    Html senderLine() const;
    Html recipientHtml() const;

private:
    int noteLineCount() const;
    Html itemRows(const std::optional<QList<int>>& blocks, int firstRowBlock, bool showQuantity) const;
    Html totalBlock() const;
    // The GiroCode with its caption, or empty when the styling or the invoice has none.
    Html girocodeHtml() const;

    Invoice m_invoice;
    Profile m_profile;
    Styling m_styling;
    QList<Invoice> m_invoices;
    ColorScheme m_scheme;
    const WebFontManager* m_fonts;
    Language m_language;
};
