#include "tasks/TaskError.h"

#include "tasks/ValidationTasks.h"

using namespace Qt::Literals::StringLiterals;

namespace {

QStringList textsOf(const QList<MissingField>& missing)
{
    QStringList texts;
    for (const MissingField& field : missing)
        texts.append(field.text);
    return texts;
}

QStringList textsOf(const std::vector<BrokenRule>& rules)
{
    QStringList texts;
    for (const BrokenRule& rule : rules)
        texts.append(rule.failure.ruleId + u": "_s + ValidationTasks::ruleText(rule.failure));
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

RejectedEInvoice::RejectedEInvoice(const QString& subject, std::vector<BrokenRule> rules)
    : TaskError(u"%1: the e-invoice breaks %2: %3"_s.arg(
          subject, rules.size() == 1 ? u"a rule"_s : u"%1 rules"_s.arg(rules.size()),
          textsOf(rules).join(u"; "_s))),
      m_subject(subject), m_rules(std::move(rules))
{}

QStringList RejectedEInvoice::texts() const
{
    return textsOf(m_rules);
}
