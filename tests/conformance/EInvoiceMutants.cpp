#include "EInvoiceMutants.h"

#include <QDomDocument>
#include <QStringList>

#include <functional>
#include <random>

using namespace Qt::Literals::StringLiterals;

namespace EInvoiceMutants {

namespace {

QString localName(const QDomElement& e)
{
    const QString name = e.tagName();
    const qsizetype colon = name.indexOf(u':');
    return colon < 0 ? name : name.mid(colon + 1);
}

void collect(const QDomElement& e, std::vector<QDomElement>& out)
{
    for (QDomElement c = e.firstChildElement(); !c.isNull(); c = c.nextSiblingElement()) {
        out.push_back(c);
        collect(c, out);
    }
}

bool isLeaf(const QDomElement& e)
{
    return e.firstChildElement().isNull();
}

QString path(const QDomElement& e)
{
    QStringList parts;
    for (QDomNode n = e; n.isElement(); n = n.parentNode())
        parts.prepend(n.toElement().tagName());
    return u"/"_s + parts.join(u'/');
}

void setText(QDomElement& e, const QString& text)
{
    while (!e.firstChild().isNull())
        e.removeChild(e.firstChild());
    if (!text.isEmpty())
        e.appendChild(e.ownerDocument().createTextNode(text));
}

const QStringList kinds = {u"remove"_s, u"code"_s, u"amount"_s, u"date"_s, u"currency"_s, u"empty"_s};

bool isDate(const QString& name)
{
    return name == u"DateTimeString" || name.endsWith(u"Date") || name == u"DateString";
}

bool isAmount(const QString& name)
{
    return name.endsWith(u"Amount") || name == u"ChargeAmount" || name.endsWith(u"Quantity") ||
           name.endsWith(u"Percent") || name == u"Percent";
}

bool isCode(const QString& name)
{
    return name.endsWith(u"Code") || name == u"CountryID" || name.endsWith(u"TypeCode") ||
           name == u"CategoryCode" || name == u"ID";
}

} // namespace

std::vector<Mutant> make(const QByteArray& xml, int count, unsigned seed)
{
    std::vector<Mutant> mutants;
    std::mt19937 random(seed);
    for (int i = 0; i < count; ++i) {
        QDomDocument doc;
        if (!doc.setContent(xml))
            return mutants;
        std::vector<QDomElement> all;
        collect(doc.documentElement(), all);
        const QString kind = kinds[i % kinds.size()];
        std::vector<QDomElement> candidates;
        for (const QDomElement& e : all) {
            const QString n = localName(e);
            const bool leaf = isLeaf(e);
            if ((kind == u"remove") || (kind == u"code" && leaf && isCode(n)) ||
                (kind == u"amount" && leaf && isAmount(n)) || (kind == u"date" && leaf && isDate(n)) ||
                (kind == u"currency" && (n.endsWith(u"CurrencyCode") || e.hasAttribute(u"currencyID"_s))) ||
                (kind == u"empty" && leaf))
                candidates.push_back(e);
        }
        if (candidates.empty())
            continue;
        QDomElement target =
            candidates[std::uniform_int_distribution<size_t>(0, candidates.size() - 1)(random)];
        const QString name = localName(target);
        const QString before = target.text();
        QString description;
        const int variant = std::uniform_int_distribution<int>(0, 3)(random);
        if (kind == u"remove") {
            description = u"removed "_s + path(target);
            target.parentNode().removeChild(target);
        } else if (kind == u"code") {
            static const QStringList codes = {u"XX"_s, u"ZZZ"_s, u"999"_s, u"S"_s};
            setText(target, codes[variant]);
            description = u"code %1 -> %2 at %3"_s.arg(before, codes[variant], path(target));
        } else if (kind == u"amount") {
            bool ok = false;
            const double v = before.trimmed().toDouble(&ok);
            QString after;
            switch (variant) {
            case 0:
                after = QString::number(v + 1.0, 'f', 2);
                break;
            case 1:
                after = QString::number(v * 10.0, 'f', 2);
                break;
            case 2:
                after = QString::number(-v, 'f', 2);
                break;
            default:
                after = QString::number(v + 0.01, 'f', 3);
                break;
            }
            setText(target, after);
            description = u"amount %1 -> %2 at %3"_s.arg(before, after, path(target));
        } else if (kind == u"date") {
            const bool cii = name == u"DateTimeString";
            static const QStringList ciiDates = {u"20241301"_s, u"20240230"_s, u"2024-01-15"_s,
                                                 u"19991231"_s};
            static const QStringList ublDates = {u"2024-13-01"_s, u"2024-02-30"_s, u"20240115"_s,
                                                 u"1999-12-31"_s};
            const QString after = (cii ? ciiDates : ublDates)[variant];
            setText(target, after);
            description = u"date %1 -> %2 at %3"_s.arg(before, after, path(target));
        } else if (kind == u"currency") {
            static const QStringList currencies = {u"USD"_s, u"CHF"_s, u"EUR"_s, u"XXX"_s};
            QString after = currencies[variant];
            if (target.hasAttribute(u"currencyID"_s)) {
                if (after == target.attribute(u"currencyID"_s))
                    after = u"GBP"_s;
                target.setAttribute(u"currencyID"_s, after);
            } else {
                if (after == before)
                    after = u"GBP"_s;
                setText(target, after);
            }
            description = u"currency -> %1 at %2"_s.arg(after, path(target));
        } else {
            setText(target, {});
            description = u"emptied "_s + path(target);
        }
        mutants.push_back({kind, description, doc.toByteArray(-1)});
    }
    return mutants;
}

} // namespace EInvoiceMutants
