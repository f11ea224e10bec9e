#include "render/InvoiceDocument.h"

#include "calc/Totals.h"
#include "l10n/Strings.h"
#include "numbering/NumberFormat.h"
#include "payment/GiroCode.h"
#include "render/ColorMath.h"
#include "render/QrCodeSvg.h"
#include "render/WebFontManager.h"

#include <QFile>
#include <QFileInfo>
#include <QLocale>
#include <QRegularExpression>

#include <algorithm>
#include <cmath>

using namespace Qt::Literals::StringLiterals;

QString pageKindClass(PageKind kind)
{
    switch (kind) {
    case PageKind::first:
        return u"page-first"_s;
    case PageKind::middle:
        return u"page-middle"_s;
    case PageKind::last:
        return u"page-last"_s;
    case PageKind::single:
        break;
    }
    return u"page-single"_s;
}

std::optional<PageKind> pageKindFromClass(QStringView text)
{
    const QStringView name = text.startsWith(u"page-") ? text.mid(5) : text;
    if (name == u"single")
        return PageKind::single;
    if (name == u"first")
        return PageKind::first;
    if (name == u"middle")
        return PageKind::middle;
    if (name == u"last")
        return PageKind::last;
    return std::nullopt;
}

PageSize pageSize(PageFormat format)
{
    if (format == PageFormat::usLetter)
        return {612, 792, 21.59, 27.94};
    return {595, 842, 21, 29.7};
}

namespace {

constexpr int minimumTableRows = 5;

QLocale localeOf(Language language)
{
    return language == Language::german ? QLocale(QLocale::German, QLocale::Germany)
                                        : QLocale(QLocale::English, QLocale::UnitedStates);
}

QString lines(const QStringList& parts)
{
    QStringList kept;
    for (const QString& part : parts)
        if (!part.trimmed().isEmpty())
            kept.append(part);
    return kept.join(u"<br>"_s);
}

QString groupedIban(const QString& iban)
{
    QString compact = iban;
    compact.remove(u' ');
    QStringList groups;
    for (qsizetype i = 0; i < compact.size(); i += 4)
        groups.append(compact.mid(i, 4));
    return groups.join(u' ');
}

QString row(const QString& label, const QString& value, const QString& rowClass = {})
{
    return u"<tr%1><th class=\"label\">%2</th><td>%3</td></tr>"_s.arg(
        rowClass.isEmpty() ? QString() : u" class=\"%1\""_s.arg(rowClass), label, value);
}

bool inBlocks(const std::optional<QList<int>>& blocks, int index)
{
    return !blocks || blocks->contains(index);
}

} // namespace

InvoiceDocument::InvoiceDocument(Invoice invoice, Profile profile, Styling styling, QList<Invoice> invoices,
                                 ColorScheme scheme, const WebFontManager* fonts)
    : m_invoice(std::move(invoice)), m_profile(std::move(profile)), m_styling(std::move(styling)),
      m_invoices(std::move(invoices)), m_scheme(scheme), m_fonts(fonts ? fonts : &WebFontManager::shared()),
      m_language(m_invoice.documentLanguage(m_profile))
{}

// ---- formatting -------------------------------------------------------------------------

QString InvoiceDocument::escape(const QString& text)
{
    QString out = text;
    out.replace(u'&', u"&amp;"_s);
    out.replace(u'<', u"&lt;"_s);
    out.replace(u'>', u"&gt;"_s);
    return out;
}

QString InvoiceDocument::inlineMarkdown(const QString& text)
{
    static const QRegularExpression strong(u"\\*\\*([^*\\n]+)\\*\\*"_s);
    static const QRegularExpression emphasis(u"(?<![*\\w])\\*([^*\\n]+)\\*(?![*\\w])"_s);
    QString out = escape(text);
    out.replace(strong, u"<strong>\\1</strong>"_s);
    out.replace(emphasis, u"<em>\\1</em>"_s);
    return out;
}

QString InvoiceDocument::linesHtml(const QStringList& lines, const QString& lineClass,
                                   const std::optional<QList<int>>& shown)
{
    QString html;
    for (int n = 0; n < lines.size(); ++n) {
        if (!inBlocks(shown, n))
            continue;
        const QString& line = lines[n];
        html += u"<div class=\""_s + lineClass + u"\">"_s +
                (line.trimmed().isEmpty() ? u"&nbsp;"_s : inlineMarkdown(line)) + u"</div>"_s;
    }
    return html;
}

