#include "einvoice/XMLElement.h"

#include <QXmlStreamReader>

using namespace Qt::Literals::StringLiterals;

namespace {

// Deeper documents are refused: the tree is walked recursively, and no e-invoice nests
// more than a dozen levels.
constexpr int maxDepth = 200;

struct PathComponent
{
    QStringView name;
    QStringView filterName;
    QStringView filterValue;
    bool hasFilter = false;
};

std::vector<PathComponent> parsePath(QStringView path)
{
    std::vector<PathComponent> components;
    for (QStringView part : path.tokenize(u'/', Qt::SkipEmptyParts)) {
        PathComponent component;
        const qsizetype open = part.indexOf(u'[');
        if (open >= 0 && part.endsWith(u']')) {
            const QStringView filter = part.sliced(open + 1, part.size() - open - 2);
            const qsizetype equals = filter.indexOf(u'=');
            component.name = part.first(open);
            component.hasFilter = true;
            component.filterName = equals >= 0 ? filter.first(equals) : filter;
            component.filterValue = equals >= 0 ? filter.sliced(equals + 1) : QStringView();
        } else {
            component.name = part;
        }
        components.push_back(component);
    }
    return components;
}

bool matches(const XMLElement& element, const PathComponent& component)
{
    if (element.localName() != component.name)
        return false;
    if (!component.hasFilter)
        return true;
    const auto value = element.attribute(component.filterName);
    return value && *value == component.filterValue;
}

bool isBlank(QStringView text)
{
    for (const QChar c : text)
        if (!c.isSpace())
            return false;
    return true;
}

void indent(QString& out, int level)
{
    out.resize(out.size() + level * 4, u' ');
}

} // namespace

XMLElement::~XMLElement() = default;

std::optional<XMLElement> XMLElement::parse(QByteArrayView xml, QString* error)
{
    // No copy: the bytes outlive the reader.
    QXmlStreamReader reader(QByteArray::fromRawData(xml.data(), xml.size()));
    // Prefixes stay part of the names: the writer addresses elements by local name only.
    reader.setNamespaceProcessing(false);
    std::optional<XMLElement> root;
    std::vector<XMLElement*> open;
    auto failWith = [&](const QString& message) -> std::optional<XMLElement> {
        if (error)
            *error = u"line %1: %2"_s.arg(reader.lineNumber()).arg(message);
        return std::nullopt;
    };

    while (!reader.atEnd()) {
        switch (reader.readNext()) {
        case QXmlStreamReader::StartElement: {
            if (open.size() >= std::size_t(maxDepth))
                return failWith(u"elements nested too deeply"_s);
            XMLElement element(reader.qualifiedName().toString());
            for (const QXmlStreamAttribute& attribute : reader.attributes())
                element.m_attributes.push_back(
                    {attribute.qualifiedName().toString(), attribute.value().toString()});
            if (open.empty()) {
                root.emplace(std::move(element));
                open.push_back(&*root);
            } else {
                open.push_back(&open.back()->appendElement(std::move(element)));
            }
            break;
        }
        case QXmlStreamReader::EndElement:
            open.pop_back();
            break;
        case QXmlStreamReader::Characters:
            if (!reader.isWhitespace() && !open.empty())
                open.back()->appendText(reader.text().toString());
            break;
        case QXmlStreamReader::DTD:
            // Entity declarations are a way to blow up a small file; e-invoices never need them.
            return failWith(u"document type declarations are not accepted"_s);
        default:
            break;
        }
    }
    if (reader.hasError())
        return failWith(reader.errorString());
    if (!root)
        return failWith(u"no root element"_s);
    return root;
}

QStringView XMLElement::localName() const
{
    const qsizetype colon = m_name.indexOf(u':');
    return colon < 0 ? QStringView(m_name) : QStringView(m_name).sliced(colon + 1);
}

std::optional<QString> XMLElement::attribute(QStringView name) const
{
    for (const Attribute& attribute : m_attributes)
        if (attribute.name == name)
            return attribute.value;
    return std::nullopt;
}

void XMLElement::setAttribute(const QString& name, const QString& value)
{
    for (Attribute& attribute : m_attributes) {
        if (attribute.name == name) {
            attribute.value = value;
            return;
        }
    }
    m_attributes.push_back({name, value});
}

XMLElement& XMLElement::appendElement(XMLElement element)
{
    m_children.push_back({std::make_unique<XMLElement>(std::move(element)), {}});
    return *m_children.back().element;
}

