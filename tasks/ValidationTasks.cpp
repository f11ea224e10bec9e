#include "tasks/ValidationTasks.h"

#include <QJsonArray>

using namespace Qt::Literals::StringLiterals;

namespace ValidationTasks {

std::optional<EInvoiceValidator::Rules> parseRules(const QString& name)
{
    const QString n = name.trimmed().toLower();
    if (n.isEmpty() || n == u"auto")
        return EInvoiceValidator::Rules::Automatic;
    if (n == u"en16931")
        return EInvoiceValidator::Rules::EN16931;
    if (n == u"xrechnung")
        return EInvoiceValidator::Rules::XRechnung;
    return std::nullopt;
}

std::vector<CheckedFile> validateFiles(const QStringList& paths, EInvoiceValidator::Rules rules)
{
    std::vector<CheckedFile> checked;
    checked.reserve(size_t(paths.size()));
    for (const QString& path : paths)
        checked.push_back({path, EInvoiceValidator::shared().validateFile(path, rules)});
    return checked;
}

namespace {

QString flagWord(const ValidationFailure& f)
{
    return f.isError() ? u"ERROR"_s : u"WARNING"_s;
}

QString syntaxName(ValidationReport::Syntax s)
{
    switch (s) {
    case ValidationReport::Syntax::CII:
        return u"CII"_s;
    case ValidationReport::Syntax::UBL:
        return u"UBL"_s;
    case ValidationReport::Syntax::Unknown:
        break;
    }
    return {};
}

} // namespace

QString text(const CheckedFile& file)
{
    const ValidationReport& r = file.report;
    QString out;
    if (!r.problem.isEmpty())
        out += u"  ERROR %1\n"_s.arg(r.problem);
    for (const ValidationFailure& f : r.failures) {
        out += u"  %1 %2 (%3)"_s.arg(flagWord(f), f.ruleId, f.flag);
        if (!f.location.isEmpty())
            out += u" at "_s + f.location + (f.line > 0 ? u" (line %1)"_s.arg(f.line) : QString());
        out += u"\n      "_s + f.text + u'\n';
    }
    const QString rules = r.ruleSets.isEmpty() ? QString() : u"; "_s + r.ruleSets.join(u", "_s);
    const auto counted = [](qsizetype n, const QString& one, const QString& many) {
        return u"%1 %2"_s.arg(n).arg(n == 1 ? one : many);
    };
    out += u"%1: %2 (%3, %4%5)\n"_s.arg(
        file.path, r.valid() ? u"VALID"_s : u"INVALID"_s,
        counted(r.errorCount() + (r.problem.isEmpty() ? 0 : 1), u"error"_s, u"errors"_s),
        counted(r.warningCount(), u"warning"_s, u"warnings"_s), rules);
    return out;
}

QString ruleText(const ValidationFailure& failure)
{
    QString text = failure.text.trimmed();
    const QString tag = u'[' + failure.ruleId + u']';
    if (text.startsWith(tag)) {
        text.remove(0, tag.size());
        while (!text.isEmpty() && (text.front() == u'-' || text.front().isSpace()))
            text.remove(0, 1);
    }
    return text.isEmpty() ? failure.text.trimmed() : text;
}

QJsonObject json(const CheckedFile& file)
{
    const ValidationReport& r = file.report;
    QJsonArray failures;
    for (const ValidationFailure& f : r.failures) {
        failures.append(QJsonObject{{u"id"_s, f.ruleId},
                                    {u"flag"_s, f.flag},
                                    {u"severity"_s, f.isError() ? u"error"_s : u"warning"_s},
                                    {u"text"_s, f.text},
                                    {u"location"_s, f.location},
                                    {u"line"_s, f.line},
                                    {u"ruleSet"_s, f.ruleSet}});
    }
    QJsonObject o{{u"file"_s, file.path},
                  {u"valid"_s, r.valid()},
                  {u"syntax"_s, syntaxName(r.syntax)},
                  {u"embeddedInPdf"_s, r.embeddedInPdf},
                  {u"ruleSets"_s, QJsonArray::fromStringList(r.ruleSets)},
                  {u"errors"_s, r.errorCount()},
                  {u"warnings"_s, r.warningCount()},
                  {u"failures"_s, failures}};
    if (!r.problem.isEmpty())
        o.insert(u"problem"_s, r.problem);
    return o;
}

} // namespace ValidationTasks