QString InvoiceDocument::formatGeometry(double value)
{
    const double rounded = std::round(value * 1000) / 1000;
    if (rounded == std::floor(rounded))
        return QString::number(qint64(rounded));
    return QString::number(rounded, 'g', 12);
}

QString InvoiceDocument::formatAmount(double amount, const QString& currency, Language language)
{
    return Totals::formatMoney(amount, currency, language);
}

QString InvoiceDocument::formatDate(QDate date, Language language, bool withYear)
{
    return localeOf(language).toString(date, withYear ? u"d MMMM yyyy"_s : u"d MMMM"_s);
}

QString InvoiceDocument::formatQuantity(double quantity, Language language)
{
    return localeOf(language).toString(quantity, 'f', QLocale::FloatingPointShortest);
}

QString InvoiceDocument::fill(QString text, const QHash<QString, QString>& values)
{
    for (auto it = values.cbegin(); it != values.cend(); ++it)
        text.replace(u"{{"_s + it.key() + u"}}"_s, it.value());
    return text;
}

QString InvoiceDocument::loadTemplate(const QString& name, QString* error)
{
    QFile file(u":/render/"_s + name);
    if (!file.open(QIODevice::ReadOnly)) {
        if (error)
            *error = u"%1: %2"_s.arg(name, file.errorString());
        return {};
    }
    return QString::fromUtf8(file.readAll());
}

QString InvoiceDocument::errorPage(const QString& error)
{
    return u"<!DOCTYPE html><html><head><meta charset=\"utf-8\"></head><body><h1>Error Loading Template</h1><p>"_s +
           escape(error) + u"</p></body></html>"_s;
}

QString InvoiceDocument::text(const QString& key) const
{
    return Strings::text(key, m_language);
}

// ---- style sheet ------------------------------------------------------------------------