void XMLElement::appendText(const QString& text)
{
    // Adjacent character runs (text, then an entity, then text) form one node.
    if (!m_children.empty() && !m_children.back().element)
        m_children.back().text += text;
    else
        m_children.push_back({nullptr, text});
}

QString XMLElement::text() const
{
    if (m_children.size() == 1 && !m_children.front().element)
        return m_children.front().text.trimmed();
    QString result;
    for (const Node& node : m_children)
        if (!node.element)
            result += node.text;
    return result.trimmed();
}

void XMLElement::setText(const QString& value)
{
    m_children.clear();
    if (!value.isEmpty())
        m_children.push_back({nullptr, value});
}

namespace {

// The first element below `parent` that matches components[index...], trying candidates
// in order and backtracking when the rest of the path does not match below one.
template <class Element>
std::optional<std::pair<Element*, std::size_t>>
matchBelow(Element& parent, const std::vector<PathComponent>& components, std::size_t index)
{
    const auto& children = parent.children();
    for (std::size_t i = 0; i < children.size(); ++i) {
        Element* child = children[i].element.get();
        if (!child || !matches(*child, components[index]))
            continue;
        if (index + 1 == components.size())
            return std::pair<Element*, std::size_t>{&parent, i};
        if (auto hit = matchBelow(*child, components, index + 1))
            return hit;
    }
    return std::nullopt;
}

template <class Element>
std::optional<std::pair<Element*, std::size_t>> search(Element& from,
                                                       const std::vector<PathComponent>& components)
{
    if (auto hit = matchBelow(from, components, 0))
        return hit;
    for (const auto& node : from.children())
        if (node.element)
            if (auto hit = search(static_cast<Element&>(*node.element), components))
                return hit;
    return std::nullopt;
}

} // namespace

std::optional<XMLElement::Hit> XMLElement::locate(QStringView path)
{
    const std::vector<PathComponent> components = parsePath(path);
    if (components.empty())
        return std::nullopt;
    const auto hit = search<XMLElement>(*this, components);
    if (!hit)
        return std::nullopt;
    return Hit{hit->first, hit->second};
}

XMLElement* XMLElement::find(QStringView path)
{
    const auto hit = locate(path);
    return hit ? hit->parent->m_children[hit->index].element.get() : nullptr;
}

const XMLElement* XMLElement::find(QStringView path) const
{
    const std::vector<PathComponent> components = parsePath(path);
    if (components.empty())
        return nullptr;
    const auto hit = search<const XMLElement>(*this, components);
    return hit ? hit->first->children()[hit->second].element.get() : nullptr;
}

std::optional<QString> XMLElement::textAt(QStringView path) const
{
    const XMLElement* element = find(path);
    return element ? std::optional<QString>(element->text()) : std::nullopt;
}

std::vector<const XMLElement*> XMLElement::childElements(QStringView localName) const
{
    std::vector<const XMLElement*> result;
    for (const Node& node : m_children)
        if (node.element && node.element->localName() == localName)
            result.push_back(node.element.get());
    return result;
}

bool XMLElement::setText(QStringView path, const QString& value)
{
    XMLElement* element = find(path);
    if (!element)
        return false;
    element->setText(value);
    return true;
}

bool XMLElement::setAttribute(QStringView path, const QString& name, const QString& value)
{
    XMLElement* element = find(path);
    if (!element)
        return false;
    element->setAttribute(name, value);
    return true;
}

bool XMLElement::replaceWithFragment(QStringView path, QByteArrayView fragment)
{
    const auto hit = locate(path);
    if (!hit)
        return false;
    std::vector<Node>& siblings = hit->parent->m_children;
    const QByteArrayView trimmed = fragment.trimmed();
    if (trimmed.isEmpty()) {
        siblings.erase(siblings.begin() + qsizetype(hit->index));
        return true;
    }
    QByteArray wrapped =
        "<root xmlns:rsm=\"urn:un:unece:uncefact:data:standard:CrossIndustryInvoice:100\" "
        "xmlns:ram=\"urn:un:unece:uncefact:data:standard:ReusableAggregateBusinessInformationEntity:100\" "
        "xmlns:udt=\"urn:un:unece:uncefact:data:standard:UnqualifiedDataType:100\" "
        "xmlns:qdt=\"urn:un:unece:uncefact:data:standard:QualifiedDataType:100\">";
    wrapped += trimmed;
    wrapped += "</root>";
    std::optional<XMLElement> parsed = parse(wrapped);
    if (!parsed)
        return false;
    std::vector<Node> replacement;
    for (Node& node : parsed->m_children)
        if (node.element)
            replacement.push_back(std::move(node));
    siblings.erase(siblings.begin() + qsizetype(hit->index));
    siblings.insert(siblings.begin() + qsizetype(hit->index), std::make_move_iterator(replacement.begin()),
                    std::make_move_iterator(replacement.end()));
    return true;
}

