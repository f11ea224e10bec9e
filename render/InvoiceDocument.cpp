#include "render/InvoiceDocument.h"

#include "calc/Totals.h"
#include "l10n/Strings.h"
#include "numbering/NumberFormat.h"
#include "payment/GiroCode.h"
#include "render/ColorMath.h"
#include "render/CssGuard.h"
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

// The non-empty ones of these lines, as text, one per line.
Html lines(const QStringList& parts)
{
    QList<Html> kept;
    for (const QString& part : parts)
        if (!part.trimmed().isEmpty())
            kept.append(part);
    return Html::join(kept, u"<br>"_html);
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

Html row(const Html& label, const Html& value, const QString& rowClass = {})
{
    const Html open = rowClass.isEmpty() ? u"<tr>"_html : u"<tr class=\""_html + rowClass + u"\">"_html;
    return open + u"<th class=\"label\">"_html + label + u"</th><td>"_html + value + u"</td></tr>"_html;
}

// Text with its line breaks kept.
Html multiline(const QString& text)
{
    QList<Html> parts;
    for (const QString& line : text.split(u'\n'))
        parts.append(line);
    return Html::join(parts, u"<br>"_html);
}

// Markdown text whose line breaks are kept.
Html markdownLines(const QString& text)
{
    QString markup = InvoiceDocument::inlineMarkdown(text).toString();
    markup.replace(u'\n', u"<br>"_s);
    return Html::trusted(markup);
}

// Style placeholders are filled with CSS that this file writes; the few values that come from
// the styling record are made safe where they are made (styleValues).
QString fillStyle(QString css, const QHash<QString, QString>& values)
{
    for (auto it = values.cbegin(); it != values.cend(); ++it)
        css.replace(u"{{"_s + it.key() + u"}}"_s, it.value());
    return css;
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

Html InvoiceDocument::inlineMarkdown(const QString& text)
{
    static const QRegularExpression strong(u"\\*\\*([^*\\n]+)\\*\\*"_s);
    static const QRegularExpression emphasis(u"(?<![*\\w])\\*([^*\\n]+)\\*(?![*\\w])"_s);
    // The patterns run over escaped text and add tags around what they matched: the one place
    // where markup is made from text, and no text can make a tag other than these two.
    QString out = Html(text).toString();
    out.replace(strong, u"<strong>\\1</strong>"_s);
    out.replace(emphasis, u"<em>\\1</em>"_s);
    return Html::trusted(out);
}

Html InvoiceDocument::linesHtml(const QStringList& lines, const QString& lineClass,
                                const std::optional<QList<int>>& shown)
{
    Html html;
    for (int n = 0; n < lines.size(); ++n) {
        if (!inBlocks(shown, n))
            continue;
        const QString& line = lines[n];
        html += u"<div class=\""_html + lineClass + u"\">"_html +
                (line.trimmed().isEmpty() ? u"&nbsp;"_html : inlineMarkdown(line)) + u"</div>"_html;
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

Html InvoiceDocument::loadTemplate(const QString& name, QString* error)
{
    QFile file(u":/render/"_s + name);
    if (!file.open(QIODevice::ReadOnly)) {
        if (error)
            *error = u"%1: %2"_s.arg(name, file.errorString());
        return {};
    }
    // The program's own resources: markup by definition.
    return Html::trusted(QString::fromUtf8(file.readAll()));
}

QString InvoiceDocument::errorPage(const QString& error)
{
    return (u"<!DOCTYPE html><html><head><meta charset=\"utf-8\"></head><body><h1>Error Loading Template</h1><p>"_html +
            error + u"</p></body></html>"_html)
        .toString();
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
        // The name stands in a quoted CSS string and may come from a received file.
        v[role.name + u"-font"_s] = CssGuard::stringContent(cut ? cut->family : role.family);
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
    return filledStyleSheet(loadTemplate(u"Template.css"_s, &error).toString());
}

QString InvoiceDocument::filledStyleSheet(const QString& css) const
{
    QHash<QString, QString> values = styleValues();
    QString filled = fillStyle(css, values);
    // "{{line}}" brings a placeholder of its own.
    return fillStyle(filled, {{u"line-style"_s, values.value(u"line-style"_s)}});
}

double InvoiceDocument::topReserve(double rem) const
{
    if (m_styling.marginalColumn || !m_styling.logo)
        return 0;
    return (m_styling.logoSize + 1) * rem;
}

// ---- letterhead -------------------------------------------------------------------------

Html InvoiceDocument::logoHtml() const
{
    if (!m_styling.logo)
        return {};
    QFile file(*m_styling.logo);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    const QByteArray data = file.readAll();
    const QString suffix = QFileInfo(*m_styling.logo).suffix().toLower();
    QString mime = suffix == u"png" ? u"image/png"_s : suffix == u"webp" ? u"image/webp"_s : u"image/jpeg"_s;
    QByteArray image = data;
    if (suffix == u"svg") {
        // An SVG is shown as an image, never put into the page as markup: in an image the
        // engine runs none of its scripts and loads nothing it names.
        mime = u"image/svg+xml"_s;
        QString svg = QString::fromUtf8(data);
        const QString align = m_styling.marginalColumn ? u"xMinYMax meet"_s : u"xMaxYMax meet"_s;
        static const QRegularExpression aspect(u"\\spreserveAspectRatio\\s*=\\s*(\"[^\"]*\"|'[^']*')"_s);
        static const QRegularExpression root(u"<svg\\b[^>]*>"_s);
        const QRegularExpressionMatch open = root.match(svg);
        if (open.hasMatch()) {
            QString tag = open.captured(0);
            tag.remove(aspect);
            tag.insert(4, u" preserveAspectRatio=\"%1\""_s.arg(align));
            // The page's style sheet cannot reach into an image: the colour goes in here.
            if (m_styling.recolorLogo && !tag.endsWith(u"/>"))
                tag += u"<style>svg, svg * { fill: %1; }</style>"_s.arg(logoColor());
            svg.replace(open.capturedStart(0), open.capturedLength(0), tag);
        }
        image = svg.toUtf8();
    }
    return u"<div class=\"logo\"><img src=\"data:"_html + mime + u";base64,"_html +
           QString::fromLatin1(image.toBase64()) + u"\" alt=\"\"></div>"_html;
}

QString InvoiceDocument::logoColor() const
{
    const bool dark = m_scheme == ColorScheme::dark;
    const QString& colour =
        m_styling.uses(AccentColorUsage::logo) ? m_styling.accentColor : m_styling.primaryColor;
    return ColorMath::withLightness(colour, dark ? 60 : 50, true);
}

Html InvoiceDocument::senderLine() const
{
    const Profile& p = m_profile;
    QStringList parts;
    parts << (p.businessName.isEmpty() ? p.name : p.businessName) << p.addressLineOne << p.addressLineTwo
          << (p.addressPostcode + u' ' + p.addressCity).trimmed();
    parts.removeIf([](const QString& part) { return part.trimmed().isEmpty(); });
    return parts.join(u" · "_s);
}

Html InvoiceDocument::recipientHtml() const
{
    const Invoice& i = m_invoice;
    QStringList parts{i.businessName,
                      i.name,
                      i.addressLineOne,
                      i.addressLineTwo,
                      (i.addressPostcode + u' ' + i.addressCity).trimmed(),
                      i.addressState};
    const QString senderCountry =
        m_profile.addressCountry.code.isEmpty() ? i.senderAddressCountry.code : m_profile.addressCountry.code;
    if (!i.addressCountry.code.isEmpty() && i.addressCountry.code != senderCountry) {
        const QLocale::Territory territory = QLocale::codeToTerritory(i.addressCountry.code);
        const QString name = territory == QLocale::AnyTerritory ? i.addressCountry.code
                                                                : QLocale::territoryToString(territory);
        parts << name.toUpper();
    }
    return lines(parts);
}

Html InvoiceDocument::shell(const Html& content, const QString& bodyClasses, QString* error,
                            const Html& paymentCode) const
{
    const Html page = loadTemplate(u"Shell.html"_s, error);
    if (page.isEmpty())
        return {};
    const Html css = loadTemplate(u"Template.css"_s, error);
    if (css.isEmpty())
        return {};

    const Profile& p = m_profile;
    const QString displayName = p.businessName.isEmpty() ? p.name : p.businessName;
    QHash<QString, Html> v;
    // Both style sheets are text inside <style>: neither can end the element. The user's own
    // comes after the template, so that it overrides it, and loads nothing from outside.
    v[u"template-css"_s] = Html::trusted(CssGuard::styleElementText(filledStyleSheet(css.toString())));
    v[u"custom-css"_s] = Html::trusted(CssGuard::userStyleSheet(m_styling.css.value_or(QString())));
    v[u"language"_s] = m_language == Language::german ? u"de"_s : u"en"_s;
    v[u"title"_s] = displayName;
    v[u"logo"_s] = logoHtml();
    v[u"address-row"_s] = u"<strong>"_html + displayName + u"</strong>"_html;
    const Html rest =
        lines({p.businessName.isEmpty() || p.name == p.businessName ? QString() : p.name, p.addressLineOne,
               p.addressLineTwo, (p.addressPostcode + u' ' + p.addressCity).trimmed(), p.addressState});
    if (!rest.isEmpty())
        v[u"address-row"_s] += u"<br>"_html + rest;
    v[u"contact"_s] = lines({p.email, p.phone, p.website});
    v[u"additional"_s] = lines(p.additional.split(u'\n'));
    const bool hasTaxNumber = !p.taxNumber.trimmed().isEmpty();
    const bool hasTaxData = hasTaxNumber || !p.vatNumber.trimmed().isEmpty();
    v[u"tax-label"_s] = hasTaxData ? text(hasTaxNumber ? u"Tax Number"_s : u"VAT Number"_s) : QString();
    v[u"tax-number"_s] = hasTaxNumber ? u"<div>"_html + p.taxNumber + u"</div>"_html : Html();
    v[u"vat-number"_s] = p.vatNumber.trimmed().isEmpty() ? Html()
                         : hasTaxNumber
                             ? u"<div>"_html + text(u"VAT ID"_s) + u" "_html + p.vatNumber + u"</div>"_html
                             : u"<div>"_html + p.vatNumber + u"</div>"_html;
    const bool hasBank = !p.iban.trimmed().isEmpty() || !p.bic.trimmed().isEmpty();
    v[u"bank-label"_s] = hasBank ? text(u"Bank Details"_s) : QString();
    v[u"iban"_s] =
        p.iban.trimmed().isEmpty() ? Html() : u"<div>IBAN "_html + groupedIban(p.iban) + u"</div>"_html;
    v[u"bic"_s] = p.bic.trimmed().isEmpty() ? Html() : u"<div>BIC "_html + p.bic + u"</div>"_html;
    v[u"payment-code"_s] = paymentCode;
    v[u"body-class"_s] = bodyClasses;
    v[u"content"_s] = content;
    return Html::fill(page, v);
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

Html InvoiceDocument::itemRows(const std::optional<QList<int>>& blocks, int firstRowBlock,
                               bool showQuantity) const
{
    const Invoice& i = m_invoice;
    const QString currency = i.currency.code;
    QSet<double> rates;
    for (const InvoiceItem& item : i.items)
        rates.insert(item.vatPercentage);
    const bool showRates = rates.size() > 1;
    Html html;
    int index = firstRowBlock;
    for (const InvoiceItem& item : i.items) {
        if (inBlocks(blocks, index++)) {
            Html cells = u"<td class=\"description\">"_html + multiline(item.item) + u"</td>"_html;
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
                cells += u"<td class=\"amount\">"_html + formatQuantity(item.quantity, m_language) +
                         u"&nbsp;"_html + unit + u"</td>"_html;
            }
            const Html rate = u"<span class=\"vat-rate\">"_html + text(u"VAT"_s) + u" "_html +
                              formatQuantity(item.vatPercentage, m_language) + u"&nbsp;%</span>"_html;
            Html price = formatAmount(item.unitPrice, currency, m_language);
            if (showRates && !showQuantity)
                price += rate;
            cells += u"<td class=\"amount\">"_html + price + u"</td>"_html;
            if (showQuantity) {
                Html total = formatAmount(Totals::lineNet(item, i.grossPrices), currency, m_language);
                if (showRates)
                    total += rate;
                cells += u"<td class=\"amount\">"_html + total + u"</td>"_html;
            }
            html += u"    <tr>"_html + cells + u"</tr>\n"_html;
        }
    }
    const int columns = showQuantity ? 4 : 2;
    for (int pad = 0; pad < paddingCount(); ++pad) {
        if (inBlocks(blocks, index++))
            html += u"    <tr class=\"empty-row\">"_html + Html::trusted(u"<td></td>"_s.repeated(columns)) +
                    u"</tr>\n"_html;
    }
    return html;
}

Html InvoiceDocument::totalBlock() const
{
    const Invoice& i = m_invoice;
    const QString currency = i.currency.code;
    const Totals::Summary sums = Totals::summarize(i);
    const bool showVat = !m_profile.hideVat && !sums.vatBreakdown.isEmpty();
    const bool hasDiscount = sums.discountValue != 0;
    auto amount = [&](double value) -> Html {
        if (Totals::round2(value) < 0)
            return u"&minus;"_html + formatAmount(-value, currency, m_language);
        return formatAmount(value, currency, m_language);
    };

    Html rows;
    rows += row(text(showVat || hasDiscount ? u"Subtotal"_s : u"Total"_s), amount(sums.netSubtotal),
                showVat || hasDiscount ? QString() : u"grand-total important"_s);
    if (hasDiscount) {
        Html label = text(u"Discount Percentage"_s);
        if (i.discountPercentage && *i.discountPercentage > 0)
            label += u" ("_html + formatQuantity(*i.discountPercentage, m_language) + u"&nbsp;%)"_html;
        else
            label = text(u"Discount"_s);
        rows += row(label, amount(-sums.discountValue));
    }
    if (showVat) {
        for (const Totals::VATAmount& vat : sums.vatBreakdown)
            rows += row(Html(text(u"VAT"_s) + u' ' + formatQuantity(vat.rate, m_language)) + u"&nbsp;%"_html,
                        amount(vat.vatAmount));
        if (sums.vatBreakdown.size() > 1)
            rows += row(text(u"Total VAT"_s), amount(sums.totalVat));
        rows += row(text(u"Total with VAT"_s), amount(sums.grossTotal), u"grand-total important"_s);
    } else if (hasDiscount) {
        rows += row(text(u"Total"_s), amount(sums.grossTotal), u"grand-total important"_s);
    }

    Html html = u"<div class=\"total-table\">\n"_html;
    const Html sumTable = u"<table class=\"sum-table\">"_html + rows + u"</table>\n"_html;
    // Without the marginal column the code stands beside the sums, inside the measured block.
    if (const Html code = m_styling.marginalColumn ? Html() : girocodeHtml(); !code.isEmpty())
        html += u"<div class=\"sums-with-code\">"_html + code + sumTable + u"</div>\n"_html;
    else
        html += sumTable;
    if (i.type == InvoiceType::invoice && i.daysToPay > 0) {
        QString notice = text(u"Payment Period Notice"_s);
        notice.replace(u"{days}"_s, QString::number(i.daysToPay));
        notice.replace(u"{date}"_s, formatDate(i.dueDate().localDate(), m_language));
        html += u"<div class=\"payment-notice\">"_html + notice + u"</div>\n"_html;
        if (i.skontoPercentage && i.skontoDays && *i.skontoPercentage > 0 && *i.skontoDays > 0) {
            QString skonto = text(u"Early Payment Discount Notice"_s);
            const double discounted = Totals::round2(sums.grossTotal * (1 - *i.skontoPercentage / 100));
            skonto.replace(u"{percent}"_s, formatQuantity(*i.skontoPercentage, m_language));
            skonto.replace(u"{date}"_s, formatDate(i.date.localDate().addDays(*i.skontoDays), m_language));
            skonto.replace(u"{amount}"_s, Totals::formatMoney(discounted, i.currency.code, m_language));
            html += u"<div class=\"payment-notice skonto\">"_html + skonto + u"</div>\n"_html;
        }
    }
    if (i.vatExemptionReason == VATExemptionReason::otherExemption) {
        if (const QString note = i.vatExemptionNote.value_or(QString()).trimmed(); !note.isEmpty())
            html += u"<div class=\"vat-annotation\">"_html + note + u"</div>\n"_html;
    } else if (const QString key = documentNoteKey(i.vatExemptionReason); !key.isEmpty()) {
        html += u"<div class=\"vat-annotation\">"_html + text(key) + u"</div>\n"_html;
    }
    if (!i.marginalNote.trimmed().isEmpty())
        html += u"<div class=\"marginal-note flow\">"_html + markdownLines(i.marginalNote) + u"</div>\n"_html;
    return html + u"</div>"_html;
}

QString InvoiceDocument::render(PageKind kind, const std::optional<QList<int>>& blocks,
                                const QString& extraClasses) const
{
    QString error;
    Html content = loadTemplate(u"InvoiceContent.html"_s, &error);
    if (content.isEmpty())
        return errorPage(error);

    const Invoice& i = m_invoice;
    const int notes = noteLineCount();
    const int firstRow = notes;
    const int rowCount = int(i.items.size()) + paddingCount();
    const int totalIndex = firstRow + rowCount;

    QHash<QString, Html> v;
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
    v[u"number"_s] = NumberFormat::displayNumber(i, m_profile);
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
            v[u"cancelled-invoice"_s] = row(text(u"Original Invoice"_s), *number);
    if (i.type == InvoiceType::invoice)
        if (const auto number = numberOf(i.quoteId))
            v[u"quote-number"_s] = row(text(u"Quote Number"_s), *number);
    Html additional;
    if (!i.leitwegId.trimmed().isEmpty())
        additional += row(text(u"Leitweg-ID"_s), i.leitwegId.trimmed());
    if (i.reference && !i.reference->trimmed().isEmpty())
        additional += row(text(u"Reference"_s), *i.reference);
    // Reverse charge and intra-community supplies must name the customer's VAT ID on the invoice.
    if (!i.vatNumber.trimmed().isEmpty())
        additional += row(text(u"Customer VAT ID"_s), i.vatNumber.trimmed());
    // "Label: value" lines of the sender's further numbers (customer number, register entry ...).
    for (const QString& line : i.senderAdditionalNumbers.split(u'\n', Qt::SkipEmptyParts)) {
        const qsizetype colon = line.indexOf(u':');
        if (colon > 0)
            additional += row(line.left(colon).trimmed(), line.mid(colon + 1).trimmed());
        else
            additional += row(QString(), line.trimmed());
    }
    v[u"additional-numbers"_s] = additional;
    v[u"sender-line"_s] = senderLine();
    v[u"recipient"_s] = recipientHtml();
    v[u"marginal-note"_s] = markdownLines(i.marginalNote);

    Html note;
    if (notes > 0) {
        note = linesHtml(i.note.split(u'\n'), u"note-line"_s, blocks);
        if (!note.isEmpty())
            note = u"<div class=\"note\">"_html + note + u"</div>"_html;
    }
    v[u"note"_s] = note;

    // A column of quantities says nothing when every line is one lump sum.
    const bool showQuantity = std::any_of(i.items.cbegin(), i.items.cend(), [](const InvoiceItem& item) {
        return item.quantity != 1 || item.unit != Unit::lumpSum;
    });
    v[u"description-label"_s] = text(u"Description"_s);
    v[u"price-label"_s] = text(u"Price"_s);
    v[u"quantity-column"_s] =
        showQuantity ? u"<th class=\"label amount\">"_html + text(u"Quantity"_s) + u"</th>"_html : Html();
    v[u"total-column"_s] =
        showQuantity ? u"<th class=\"label amount\">"_html + text(u"Total Price"_s) + u"</th>"_html : Html();
    v[u"items"_s] = itemRows(blocks, firstRow, showQuantity);
    v[u"total-block"_s] = inBlocks(blocks, totalIndex) ? totalBlock() : Html();

    bool pageHasRows = false;
    for (int r = firstRow; r < totalIndex; ++r)
        pageHasRows = pageHasRows || inBlocks(blocks, r);

    // Every placeholder in one pass: "{{...}}" typed into a note stays as it is.
    content = Html::fill(content, v);

    QStringList classes{pageKindClass(kind)};
    if (!note.isEmpty())
        classes << u"page-has-note"_s;
    if (!pageHasRows)
        classes << u"no-items-table"_s;
    if (!extraClasses.isEmpty())
        classes << extraClasses;
    if (kind == PageKind::middle || kind == PageKind::last)
        content = u"<div class=\"continuation-reserve\"></div>\n"_html + content;

    const Html page =
        shell(content, classes.join(u' '), &error, m_styling.marginalColumn ? girocodeHtml() : Html());
    return page.isEmpty() ? errorPage(error) : page.toString();
}

Html InvoiceDocument::girocodeHtml() const
{
    if (!m_styling.girocode)
        return {};
    const auto transfer = GiroCode::transferFor(m_invoice, m_profile);
    if (!transfer)
        return {};
    // The symbol is drawn from the encoder's modules: rectangles and numbers, no text of the data.
    const Html symbol =
        Html::trusted(QrCodeSvg::svg(GiroCode::payload(*transfer).toUtf8(), u"girocode-symbol"_s));
    if (symbol.isEmpty())
        return {};
    // The brand name means something to German readers only; English tables leave it empty.
    const QString heading = text(u"GiroCode"_s);
    return u"<figure class=\"girocode\">"_html + symbol + u"<figcaption>"_html +
           (heading.isEmpty() ? Html() : u"<h3>"_html + heading + u"</h3>"_html) +
           text(u"Scan with your banking app"_s) + u"</figcaption></figure>"_html;
}