QHash<QString, QString> InvoiceDocument::styleValues() const
{
    const Styling& s = m_styling;
    const PageSize size = pageSize(s.pageFormat);
    // Whether a dark desktop gets a dark preview is the caller's decision (the user's setting).
    const bool dark = m_scheme == ColorScheme::dark;
    QHash<QString, QString> v;
    v[u"page-width"_s] = formatGeometry(size.widthRem);
    v[u"page-height"_s] = formatGeometry(size.heightRem);
    v[u"fold-mark-one"_s] = formatGeometry(s.pageFormat == PageFormat::usLetter ? 9.313 : 10.5);
    v[u"fold-mark-two"_s] = formatGeometry(s.pageFormat == PageFormat::usLetter ? 18.627 : 21);
    v[u"font-faces"_s] = m_fonts->fontFaceRules(s);
    v[u"background-color"_s] = dark ? u"#161616"_s : u"#FFFFFF"_s;
    v[u"mix-color"_s] = dark ? u"#FFFFFF"_s : u"#000000"_s;
    v[u"primary-color"_s] = ColorMath::withLightness(s.primaryColor, dark ? 60 : 50, true);
    v[u"primary-dark-color"_s] = ColorMath::withLightness(s.primaryColor, dark ? 80 : 20, true);
    v[u"accent-color"_s] = ColorMath::withLightness(s.accentColor, dark ? 60 : 50, true);
    v[u"accent-dark-color"_s] = ColorMath::withLightness(s.accentColor, dark ? 80 : 20, true);
    v[u"right-margin"_s] = s.marginalColumn ? u"6rem"_s : u"1.8rem"_s;

    struct Role
    {
        QString name;
        QString family;
        QString weight;
        std::optional<QString> face;
        int boldWeight;
        bool italic;
    };
    const auto bold = [](const QString& weight) { return std::max(weight.toInt(), 700); };
    const QList<Role> roles{
        {u"headline"_s, s.headlineFont, s.headlineFontWeight, s.headlineFontFace, 0, false},
        {u"primary"_s, s.primaryFont, s.primaryFontWeight, s.primaryFontFace, 0, false},
        {u"primary-bold"_s, s.primaryFont, s.primaryFontWeight, std::nullopt, bold(s.primaryFontWeight),
         false},
        {u"primary-italic"_s, s.primaryFont, s.primaryFontWeight, std::nullopt, 0, true},
        {u"secondary"_s, s.secondaryFont, s.secondaryFontWeight, s.secondaryFontFace, 0, false},
        {u"secondary-bold"_s, s.secondaryFont, s.secondaryFontWeight, std::nullopt,
         bold(s.secondaryFontWeight), false},
        {u"secondary-italic"_s, s.secondaryFont, s.secondaryFontWeight, std::nullopt, 0, true},
        {u"label"_s, s.labelFont, s.labelFontWeight, s.labelFontFace, 0, false},
    };
    for (const Role& role : roles) {
        const int weight =
            role.boldWeight ? role.boldWeight : (role.weight.toInt() > 0 ? role.weight.toInt() : 400);
        std::optional<FontCut> cut;
        if (!role.boldWeight && !role.italic)
            cut = m_fonts->face(role.family, role.weight, role.face);
        if (!cut)
            cut = m_fonts->closestFace(role.family, weight, role.italic);
        // A family missing from the catalogue keeps its name; the engine falls back by itself.
        v[role.name + u"-font"_s] = cut ? cut->family : role.family;
        v[role.name + u"-font-weight"_s] = cut ? cut->cssWeight : QString::number(weight);
        v[role.name + u"-font-style"_s] = (cut ? cut->isItalic : role.italic) ? u"italic"_s : u"normal"_s;
    }
    v[u"primary-font-feature-settings"_s] =
        s.primaryFont == u"iA Writer Duo" ? u"font-feature-settings: 'ss04';"_s : QString();
    v[u"show-headline"_s] = s.pageHeadline ? u"block"_s : u"none"_s;
    v[u"show-address-line"_s] = s.addressLine ? u"block"_s : u"none"_s;
    v[u"small-caps-font-feature"_s] =
        s.smallCapsLabels ? u"font-variant: all-small-caps;\n    letter-spacing: 0.02rem;"_s : QString();
    v[u"accent-labels"_s] = s.uses(AccentColorUsage::labels)
                                ? u"--primary: var(--accent);\n    background-color: none;"_s
                                : QString();
    v[u"primary-extralight-background"_s] =
        s.tintRowBackground ? u"background-color: var(--primary-extralight);"_s : QString();
    v[u"primary-light-background"_s] =
        s.tintRowBackground ? u"background-color: var(--primary-light);"_s : QString();
    v[u"line"_s] = u"border-bottom: {{line-style}} var(--primary-light);"_s;
    switch (s.lineStyle) {
    case LineStyle::single:
        v[u"line-style"_s] = u"solid"_s;
        v[u"line-width"_s] = u"0.04"_s;
        break;
    case LineStyle::doubleLine:
        v[u"line-style"_s] = u"double"_s;
        v[u"line-width"_s] = u"0.07"_s;
        break;
    case LineStyle::dotted:
        v[u"line-style"_s] = u"dotted"_s;
        v[u"line-width"_s] = u"0.05"_s;
        break;
    case LineStyle::dashed:
        v[u"line-style"_s] = u"dashed"_s;
        v[u"line-width"_s] = u"0.05"_s;
        break;
    }
    v[u"accent-tint"_s] =
        s.uses(AccentColorUsage::important)
            ? u"--primary: var(--accent);\n    --primary-dark: var(--accent-dark);\n    "
              u"--primary-light: var(--accent-light);\n    --primary-extralight: var(--accent-extralight);"_s
            : QString();
    v[u"recolor-logo"_s] = s.recolorLogo ? u"fill: var(--primary);"_s : QString();
    v[u"accent-logo"_s] = s.uses(AccentColorUsage::logo) ? u"--primary: var(--accent);"_s : QString();
    v[u"accent-headline"_s] = s.uses(AccentColorUsage::headline) ? u"color: var(--accent);"_s : QString();
    v[u"logo-size"_s] = QString::asprintf("%.1frem", s.logoSize);
    v[u"show-sidebar"_s] = s.marginalColumn ? u"1"_s : u"0"_s;
    v[u"show-footer"_s] = s.marginalColumn ? u"0"_s : u"1"_s;
    v[u"sidebar-display"_s] = s.marginalColumn ? u"block"_s : u"none"_s;
    v[u"footer-display"_s] = s.marginalColumn ? u"none"_s : u"block"_s;
    v[u"background-grid"_s] =
        s.backgroundPattern == BackgroundPattern::dots
            ? u"background-image: radial-gradient(var(--primary-light) 0.04rem, transparent 0);\n    "
              u"background-size: 0.6rem 0.6rem;\n    background-position-x: center;\n    background-position-y: center;"_s
            : QString();
    v[u"background-frame"_s] =
        s.backgroundPattern == BackgroundPattern::frame
            ? u"body::before, body::after {\n    content: '';\n    position: absolute;\n    top: 0;\n    "
              u"left: 0;\n"
              u"    z-index: -10;\n    opacity: 0.6;\n}\n"
              u"body::before {\n    width: 18.5rem;\n    height: 27.2rem;\n    margin: 1.2rem;\n"
              u"    background-color: var(--primary-light);\n}\n"
              u"body::after {\n    width: 18.9rem;\n    height: 27.6rem;\n    margin: 0.9rem;\n"
              u"    border: 0.2rem solid var(--primary-light);\n}\n"_s
            : QString();
    // Continuation pages keep room for the logo when it sits above the text column.
    v[u"top-reserve"_s] = formatGeometry(!s.marginalColumn && s.logo ? s.logoSize + 1 : 0);
    return v;
}

