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

QString ReminderDocument::additionalNumbers() const
{
    // "Label: value" lines of the sender's further numbers (customer number ...), as on the invoice.
    QString rows;
    for (const QString& line : invoice().senderAdditionalNumbers.split(u'\n', Qt::SkipEmptyParts)) {
        const qsizetype colon = line.indexOf(u':');
        const QString label = colon > 0 ? escape(line.left(colon).trimmed()) : QString();
        const QString value = escape((colon > 0 ? line.mid(colon + 1) : line).trimmed());
        rows += u"<tr><th class=\"label\">%1</th><td>%2</td></tr>"_s.arg(label, value);
    }
    return rows;
}

QString ReminderDocument::render(PageKind kind, const std::optional<QList<int>>& blocks,
                                 const QString& extraClasses) const
{
    QString error;
    QString content = loadTemplate(u"ReminderContent.html"_s, &error);
    if (content.isEmpty())
        return errorPage(error);

    const Invoice& i = invoice();
    const Language lang = language();
    QHash<QString, QString> v;
    v[u"date-label"_s] = text(u"Date"_s);
    v[u"date"_s] = ReminderVariables::formatDate(m_reminder.date.localDate(), lang);
    v[u"invoice-number-label"_s] = text(u"Invoice Number"_s);
    v[u"invoice-date-label"_s] = text(u"Invoice Date"_s);
    v[u"invoice-date"_s] = ReminderVariables::formatDate(i.date.localDate(), lang);
    v[u"amount-label"_s] = text(u"Amount Due"_s);
    v[u"amount"_s] = formatAmount(ReminderVariables::amountDue(i), i.currency.code, lang);
    v[u"headline"_s] = escape(m_reminder.title(lang));

    const QString body = linesHtml(m_lines, u"reminder-line"_s, blocks);

    // Placeholders first, user text last: "{{...}}" left in a text stays literal.
    content = InvoiceDocument::fill(content, v);
    const QList<std::pair<QString, QString>> userFields{
        {u"sender-line"_s, senderLine()},
        {u"recipient"_s, recipientHtml()},
        {u"invoice-number"_s, escape(NumberFormat::displayNumber(i, m_profile))},
        {u"additional-numbers"_s, additionalNumbers()},
        {u"text"_s, body},
    };
    for (const auto& [key, value] : userFields)
        content.replace(u"{{"_s + key + u"}}"_s, value);

    QStringList classes{pageKindClass(kind)};
    if (!extraClasses.isEmpty())
        classes << extraClasses;
    if (kind == PageKind::middle || kind == PageKind::last)
        content.prepend(u"<div class=\"continuation-reserve\"></div>\n"_s);

    const QString page = shell(content, classes.join(u' '), &error);
    return page.isEmpty() ? errorPage(error) : page;
}
