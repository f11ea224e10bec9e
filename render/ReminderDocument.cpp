#include "render/ReminderDocument.h"

#include "numbering/NumberFormat.h"
#include "reminders/ReminderVariable.h"

using namespace Qt::Literals::StringLiterals;

ReminderDocument::ReminderDocument(Reminder reminder, Invoice invoice, Profile profile, Styling styling,
                                   ColorScheme scheme, const WebFontManager* fonts)
    : InvoiceDocument(std::move(invoice), profile, std::move(styling), {}, scheme, fonts),
      m_reminder(std::move(reminder)), m_profile(std::move(profile))
{
    const QString text =
        ReminderVariables::substitute(m_reminder.text, m_reminder, this->invoice(), m_profile);
    if (!text.isEmpty())
        m_lines = text.split(u'\n');
}

Html ReminderDocument::additionalNumbers() const
{
    // "Label: value" lines of the sender's further numbers (customer number ...), as on the invoice.
    Html rows;
    for (const QString& line : invoice().senderAdditionalNumbers.split(u'\n', Qt::SkipEmptyParts)) {
        const qsizetype colon = line.indexOf(u':');
        const QString label = colon > 0 ? line.left(colon).trimmed() : QString();
        const QString value = (colon > 0 ? line.mid(colon + 1) : line).trimmed();
        rows += u"<tr><th class=\"label\">"_html + label + u"</th><td>"_html + value + u"</td></tr>"_html;
    }
    return rows;
}

QString ReminderDocument::render(PageKind kind, const std::optional<QList<int>>& blocks,
                                 const QString& extraClasses) const
{
    QString error;
    Html content = loadTemplate(u"ReminderContent.html"_s, &error);
    if (content.isEmpty())
        return errorPage(error);

    const Invoice& i = invoice();
    const Language lang = language();
    QHash<QString, Html> v;
    v[u"date-label"_s] = text(u"Date"_s);
    v[u"date"_s] = ReminderVariables::formatDate(m_reminder.date.localDate(), lang);
    v[u"invoice-number-label"_s] = text(u"Invoice Number"_s);
    v[u"invoice-date-label"_s] = text(u"Invoice Date"_s);
    v[u"invoice-date"_s] = ReminderVariables::formatDate(i.date.localDate(), lang);
    v[u"amount-label"_s] = text(u"Amount Due"_s);
    v[u"amount"_s] = formatAmount(ReminderVariables::amountDue(i), i.currency.code, lang);
    v[u"headline"_s] = m_reminder.title(lang);
    v[u"sender-line"_s] = senderLine();
    v[u"recipient"_s] = recipientHtml();
    v[u"invoice-number"_s] = NumberFormat::displayNumber(i, m_profile);
    v[u"additional-numbers"_s] = additionalNumbers();
    v[u"text"_s] = linesHtml(m_lines, u"reminder-line"_s, blocks);
    // Every placeholder in one pass: "{{...}}" left in a text stays as it is.
    content = Html::fill(content, v);

    QStringList classes{pageKindClass(kind)};
    if (!extraClasses.isEmpty())
        classes << extraClasses;
    if (kind == PageKind::middle || kind == PageKind::last)
        content = u"<div class=\"continuation-reserve\"></div>\n"_html + content;

    const Html page = shell(content, classes.join(u' '), &error);
    return page.isEmpty() ? errorPage(error) : page.toString();
}