bool XMLElement::replaceWithElements(QStringView path, std::vector<XMLElement> elements)
{
    const auto hit = locate(path);
    if (!hit)
        return false;
    std::vector<Node>& siblings = hit->parent->m_children;
    siblings.erase(siblings.begin() + qsizetype(hit->index));
    std::vector<Node> replacement;
    replacement.reserve(elements.size());
    for (XMLElement& element : elements)
        replacement.push_back({std::make_unique<XMLElement>(std::move(element)), {}});
    siblings.insert(siblings.begin() + qsizetype(hit->index), std::make_move_iterator(replacement.begin()),
                    std::make_move_iterator(replacement.end()));
    return true;
}

XMLElement XMLElement::clone() const
{
    XMLElement copy(m_name);
    copy.m_attributes = m_attributes;
    copy.m_children.reserve(m_children.size());
    for (const Node& node : m_children)
        copy.m_children.push_back(
            {node.element ? std::make_unique<XMLElement>(node.element->clone()) : nullptr, node.text});
    return copy;
}

bool XMLElement::isEmpty() const
{
    for (const Node& node : m_children)
        if (node.element || !isBlank(node.text))
            return false;
    return true;
}

void XMLElement::removeEmptyElements()
{
    for (Node& node : m_children)
        if (node.element)
            node.element->removeEmptyElements();
    std::erase_if(m_children, [](const Node& node) {
        return node.element ? node.element->isEmpty() : isBlank(node.text);
    });
}

QString XMLElement::serialize() const
{
    QString out;
    out.reserve(64 * 1024);
    write(out, 0);
    return out;
}

void XMLElement::write(QString& out, int level) const
{
    indent(out, level);
    out += u'<';
    out += m_name;
    for (const Attribute& attribute : m_attributes) {
        out += u' ';
        out += attribute.name;
        out += u"=\""_s;
        XMLText::appendEscaped(out, attribute.value, true);
        out += u'"';
    }
    const bool hasElements = std::any_of(m_children.begin(), m_children.end(),
                                         [](const Node& node) { return bool(node.element); });
    if (m_children.empty()) {
        out += u"/>"_s;
        return;
    }
    out += u'>';
    if (!hasElements) {
        XMLText::appendEscaped(out, text());
        // A closing line break is part of some values (each line of the payment terms ends
        // with one); it is kept, where other surrounding white space is not.
        if (!m_children.back().text.trimmed().isEmpty() && m_children.back().text.endsWith(u'\n'))
            out += u'\n';
    } else {
        out += u'\n';
        for (const Node& node : m_children) {
            if (node.element) {
                node.element->write(out, level + 1);
                out += u'\n';
            } else if (const QStringView trimmed = QStringView(node.text).trimmed(); !trimmed.isEmpty()) {
                indent(out, level + 1);
                XMLText::appendEscaped(out, trimmed);
                out += u'\n';
            }
        }
        indent(out, level);
    }
    out += u"</"_s;
    out += m_name;
    out += u'>';
}

namespace XMLText {

void appendEscaped(QString& out, QStringView text, bool attribute)
{
    // Runs without special characters are appended whole.
    qsizetype runStart = 0;
    for (qsizetype i = 0; i < text.size(); ++i) {
        const char16_t c = text[i].unicode();
        const char16_t* entity = nullptr;
        switch (c) {
        case u'&':
            entity = u"&amp;";
            break;
        case u'<':
            entity = u"&lt;";
            break;
        case u'>':
            entity = u"&gt;";
            break;
        case u'"':
            entity = attribute ? u"&quot;" : nullptr;
            break;
        default:
            break;
        }
        if (!entity)
            continue;
        out += text.sliced(runStart, i - runStart);
        out += QStringView(entity);
        runStart = i + 1;
    }
    out += text.sliced(runStart);
}

QString escaped(QStringView text, bool attribute)
{
    QString result;
    result.reserve(text.size());
    appendEscaped(result, text, attribute);
    return result;
}

} // namespace XMLText