QString InvoiceDocument::styleSheet() const
{
    QString error;
    return filledStyleSheet(loadTemplate(u"Template.css"_s, &error));
}

QString InvoiceDocument::filledStyleSheet(const QString& css) const
{
    QHash<QString, QString> values = styleValues();
    QString filled = fill(css, values);
    // "{{line}}" brings a placeholder of its own.
    return fill(filled, {{u"line-style"_s, values.value(u"line-style"_s)}});
}

double InvoiceDocument::topReserve(double rem) const
{
    if (m_styling.marginalColumn || !m_styling.logo)
        return 0;
    return (m_styling.logoSize + 1) * rem;
}

// ---- letterhead -------------------------------------------------------------------------

QString InvoiceDocument::logoHtml() const
{
    if (!m_styling.logo)
        return {};
    QFile file(*m_styling.logo);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    const QByteArray data = file.readAll();
    const QString suffix = QFileInfo(*m_styling.logo).suffix().toLower();
    const QString align = m_styling.marginalColumn ? u"xMinYMax meet"_s : u"xMaxYMax meet"_s;
    if (suffix == u"svg") {
        QString svg = QString::fromUtf8(data);
        // Drop the XML prolog and doctype: the markup sits inside the page.
        svg.remove(QRegularExpression(u"<\\?xml[^>]*\\?>"_s));
        svg.remove(QRegularExpression(u"<!DOCTYPE[^>]*>"_s, QRegularExpression::CaseInsensitiveOption));
        static const QRegularExpression aspect(u"\\spreserveAspectRatio\\s*=\\s*(\"[^\"]*\"|'[^']*')"_s);
        svg.remove(aspect);
        svg.replace(QRegularExpression(u"<svg\\b"_s), u"<svg preserveAspectRatio=\"%1\""_s.arg(align));
        return u"<div class='logo'>"_s + svg + u"</div>"_s;
    }
    const QString mime = suffix == u"png"    ? u"image/png"_s
                         : suffix == u"webp" ? u"image/webp"_s
                                             : u"image/jpeg"_s;
    return u"<div class='logo'><img src=\"data:%1;base64,%2\" alt=\"\"></div>"_s.arg(
        mime, QString::fromLatin1(data.toBase64()));
}

QString InvoiceDocument::senderLine() const
{
    const Profile& p = m_profile;
    QStringList parts;
    parts << (p.businessName.isEmpty() ? p.name : p.businessName) << p.addressLineOne << p.addressLineTwo
          << (p.addressPostcode + u' ' + p.addressCity).trimmed();
    parts.removeIf([](const QString& part) { return part.trimmed().isEmpty(); });
    return escape(parts.join(u" · "_s));
}

QString InvoiceDocument::recipientHtml() const
{
    const Invoice& i = m_invoice;
    QStringList parts{escape(i.businessName),
                      escape(i.name),
                      escape(i.addressLineOne),
                      escape(i.addressLineTwo),
                      escape((i.addressPostcode + u' ' + i.addressCity).trimmed()),
                      escape(i.addressState)};
    const QString senderCountry =
        m_profile.addressCountry.code.isEmpty() ? i.senderAddressCountry.code : m_profile.addressCountry.code;
    if (!i.addressCountry.code.isEmpty() && i.addressCountry.code != senderCountry) {
        const QLocale::Territory territory = QLocale::codeToTerritory(i.addressCountry.code);
        const QString name = territory == QLocale::AnyTerritory ? i.addressCountry.code
                                                                : QLocale::territoryToString(territory);
        parts << escape(name.toUpper());
    }
    return lines(parts);
}

