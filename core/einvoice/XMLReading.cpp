#include "einvoice/XMLReading.h"

#include <cmath>

namespace XMLReading {

const XMLElement* child(const XMLElement* element, QStringView path)
{
    for (QStringView name : path.tokenize(u'/', Qt::SkipEmptyParts)) {
        if (!element)
            return nullptr;
        const std::vector<const XMLElement*> matches = element->childElements(name);
        element = matches.empty() ? nullptr : matches.front();
    }
    return element;
}

std::vector<const XMLElement*> children(const XMLElement* element, QStringView name)
{
    return element ? element->childElements(name) : std::vector<const XMLElement*>{};
}

QString text(const XMLElement* element, QStringView path)
{
    const XMLElement* found = path.isEmpty() ? element : child(element, path);
    return found ? found->text() : QString();
}

std::optional<double> number(const XMLElement* element, QStringView path)
{
    const QString value = text(element, path);
    bool ok = false;
    const double parsed = value.toDouble(&ok);
    return ok && std::isfinite(parsed) ? std::optional<double>(parsed) : std::nullopt;
}

std::optional<double> amountIn(const XMLElement* parent, QStringView name, const QString& currency)
{
    const auto found = children(parent, name);
    for (const XMLElement* element : found)
        if (element->attribute(u"currencyID").value_or(currency) == currency)
            return number(element);
    return found.empty() ? std::nullopt : number(found.front());
}

} // namespace XMLReading
