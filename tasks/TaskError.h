#pragma once

#include "einvoice/XMLGenerator.h"

#include <QList>
#include <QString>
#include <QStringList>

#include <stdexcept>

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