QString InvoiceDocument::shell(const QString& content, const QString& bodyClasses, QString* error,
                               const QString& paymentCode) const
{
    QString page = loadTemplate(u"Shell.html"_s, error);
    if (page.isEmpty())
        return {};
    QString css = loadTemplate(u"Template.css"_s, error);
    if (css.isEmpty())
        return {};
    page.replace(u"<link rel=\"stylesheet\" href=\"Template.css\">"_s,
                 u"<style>\n"_s + filledStyleSheet(css) + u"\n</style>"_s);
    page.replace(u"{{custom-css}}"_s, m_styling.css.value_or(QString()));

    const Profile& p = m_profile;
    const QString displayName = p.businessName.isEmpty() ? p.name : p.businessName;
    QHash<QString, QString> v;
    v[u"language"_s] = m_language == Language::german ? u"de"_s : u"en"_s;
    v[u"title"_s] = escape(displayName);
    v[u"logo"_s] = logoHtml();
    v[u"address-row"_s] =
        lines({u"<strong>"_s + escape(displayName) + u"</strong>"_s,
               p.businessName.isEmpty() || p.name == p.businessName ? QString() : escape(p.name),
               escape(p.addressLineOne), escape(p.addressLineTwo),
               escape((p.addressPostcode + u' ' + p.addressCity).trimmed()), escape(p.addressState)});
    v[u"contact"_s] = lines({escape(p.email), escape(p.phone), escape(p.website)});
    v[u"additional"_s] = lines(escape(p.additional).split(u'\n'));
    const bool hasTaxNumber = !p.taxNumber.trimmed().isEmpty();
    const bool hasTaxData = hasTaxNumber || !p.vatNumber.trimmed().isEmpty();
    v[u"tax-label"_s] = hasTaxData ? text(hasTaxNumber ? u"Tax Number"_s : u"VAT Number"_s) : QString();
    v[u"tax-number"_s] = hasTaxNumber ? u"<div>"_s + escape(p.taxNumber) + u"</div>"_s : QString();
    v[u"vat-number"_s] = p.vatNumber.trimmed().isEmpty() ? QString()
                         : hasTaxNumber
                             ? u"<div>"_s + text(u"VAT ID"_s) + u" "_s + escape(p.vatNumber) + u"</div>"_s
                             : u"<div>"_s + escape(p.vatNumber) + u"</div>"_s;
    const bool hasBank = !p.iban.trimmed().isEmpty() || !p.bic.trimmed().isEmpty();
    v[u"bank-label"_s] = hasBank ? text(u"Bank Details"_s) : QString();
    v[u"iban"_s] =
        p.iban.trimmed().isEmpty() ? QString() : u"<div>IBAN "_s + escape(groupedIban(p.iban)) + u"</div>"_s;
    v[u"bic"_s] = p.bic.trimmed().isEmpty() ? QString() : u"<div>BIC "_s + escape(p.bic) + u"</div>"_s;
    v[u"payment-code"_s] = paymentCode;
    v[u"body-class"_s] = bodyClasses;
    // The content goes in last, so that placeholders typed by users stay as they are.
    page = fill(page, v);
    page.replace(u"{{content}}"_s, content);
    return page;
}

// ---- content ----------------------------------------------------------------------------

int InvoiceDocument::noteLineCount() const
{
    return m_invoice.note.trimmed().isEmpty() ? 0 : int(m_invoice.note.split(u'\n').size());
}

int InvoiceDocument::paddingCount() const
{
    if (!m_styling.emptyItemRows)
        return 0;
    return std::max(0, minimumTableRows - int(m_invoice.items.size()));
}

QStringList InvoiceDocument::selectors() const
{
    return {u".note-line"_s, u".main-table tbody tr"_s, u".total-table"_s};
}

int InvoiceDocument::blockCount() const
{
    return noteLineCount() + int(m_invoice.items.size()) + paddingCount() + 1;
}

