#pragma once

#include "reminders/Reminder.h"
#include "render/InvoiceDocument.h"

#include <QStringList>

// A payment reminder as a letter: the shell's letterhead with "ReminderContent.html" in it,
// the title by the reminder's number and the text with its variables filled in, in the
// invoice's language. Each line of the text is a block, so pages break between lines.
class ReminderDocument : public InvoiceDocument
{
public:
    ReminderDocument(Reminder reminder, Invoice invoice, Profile profile, Styling styling,
                     ColorScheme scheme = ColorScheme::light, const WebFontManager* fonts = nullptr);

    QString render(PageKind kind, const std::optional<QList<int>>& blocks,
                   const QString& extraClasses = {}) const override;
    QStringList selectors() const override { return {QStringLiteral(".reminder-line")}; }
    int blockCount() const override { return int(m_lines.size()); }
    int paddingCount() const override { return 0; }
    std::optional<QString> headerSelector() const override { return std::nullopt; }

    const Reminder& reminder() const { return m_reminder; }
    // The text with every variable replaced, one entry per line.
    const QStringList& lines() const { return m_lines; }

private:
    Html additionalNumbers() const;

    Reminder m_reminder;
    Profile m_profile;
    QStringList m_lines;
};
