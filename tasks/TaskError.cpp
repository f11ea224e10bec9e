#include "tasks/TaskError.h"

using namespace Qt::Literals::StringLiterals;

namespace {

QStringList textsOf(const QList<MissingField>& missing)
{
    QStringList texts;
    for (const MissingField& field : missing)
        texts.append(field.text);
    return texts;
}

} // namespace

IncompleteEInvoice::IncompleteEInvoice(const QString& subject, QList<MissingField> missing)
    : TaskError(u"%1: the e-invoice lacks: %2"_s.arg(subject, textsOf(missing).join(u", "_s))),
      m_subject(subject), m_missing(std::move(missing))
{}

QStringList IncompleteEInvoice::texts() const
{
    return textsOf(m_missing);
}