QString InvoiceDocument::itemRows(const std::optional<QList<int>>& blocks, int firstRowBlock,
                                  bool showQuantity) const
{
    const Invoice& i = m_invoice;
    const QString currency = i.currency.code;
    QSet<double> rates;
    for (const InvoiceItem& item : i.items)
        rates.insert(item.vatPercentage);
    const bool showRates = rates.size() > 1;
    QString html;
    int index = firstRowBlock;
    for (const InvoiceItem& item : i.items) {
        if (inBlocks(blocks, index++)) {
            QString description = escape(item.item).replace(u'\n', u"<br>"_s);
            QString cells = u"<td class=\"description\">"_s + description + u"</td>"_s;
            if (showQuantity) {
                QString unit;
                const bool one = item.quantity == 1;
                switch (item.unit) {
                case Unit::piece:
                    unit = text(one ? u"Piece"_s : u"Pieces"_s);
                    break;
                case Unit::hour:
                    unit = text(one ? u"Hour"_s : u"Hours"_s);
                    break;
                case Unit::day:
                    unit = text(one ? u"Day"_s : u"Days"_s);
                    break;
                case Unit::week:
                    unit = text(one ? u"Week"_s : u"Weeks"_s);
                    break;
                case Unit::lumpSum:
                    unit = text(u"Lump Sum"_s);
                    break;
                }
                cells += u"<td class=\"amount\">"_s + formatQuantity(item.quantity, m_language) +
                         u"&nbsp;"_s + escape(unit) + u"</td>"_s;
            }
            QString price = formatAmount(item.unitPrice, currency, m_language);
            if (showRates && !showQuantity)
                price += u"<span class=\"vat-rate\">"_s + text(u"VAT"_s) + u" "_s +
                         formatQuantity(item.vatPercentage, m_language) + u"&nbsp;%</span>"_s;
            cells += u"<td class=\"amount\">"_s + price + u"</td>"_s;
            if (showQuantity) {
                QString total = formatAmount(Totals::lineNet(item, i.grossPrices), currency, m_language);
                if (showRates)
                    total += u"<span class=\"vat-rate\">"_s + text(u"VAT"_s) + u" "_s +
                             formatQuantity(item.vatPercentage, m_language) + u"&nbsp;%</span>"_s;
                cells += u"<td class=\"amount\">"_s + total + u"</td>"_s;
            }
            html += u"    <tr>"_s + cells + u"</tr>\n"_s;
        }
    }
    const int columns = showQuantity ? 4 : 2;
    for (int pad = 0; pad < paddingCount(); ++pad) {
        if (inBlocks(blocks, index++))
            html += u"    <tr class=\"empty-row\">"_s + u"<td></td>"_s.repeated(columns) + u"</tr>\n"_s;
    }
    return html;
}

QString InvoiceDocument::totalBlock() const
{
    const Invoice& i = m_invoice;
    const QString currency = i.currency.code;
    const Totals::Summary sums = Totals::summarize(i);
    const bool showVat = !m_profile.hideVat && !sums.vatBreakdown.isEmpty();
    const bool hasDiscount = sums.discountValue != 0;
    auto amount = [&](double value) {
        if (Totals::round2(value) < 0)
            return u"&minus;"_s + formatAmount(-value, currency, m_language);
        return formatAmount(value, currency, m_language);
    };

    QString rows;
    rows += row(text(showVat || hasDiscount ? u"Subtotal"_s : u"Total"_s), amount(sums.netSubtotal),
                showVat || hasDiscount ? QString() : u"grand-total important"_s);
    if (hasDiscount) {
        QString label = text(u"Discount Percentage"_s);
        if (i.discountPercentage && *i.discountPercentage > 0)
            label += u" ("_s + formatQuantity(*i.discountPercentage, m_language) + u"&nbsp;%)"_s;
        else
            label = text(u"Discount"_s);
        rows += row(label, amount(-sums.discountValue));
    }
    if (showVat) {
        for (const Totals::VATAmount& vat : sums.vatBreakdown)
            rows += row(text(u"VAT"_s) + u" "_s + formatQuantity(vat.rate, m_language) + u"&nbsp;%"_s,
                        amount(vat.vatAmount));
        if (sums.vatBreakdown.size() > 1)
            rows += row(text(u"Total VAT"_s), amount(sums.totalVat));
        rows += row(text(u"Total with VAT"_s), amount(sums.grossTotal), u"grand-total important"_s);
    } else if (hasDiscount) {
        rows += row(text(u"Total"_s), amount(sums.grossTotal), u"grand-total important"_s);
    }

    QString html = u"<div class=\"total-table\">\n"_s;
    const QString sumTable = u"<table class=\"sum-table\">"_s + rows + u"</table>\n"_s;
    // Without the marginal column the code stands beside the sums, inside the measured block.
    if (const QString code = m_styling.marginalColumn ? QString() : girocodeHtml(); !code.isEmpty())
        html += u"<div class=\"sums-with-code\">"_s + code + sumTable + u"</div>\n"_s;
    else
        html += sumTable;
    if (i.type == InvoiceType::invoice && i.daysToPay > 0) {
        QString notice = text(u"Payment Period Notice"_s);
        notice.replace(u"{days}"_s, QString::number(i.daysToPay));
        notice.replace(u"{date}"_s, formatDate(i.dueDate().localDate(), m_language));
        html += u"<div class=\"payment-notice\">"_s + escape(notice) + u"</div>\n"_s;
        if (i.skontoPercentage && i.skontoDays && *i.skontoPercentage > 0 && *i.skontoDays > 0) {
            QString skonto = text(u"Early Payment Discount Notice"_s);
            const double discounted = Totals::round2(sums.grossTotal * (1 - *i.skontoPercentage / 100));
            skonto.replace(u"{percent}"_s, formatQuantity(*i.skontoPercentage, m_language));
            skonto.replace(u"{date}"_s, formatDate(i.date.localDate().addDays(*i.skontoDays), m_language));
            skonto.replace(u"{amount}"_s, Totals::formatMoney(discounted, i.currency.code, m_language));
            html += u"<div class=\"payment-notice skonto\">"_s + escape(skonto) + u"</div>\n"_s;
        }
    }
    if (i.vatExemptionReason == VATExemptionReason::otherExemption) {
        if (const QString note = i.vatExemptionNote.value_or(QString()).trimmed(); !note.isEmpty())
            html += u"<div class=\"vat-annotation\">"_s + escape(note) + u"</div>\n"_s;
    } else if (const QString key = documentNoteKey(i.vatExemptionReason); !key.isEmpty()) {
        html += u"<div class=\"vat-annotation\">"_s + escape(text(key)) + u"</div>\n"_s;
    }
    if (!i.marginalNote.trimmed().isEmpty())
        html += u"<div class=\"marginal-note flow\">"_s +
                inlineMarkdown(i.marginalNote).replace(u'\n', u"<br>"_s) + u"</div>\n"_s;
    return html + u"</div>"_s;
}

