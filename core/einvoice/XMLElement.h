#pragma once

#include <QByteArrayView>
#include <QString>
#include <QStringView>

#include <memory>
#include <optional>
#include <vector>

// A small XML element tree for e-invoices. Names are kept as written ("ram:LineID"): the
// template and every fragment declare the same prefixes, so the tree never resolves
// namespaces. Paths are relative chains of local names, each optionally filtered by one
// attribute ("SellerTradeParty/SpecifiedTaxRegistration/ID[schemeID=VA]"), and find the
// first match depth first.
class XMLElement
{
public:
    struct Attribute
    {
        QString name;
        QString value;
    };
    // One child: an element, or a text when `element` is null.
    struct Node
    {
        std::unique_ptr<XMLElement> element;
        QString text;
    };

    explicit XMLElement(QString name = {}) : m_name(std::move(name)) {}
    XMLElement(XMLElement&&) noexcept = default;
    XMLElement& operator=(XMLElement&&) noexcept = default;
    ~XMLElement();

    // The document's root element; nullopt with `error` ("line 3: ...") when it is not
    // well-formed XML.
    static std::optional<XMLElement> parse(QByteArrayView xml, QString* error = nullptr);

    const QString& name() const { return m_name; }
    // The name without the prefix before the first ':'.
    QStringView localName() const;

    const std::vector<Attribute>& attributes() const { return m_attributes; }
    std::optional<QString> attribute(QStringView name) const;
    // Replaces the value of an attribute of that name, or appends the attribute.
    void setAttribute(const QString& name, const QString& value);

    const std::vector<Node>& children() const { return m_children; }
    XMLElement& appendElement(XMLElement element);
    void appendText(const QString& text);
    // The element's own text nodes joined, trimmed.
    QString text() const;
    // One text node holding `value`; an empty value leaves no children.
    void setText(const QString& value);

    XMLElement* find(QStringView path);
    const XMLElement* find(QStringView path) const;
    // The text of the element at `path`, or nullopt when there is none.
    std::optional<QString> textAt(QStringView path) const;
    // The child elements with that local name, in order.
    std::vector<const XMLElement*> childElements(QStringView localName) const;

    // Edits addressed by path; a path that is not found changes nothing and returns false.
    bool setText(QStringView path, const QString& value);
    bool setAttribute(QStringView path, const QString& name, const QString& value);
    // Replaces the element at `path` by the elements of an XML fragment that uses the
    // e-invoice prefixes. A blank fragment removes the element; one that does not parse
    // leaves it as it is.
    bool replaceWithFragment(QStringView path, QByteArrayView fragment);

    // Replaces the element at `path` by the given elements; none removes it.
    bool replaceWithElements(QStringView path, std::vector<XMLElement> elements);
    // A deep copy.
    XMLElement clone() const;

    // Removes, below this element, every element without text and child elements, then
    // every parent left without content, so no empty element remains.
    void removeEmptyElements();
    bool isEmpty() const;

    // Start tag, children indented by four spaces per level, end tag; text trimmed and escaped.
    QString serialize() const;

private:
    struct Hit
    {
        XMLElement* parent;
        std::size_t index;
    };
    std::optional<Hit> locate(QStringView path);
    void write(QString& out, int level) const;

    QString m_name;
    std::vector<Attribute> m_attributes;
    std::vector<Node> m_children;
};

namespace XMLText {
// Escapes &, < and > (and " with `attribute`) so any value can go into a document.
QString escaped(QStringView text, bool attribute = false);
void appendEscaped(QString& out, QStringView text, bool attribute = false);
} // namespace XMLText
