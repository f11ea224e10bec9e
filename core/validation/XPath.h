#pragma once

#include <QByteArrayView>
#include <QHash>
#include <QString>

#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <vector>

// The part of XPath 2.0 that the official e-invoice rule sets use, evaluated over an in-memory
// tree. Expressions are compiled once into a tree of operations and evaluated many times.
// Values keep their XML Schema types where the rules depend on them: untyped node content,
// strings, booleans, integers, exact decimals, doubles and dates, so comparisons and sums come
// out as a schema-aware processor computes them (0.1 + 0.2 = 0.3 as decimals).
namespace xpath {

// A dynamic error (a value that cannot be cast, a call of an unknown function). The official
// processors abort the whole rule set on one, so the caller does the same.
class Error : public std::runtime_error
{
public:
    explicit Error(const QString& message) : std::runtime_error(message.toStdString()), m_message(message) {}
    const QString& message() const { return m_message; }

private:
    QString m_message;
};

// xs:decimal: an integer mantissa and a count of decimal places.
struct Decimal
{
    __int128 mantissa = 0;
    int scale = 0;

    static std::optional<Decimal> parse(QStringView text);
    static Decimal fromInt(long long value) { return Decimal{value, 0}; }
    static std::optional<Decimal> fromDouble(double value);
    double toDouble() const;
    QString toString() const;
    bool isZero() const { return mantissa == 0; }
    int compare(const Decimal& other) const;
    Decimal normalized() const;
    Decimal add(const Decimal& other) const;
    Decimal subtract(const Decimal& other) const { return add(Decimal{-other.mantissa, other.scale}); }
    Decimal multiply(const Decimal& other) const;
    std::optional<Decimal> divide(const Decimal& other) const;
    Decimal roundHalfUp() const;
    Decimal floor() const;
    Decimal truncated() const;
};

class Document;

struct Node
{
    enum class Kind : unsigned char
    {
        Document,
        Element,
        Attribute,
        Text
    };
    Kind kind = Kind::Element;
    unsigned order = 0; // position in document order
    int line = 0;
    Node* parent = nullptr;
    QString namespaceUri;
    QString localName;
    QString prefix;
    QString value; // text of a text node or value of an attribute
    std::vector<Node*> children;
    std::vector<Node*> attributes;
    const Document* document = nullptr; // set on the document node only

    QString qualifiedName() const { return prefix.isEmpty() ? localName : prefix + u':' + localName; }
    QString stringValue() const;
    // "/rsm:CrossIndustryInvoice[1]/rsm:SupplyChainTradeTransaction[1]/ram:…[2]/@schemeID"
    QString path() const;

private:
    mutable QString m_stringValue;
    mutable bool m_stringValueKnown = false;
};

// A parsed XML document. Whitespace text is kept, as the reference processors keep it.
class Document
{
public:
    // Null with `error` set when the bytes are not well-formed XML; reading is bounded in
    // depth so that hostile input cannot exhaust the stack.
    static std::unique_ptr<Document> parse(QByteArrayView xml, QString* error = nullptr);
    const Node* root() const { return &m_nodes.front(); }
    const Node* documentElement() const;
    // Every element of that local name, in document order ("//ram:X" without a scan).
    const std::vector<const Node*>& elementsNamed(const QString& localName) const;

private:
    Node* make(Node::Kind kind, Node* parent);
    std::deque<Node> m_nodes;
    QHash<QString, std::vector<const Node*>> m_byName;
};

struct Item
{
    enum class Type : unsigned char
    {
        Node,
        String,
        Untyped,
        Boolean,
        Integer,
        Decimal,
        Double,
        Date
    };
    Type type = Type::String;
    const Node* node = nullptr;
    QString string;
    Decimal decimal; // Integer and Decimal
    double number = 0;
    bool boolean = false;
    long long days = 0; // Date: days since 1970-01-01

    static Item ofNode(const Node* n)
    {
        Item i;
        i.type = Type::Node;
        i.node = n;
        return i;
    }
    static Item ofString(QString s, Type t = Type::String)
    {
        Item i;
        i.type = t;
        i.string = std::move(s);
        return i;
    }
    static Item ofBoolean(bool b)
    {
        Item i;
        i.type = Type::Boolean;
        i.boolean = b;
        return i;
    }
    static Item ofInteger(long long v)
    {
        Item i;
        i.type = Type::Integer;
        i.decimal = Decimal::fromInt(v);
        return i;
    }
    static Item ofDecimal(Decimal d, Type t = Type::Decimal)
    {
        Item i;
        i.type = t;
        i.decimal = d;
        return i;
    }
    static Item ofDouble(double d)
    {
        Item i;
        i.type = Type::Double;
        i.number = d;
        return i;
    }
    bool isNode() const { return type == Type::Node; }
    bool isNumeric() const { return type == Type::Integer || type == Type::Decimal || type == Type::Double; }
    // The string value (of a node, or the canonical form of an atomic value).
    QString toString() const;
};

using Sequence = std::vector<Item>;

struct Expr;
class Context;

// A function the rule file defines itself (an xsl:function), called with its evaluated
// arguments.
using UserFunction = std::function<Sequence(Context&, std::vector<Sequence>&)>;

// What the compiler needs from its surroundings: namespace prefixes and the user functions.
struct StaticContext
{
    QHash<QString, QString> namespaces;     // prefix -> URI
    QHash<QString, UserFunction> functions; // "u:gln" -> body (looked up at call time)
};

// Variables visible to an evaluation: a chain of frames, searched from the innermost.
struct Variables
{
    const Variables* outer = nullptr;
    std::vector<std::pair<QString, Sequence>> values;
    const Sequence* find(const QString& name) const;
};

class Context
{
public:
    Item item;
    bool hasItem = false;
    qsizetype position = 1;
    qsizetype size = 1;
    const Variables* variables = nullptr;
    const StaticContext* statics = nullptr;
    const Node* root = nullptr;
};

// A compiled expression.
class Expression
{
public:
    Expression();
    ~Expression();
    Expression(Expression&&) noexcept;
    Expression& operator=(Expression&&) noexcept;

    // Throws Error on a syntax error.
    static Expression compile(const QString& text, const StaticContext& statics);

    Sequence evaluate(Context& context) const;
    bool test(Context& context) const; // effective boolean value
    const QString& text() const { return m_text; }

private:
    std::unique_ptr<Expr> m_expr;
    QString m_text;
};

// Helpers shared with the rule runner.
bool effectiveBooleanValue(const Sequence& sequence);
Item atomize(const Item& item);
// An item cast to a schema type by name ("xs:decimal"); throws Error when it does not fit.
Item castTo(const Item& item, QStringView type);

} // namespace xpath