QString InvoiceDocument::render(PageKind kind, const std::optional<QList<int>>& blocks,
                                const QString& extraClasses) const
{
    QString error;
    QString content = loadTemplate(u"InvoiceContent.html"_s, &error);
    if (content.isEmpty())
        return errorPage(error);

    const Invoice& i = m_invoice;
    const int notes = noteLineCount();
    const int firstRow = notes;
    const int rowCount = int(i.items.size()) + paddingCount();
    const int totalIndex = firstRow + rowCount;

    QHash<QString, QString> v;
    switch (i.type) {
    case InvoiceType::invoice:
        v[u"headline"_s] = text(u"Invoice"_s);
        v[u"number-type"_s] = text(u"Invoice Number"_s);
        break;
    case InvoiceType::quote:
        v[u"headline"_s] = text(u"Quote"_s);
        v[u"number-type"_s] = text(u"Quote Number"_s);
        break;
    case InvoiceType::cancellation:
        v[u"headline"_s] = text(u"Cancellation Invoice"_s);
        v[u"number-type"_s] = text(u"Cancellation Invoice Number"_s);
        break;
    }
    v[u"number"_s] = escape(NumberFormat::displayNumber(i, m_profile));
    v[u"date-label"_s] = text(u"Date"_s);
    v[u"date"_s] = formatDate(i.date.localDate(), m_language);
    if (i.type != InvoiceType::quote) {
        const QDate start = i.serviceDateStart.localDate();
        if (i.serviceDateEnd && i.serviceDateEnd->localDate() != start) {
            const QDate end = i.serviceDateEnd->localDate();
            v[u"service-date"_s] =
                row(text(u"Service Period"_s), formatDate(start, m_language, start.year() != end.year()) +
                                                   u" – "_s + formatDate(end, m_language));
        } else {
            v[u"service-date"_s] = row(text(u"Service Date"_s), formatDate(start, m_language));
        }
    }
    auto numberOf = [&](const std::optional<QUuid>& id) -> std::optional<QString> {
        if (!id)
            return std::nullopt;
        for (const Invoice& other : m_invoices)
            if (other.id == *id)
                return NumberFormat::displayNumber(other, m_profile);
        return std::nullopt;
    };
    if (i.type == InvoiceType::cancellation)
        if (const auto number = numberOf(i.cancelledInvoiceId))
            v[u"cancelled-invoice"_s] = row(text(u"Original Invoice"_s), escape(*number));
    if (i.type == InvoiceType::invoice)
        if (const auto number = numberOf(i.quoteId))
            v[u"quote-number"_s] = row(text(u"Quote Number"_s), escape(*number));
    QString additional;
    if (!i.leitwegId.trimmed().isEmpty())
        additional += row(text(u"Leitweg-ID"_s), escape(i.leitwegId.trimmed()));
    if (i.reference && !i.reference->trimmed().isEmpty())
        additional += row(text(u"Reference"_s), escape(*i.reference));
    // Reverse charge and intra-community supplies must name the customer's VAT ID on the invoice.
    if (!i.vatNumber.trimmed().isEmpty())
        additional += row(text(u"Customer VAT ID"_s), escape(i.vatNumber.trimmed()));
    // "Label: value" lines of the sender's further numbers (customer number, register entry ...).
    for (const QString& line : i.senderAdditionalNumbers.split(u'\n', Qt::SkipEmptyParts)) {
        const qsizetype colon = line.indexOf(u':');
        if (colon > 0)
            additional += row(escape(line.left(colon).trimmed()), escape(line.mid(colon + 1).trimmed()));
        else
            additional += row(QString(), escape(line.trimmed()));
    }
    v[u"additional-numbers"_s] = additional;
    v[u"sender-line"_s] = senderLine();
    v[u"recipient"_s] = recipientHtml();
    v[u"marginal-note"_s] = inlineMarkdown(i.marginalNote).replace(u'\n', u"<br>"_s);

    QString note;
    if (notes > 0) {
        note = linesHtml(i.note.split(u'\n'), u"note-line"_s, blocks);
        if (!note.isEmpty())
            note = u"<div class=\"note\">"_s + note + u"</div>"_s;
    }
    v[u"note"_s] = note;

    // A column of quantities says nothing when every line is one lump sum.
    const bool showQuantity = std::any_of(i.items.cbegin(), i.items.cend(), [](const InvoiceItem& item) {
        return item.quantity != 1 || item.unit != Unit::lumpSum;
    });
    v[u"description-label"_s] = text(u"Description"_s);
    v[u"price-label"_s] = text(u"Price"_s);
    v[u"quantity-column"_s] =
        showQuantity ? u"<th class=\"label amount\">"_s + text(u"Quantity"_s) + u"</th>"_s : QString();
    v[u"total-column"_s] =
        showQuantity ? u"<th class=\"label amount\">"_s + text(u"Total Price"_s) + u"</th>"_s : QString();
    v[u"items"_s] = itemRows(blocks, firstRow, showQuantity);
    v[u"total-block"_s] = inBlocks(blocks, totalIndex) ? totalBlock() : QString();

    bool pageHasRows = false;
    for (int r = firstRow; r < totalIndex; ++r)
        pageHasRows = pageHasRows || inBlocks(blocks, r);

    // Placeholders first, user text last: "{{...}}" typed into a note stays literal.
    static const QStringList userFields{u"note"_s,
                                        u"items"_s,
                                        u"total-block"_s,
                                        u"recipient"_s,
                                        u"sender-line"_s,
                                        u"marginal-note"_s,
                                        u"additional-numbers"_s,
                                        u"number"_s,
                                        u"cancelled-invoice"_s,
                                        u"quote-number"_s};
    QHash<QString, QString> structural = v;
    for (const QString& key : userFields)
        structural.remove(key);
    content = fill(content, structural);
    for (const QString& key : userFields)
        content.replace(u"{{"_s + key + u"}}"_s, v.value(key));

    QStringList classes{pageKindClass(kind)};
    if (!note.isEmpty())
        classes << u"page-has-note"_s;
    if (!pageHasRows)
        classes << u"no-items-table"_s;
    if (!extraClasses.isEmpty())
        classes << extraClasses;
    if (kind == PageKind::middle || kind == PageKind::last)
        content.prepend(u"<div class=\"continuation-reserve\"></div>\n"_s);

    const QString page =
        shell(content, classes.join(u' '), &error, m_styling.marginalColumn ? girocodeHtml() : QString());
    return page.isEmpty() ? errorPage(error) : page;
}

QString InvoiceDocument::girocodeHtml() const
{
    if (!m_styling.girocode)
        return {};
    const auto transfer = GiroCode::transferFor(m_invoice, m_profile);
    if (!transfer)
        return {};
    const QString symbol = QrCodeSvg::svg(GiroCode::payload(*transfer).toUtf8(), u"girocode-symbol"_s);
    if (symbol.isEmpty())
        return {};
    // The brand name means something to German readers only; English tables leave it empty.
    const QString heading = text(u"GiroCode"_s);
    return u"<figure class=\"girocode\">"_s + symbol + u"<figcaption>"_s +
           (heading.isEmpty() ? QString() : u"<h3>"_s + escape(heading) + u"</h3>"_s) +
           escape(text(u"Scan with your banking app"_s)) + u"</figcaption></figure>"_s;
}
