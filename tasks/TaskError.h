#pragma once

#include "einvoice/XMLGenerator.h"
#include "validation/EInvoiceValidator.h"

#include <QList>
#include <QString>
#include <QStringList>

#include <optional>
#include <stdexcept>
#include <vector>

// A user task that could not be done, with a message for the user that names the file or
// record and what is wrong. Both front ends show it as it stands.
class TaskError : public std::runtime_error
{
public:
    explicit TaskError(const QString& message) : std::runtime_error(message.toStdString()) {}
    QString message() const { return QString::fromStdString(what()); }
};

// An invoice that lacks fields an e-invoice requires; receivers would reject its XML.
class IncompleteEInvoice : public TaskError
{
public:
    IncompleteEInvoice(const QString& subject, QList<MissingField> missing);
    const QString& subject() const { return m_subject; }
    const QList<MissingField>& missing() const { return m_missing; }
    QStringList texts() const;

private:
    QString m_subject;
    QList<MissingField> m_missing;
};

// A rule of the official rule sets that an e-invoice about to be written breaks, and the field
// of the invoice form where the user can mend it, when one can be told from where the rule looked.
struct BrokenRule
{
    ValidationFailure failure;
    std::optional<MissingField> field;
};

// An e-invoice with nothing missing that still breaks a rule (fatal or error) of the rules of its
// profile; its receiver would reject it, so it is not written. Warnings never get here.
class RejectedEInvoice : public TaskError
{
public:
    RejectedEInvoice(const QString& subject, std::vector<BrokenRule> rules);
    const QString& subject() const { return m_subject; }
    const std::vector<BrokenRule>& rules() const { return m_rules; }
    // "BR-CL-25: text of the rule", one per broken rule.
    QStringList texts() const;

private:
    QString m_subject;
    std::vector<BrokenRule> m_rules;
};
