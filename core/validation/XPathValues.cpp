// Values, casts and the document tree of the XPath evaluator.
#include "validation/XPath.h"

#include <QDate>
#include <QXmlStreamReader>

#include <cmath>

using namespace Qt::Literals::StringLiterals;

namespace xpath {

namespace {

constexpr int maxDigits = 36;

__int128 pow10(int n)
{
    __int128 r = 1;
    for (int i = 0; i < n; ++i)
        r *= 10;
    return r;
}

__int128 abs128(__int128 v)
{
    return v < 0 ? -v : v;
}

int digitCount(__int128 v)
{
    v = abs128(v);
    int n = 1;
    while (v >= 10) {
        v /= 10;
        ++n;
    }
    return n;
}

// Brings both to the same scale; false when that would overflow.
bool align(Decimal& a, Decimal& b)
{
    a = a.normalized();
    b = b.normalized();
    while (a.scale < b.scale) {
        if (digitCount(a.mantissa) >= 37)
            return false;
        a.mantissa *= 10;
        ++a.scale;
    }
    while (b.scale < a.scale) {
        if (digitCount(b.mantissa) >= 37)
            return false;
        b.mantissa *= 10;
        ++b.scale;
    }
    return true;
}

bool isXmlSpace(QChar c)
{
    return c == u' ' || c == u'\t' || c == u'\n' || c == u'\r';
}

QStringView trimmedXml(QStringView s)
{
    qsizetype b = 0, e = s.size();
    while (b < e && isXmlSpace(s[b]))
        ++b;
    while (e > b && isXmlSpace(s[e - 1]))
        --e;
    return s.mid(b, e - b);
}

} // namespace

std::optional<Decimal> Decimal::parse(QStringView text)
{
    text = trimmedXml(text);
    qsizetype i = 0;
    bool negative = false;
    if (i < text.size() && (text[i] == u'+' || text[i] == u'-'))
        negative = text[i++] == u'-';
    __int128 m = 0;
    int scale = 0, digits = 0;
    bool point = false, any = false;
    for (; i < text.size(); ++i) {
        const QChar c = text[i];
        if (c == u'.' && !point) {
            point = true;
            continue;
        }
        if (c < u'0' || c > u'9')
            return std::nullopt;
        any = true;
        if (digits == 0 && c == u'0' && !point)
            continue;
        if (digits >= maxDigits) {
            if (!point)
                return std::nullopt; // too large to hold
            continue;                // further fraction digits are dropped
        }
        m = m * 10 + (c.unicode() - u'0');
        ++digits;
        if (point)
            ++scale;
    }
    if (!any)
        return std::nullopt;
    return Decimal{negative ? -m : m, scale}.normalized();
}

std::optional<Decimal> Decimal::fromDouble(double value)
{
    if (!std::isfinite(value))
        return std::nullopt;
    // The shortest text that reads back as the same double, as Java's BigDecimal.valueOf does.
    const QString text = QString::number(value, 'f', QLocale::FloatingPointShortest);
    return parse(text);
}

double Decimal::toDouble() const
{
    return toString().toDouble();
}

QString Decimal::toString() const
{
    const Decimal d = normalized();
    __int128 v = abs128(d.mantissa);
    QString digits;
    do {
        digits.prepend(QChar(u'0' + int(v % 10)));
        v /= 10;
    } while (v > 0);
    if (d.scale > 0) {
        while (digits.size() <= d.scale)
            digits.prepend(u'0');
        digits.insert(digits.size() - d.scale, u'.');
    }
    if (d.mantissa < 0)
        digits.prepend(u'-');
    return digits;
}

Decimal Decimal::normalized() const
{
    Decimal d = *this;
    while (d.scale > 0 && d.mantissa % 10 == 0) {
        d.mantissa /= 10;
        --d.scale;
    }
    if (d.mantissa == 0)
        d.scale = 0;
    return d;
}

int Decimal::compare(const Decimal& other) const
{
    Decimal a = *this, b = other;
    if (!align(a, b)) {
        const double x = toDouble(), y = other.toDouble();
        return x < y ? -1 : (x > y ? 1 : 0);
    }
    return a.mantissa < b.mantissa ? -1 : (a.mantissa > b.mantissa ? 1 : 0);
}

Decimal Decimal::add(const Decimal& other) const
{
    Decimal a = *this, b = other;
    if (!align(a, b))
        return fromDouble(toDouble() + other.toDouble()).value_or(Decimal{});
    return Decimal{a.mantissa + b.mantissa, a.scale}.normalized();
}

Decimal Decimal::multiply(const Decimal& other) const
{
    Decimal a = normalized(), b = other.normalized();
    while (digitCount(a.mantissa) + digitCount(b.mantissa) > 37) {
        // Drop the least significant fraction digit of the longer factor.
        Decimal& longer = digitCount(a.mantissa) >= digitCount(b.mantissa) ? a : b;
        if (longer.scale == 0)
            return fromDouble(toDouble() * other.toDouble()).value_or(Decimal{});
        longer.mantissa /= 10;
        --longer.scale;
    }
    return Decimal{a.mantissa * b.mantissa, a.scale + b.scale}.normalized();
}

std::optional<Decimal> Decimal::divide(const Decimal& other) const
{
    const Decimal a = normalized(), b = other.normalized();
    if (b.mantissa == 0)
        return std::nullopt;
    // Eighteen places or the larger scale of the operands, halves rounded towards zero: what
    // the reference processor computes for xs:decimal division.
    int target = std::max({18, a.scale, b.scale});
    int shift = target + b.scale - a.scale;
    while (shift > 0 && digitCount(a.mantissa) + shift > 37) {
        --target;
        --shift;
    }
    __int128 n = a.mantissa * pow10(std::max(shift, 0));
    __int128 d = b.mantissa * pow10(std::max(-shift, 0));
    __int128 q = n / d, r = n % d;
    if (2 * abs128(r) > abs128(d))
        q += ((n < 0) != (d < 0)) ? -1 : 1;
    return Decimal{q, target}.normalized();
}

Decimal Decimal::floor() const
{
    const Decimal d = normalized();
    if (d.scale == 0)
        return d;
    const __int128 p = pow10(d.scale);
    __int128 q = d.mantissa / p;
    if (d.mantissa < 0 && d.mantissa % p != 0)
        --q;
    return Decimal{q, 0};
}

Decimal Decimal::truncated() const
{
    const Decimal d = normalized();
    return Decimal{d.mantissa / pow10(d.scale), 0};
}

Decimal Decimal::roundHalfUp() const
{
    return add(Decimal{5, 1}).floor();
}

// ---- tree ----

QString Node::stringValue() const
{
    if (kind == Kind::Attribute || kind == Kind::Text)
        return value;
    if (!m_stringValueKnown) {
        QString s;
        // Depth first, children in order.
        std::function<void(const Node*)> walk = [&](const Node* n) {
            for (const Node* c : n->children) {
                if (c->kind == Kind::Text)
                    s += c->value;
                else
                    walk(c);
            }
        };
        walk(this);
        m_stringValue = s;
        m_stringValueKnown = true;
    }
    return m_stringValue;
}

QString Node::path() const
{
    switch (kind) {
    case Kind::Document:
        return u"/"_s;
    case Kind::Attribute:
        return (parent ? parent->path() : QString()) + u"/@"_s + qualifiedName();
    case Kind::Text:
        return (parent ? parent->path() : QString()) + u"/text()"_s;
    case Kind::Element:
        break;
    }
    int index = 1;
    if (parent) {
        for (const Node* sibling : parent->children) {
            if (sibling == this)
                break;
            if (sibling->kind == Kind::Element && sibling->localName == localName &&
                sibling->namespaceUri == namespaceUri)
                ++index;
        }
    }
    const QString above = parent && parent->kind != Kind::Document ? parent->path() : QString();
    return above + u'/' + qualifiedName() + u'[' + QString::number(index) + u']';
}

Node* Document::make(Node::Kind kind, Node* parent)
{
    Node& n = m_nodes.emplace_back();
    n.kind = kind;
    n.parent = parent;
    n.order = unsigned(m_nodes.size() - 1);
    return &n;
}

const Node* Document::documentElement() const
{
    for (const Node* c : root()->children)
        if (c->kind == Node::Kind::Element)
            return c;
    return nullptr;
}

const std::vector<const Node*>& Document::elementsNamed(const QString& localName) const
{
    static const std::vector<const Node*> none;
    const auto it = m_byName.find(localName);
    return it == m_byName.end() ? none : *it;
}

std::unique_ptr<Document> Document::parse(QByteArrayView xml, QString* error)
{
    constexpr int maxDepth = 256;
    auto doc = std::unique_ptr<Document>(new Document);
    Node* current = doc->make(Node::Kind::Document, nullptr);
    current->document = doc.get();
    QXmlStreamReader reader(QByteArray::fromRawData(xml.data(), xml.size()));
    reader.setNamespaceProcessing(true);
    int depth = 0;
    while (!reader.atEnd()) {
        switch (reader.readNext()) {
        case QXmlStreamReader::StartElement: {
            if (++depth > maxDepth) {
                if (error)
                    *error = u"elements nested deeper than %1 levels"_s.arg(maxDepth);
                return nullptr;
            }
            Node* e = doc->make(Node::Kind::Element, current);
            e->namespaceUri = reader.namespaceUri().toString();
            e->localName = reader.name().toString();
            e->prefix = reader.prefix().toString();
            e->line = int(reader.lineNumber());
            current->children.push_back(e);
            doc->m_byName[e->localName].push_back(e);
            for (const QXmlStreamAttribute& a : reader.attributes()) {
                Node* attr = doc->make(Node::Kind::Attribute, e);
                attr->namespaceUri = a.namespaceUri().toString();
                attr->localName = a.name().toString();
                attr->prefix = a.prefix().toString();
                attr->value = a.value().toString();
                e->attributes.push_back(attr);
            }
            current = e;
            break;
        }
        case QXmlStreamReader::EndElement:
            --depth;
            current = current->parent;
            break;
        case QXmlStreamReader::Characters:
            if (current->kind == Node::Kind::Document)
                break;
            if (!current->children.empty() && current->children.back()->kind == Node::Kind::Text) {
                current->children.back()->value += reader.text();
            } else {
                Node* t = doc->make(Node::Kind::Text, current);
                t->value = reader.text().toString();
                current->children.push_back(t);
            }
            break;
        case QXmlStreamReader::DTD:
            // Entity declarations are a classic way to blow up a parser; e-invoices have none.
            if (error)
                *error = u"document type declarations are not accepted"_s;
            return nullptr;
        default:
            break;
        }
    }
    if (reader.hasError()) {
        if (error)
            *error = u"line %1: %2"_s.arg(reader.lineNumber()).arg(reader.errorString());
        return nullptr;
    }
    if (!doc->documentElement()) {
        if (error)
            *error = u"no root element"_s;
        return nullptr;
    }
    return doc;
}

// ---- atomic values ----

namespace {

QString doubleToString(double d)
{
    if (std::isnan(d))
        return u"NaN"_s;
    if (std::isinf(d))
        return d > 0 ? u"INF"_s : u"-INF"_s;
    if (d == 0)
        return std::signbit(d) ? u"-0"_s : u"0"_s;
    const double a = std::fabs(d);
    if (a >= 1e-6 && a < 1e6)
        return QString::number(d, 'f', QLocale::FloatingPointShortest);
    // Scientific form with at least one fraction digit: "1.0E7".
    QString s = QString::number(d, 'e', QLocale::FloatingPointShortest);
    const qsizetype e = s.indexOf(u'e');
    QString mantissa = s.left(e);
    int exponent = s.mid(e + 1).toInt();
    if (!mantissa.contains(u'.'))
        mantissa += u".0"_s;
    return mantissa + u'E' + QString::number(exponent);
}

QString dateToString(long long days)
{
    const QDate d = QDate::fromJulianDay(days + 2440588);
    return d.toString(u"yyyy-MM-dd"_s);
}

bool parseDouble(QStringView text, double& out)
{
    const QStringView t = trimmedXml(text);
    if (t == u"INF" || t == u"+INF") {
        out = INFINITY;
        return true;
    }
    if (t == u"-INF") {
        out = -INFINITY;
        return true;
    }
    if (t == u"NaN") {
        out = NAN;
        return true;
    }
    // [+-]? (digits (. digits?)? | . digits) ([eE] [+-]? digits)?
    qsizetype i = 0;
    if (i < t.size() && (t[i] == u'+' || t[i] == u'-'))
        ++i;
    bool digits = false;
    while (i < t.size() && t[i].isDigit() && t[i].unicode() < 128) {
        ++i;
        digits = true;
    }
    if (i < t.size() && t[i] == u'.') {
        ++i;
        while (i < t.size() && t[i].isDigit() && t[i].unicode() < 128) {
            ++i;
            digits = true;
        }
    }
    if (!digits)
        return false;
    if (i < t.size() && (t[i] == u'e' || t[i] == u'E')) {
        ++i;
        if (i < t.size() && (t[i] == u'+' || t[i] == u'-'))
            ++i;
        bool exp = false;
        while (i < t.size() && t[i].isDigit() && t[i].unicode() < 128) {
            ++i;
            exp = true;
        }
        if (!exp)
            return false;
    }
    if (i != t.size())
        return false;
    bool ok = false;
    out = t.toString().toDouble(&ok);
    return ok || std::isinf(out);
}

bool parseDate(QStringView text, long long& days)
{
    const QStringView t = trimmedXml(text);
    // yyyy-mm-dd with an optional time zone, which does not change the day for comparisons here.
    if (t.size() < 10 || t[4] != u'-' || t[7] != u'-')
        return false;
    for (int i : {0, 1, 2, 3, 5, 6, 8, 9})
        if (t[i] < u'0' || t[i] > u'9')
            return false;
    const QStringView zone = t.mid(10);
    if (!zone.isEmpty() && zone != u"Z") {
        if (zone.size() != 6 || (zone[0] != u'+' && zone[0] != u'-') || zone[3] != u':')
            return false;
    }
    const QDate d(t.mid(0, 4).toInt(), t.mid(5, 2).toInt(), t.mid(8, 2).toInt());
    if (!d.isValid())
        return false;
    days = d.toJulianDay() - 2440588;
    return true;
}

[[noreturn]] void castError(const Item& item, QStringView type)
{
    throw Error(u"FORG0001: cannot cast \"%1\" to %2"_s.arg(item.toString().left(60), type));
}

} // namespace

QString Item::toString() const
{
    switch (type) {
    case Type::Node:
        return node->stringValue();
    case Type::String:
    case Type::Untyped:
        return string;
    case Type::Boolean:
        return boolean ? u"true"_s : u"false"_s;
    case Type::Integer:
    case Type::Decimal:
        return decimal.toString();
    case Type::Double:
        return doubleToString(number);
    case Type::Date:
        return dateToString(days);
    }
    return {};
}

Item atomize(const Item& item)
{
    if (item.type != Item::Type::Node)
        return item;
    return Item::ofString(item.node->stringValue(), Item::Type::Untyped);
}

Item castTo(const Item& input, QStringView type)
{
    const Item item = atomize(input);
    using T = Item::Type;
    if (type == u"xs:string")
        return Item::ofString(item.toString());
    if (type == u"xs:untypedAtomic")
        return Item::ofString(item.toString(), T::Untyped);
    const bool text = item.type == T::String || item.type == T::Untyped;
    if (type == u"xs:decimal") {
        if (item.type == T::Integer || item.type == T::Decimal)
            return Item::ofDecimal(item.decimal);
        if (item.type == T::Boolean)
            return Item::ofDecimal(Decimal::fromInt(item.boolean ? 1 : 0));
        std::optional<Decimal> d;
        if (text)
            d = Decimal::parse(item.string);
        else if (item.type == T::Double)
            d = Decimal::fromDouble(item.number);
        if (!d)
            castError(item, type);
        return Item::ofDecimal(*d);
    }
    if (type == u"xs:integer") {
        if (item.type == T::Integer)
            return item;
        if (item.type == T::Decimal)
            return Item::ofDecimal(item.decimal.truncated(), T::Integer);
        if (item.type == T::Boolean)
            return Item::ofInteger(item.boolean ? 1 : 0);
        if (item.type == T::Double) {
            auto d = Decimal::fromDouble(item.number);
            if (!d)
                castError(item, type);
            return Item::ofDecimal(d->truncated(), T::Integer);
        }
        if (text) {
            const QStringView t = trimmedXml(item.string);
            qsizetype i = (!t.isEmpty() && (t[0] == u'+' || t[0] == u'-')) ? 1 : 0;
            if (i == t.size())
                castError(item, type);
            for (qsizetype j = i; j < t.size(); ++j)
                if (t[j] < u'0' || t[j] > u'9')
                    castError(item, type);
            auto d = Decimal::parse(t);
            if (!d)
                castError(item, type);
            return Item::ofDecimal(*d, T::Integer);
        }
        castError(item, type);
    }
    if (type == u"xs:double" || type == u"xs:float") {
        if (item.type == T::Double)
            return item;
        if (item.type == T::Integer || item.type == T::Decimal)
            return Item::ofDouble(item.decimal.toDouble());
        if (item.type == T::Boolean)
            return Item::ofDouble(item.boolean ? 1 : 0);
        double d = 0;
        if (!text || !parseDouble(item.string, d))
            castError(item, type);
        return Item::ofDouble(d);
    }
    if (type == u"xs:boolean") {
        if (item.type == T::Boolean)
            return item;
        if (item.type == T::Integer || item.type == T::Decimal)
            return Item::ofBoolean(!item.decimal.isZero());
        if (item.type == T::Double)
            return Item::ofBoolean(item.number != 0 && !std::isnan(item.number));
        const QStringView t = text ? trimmedXml(item.string) : QStringView();
        if (t == u"true" || t == u"1")
            return Item::ofBoolean(true);
        if (t == u"false" || t == u"0")
            return Item::ofBoolean(false);
        castError(item, type);
    }
    if (type == u"xs:date") {
        if (item.type == T::Date)
            return item;
        long long days = 0;
        if (!text || !parseDate(item.string, days))
            castError(item, type);
        Item r;
        r.type = T::Date;
        r.days = days;
        return r;
    }
    throw Error(u"XPST0051: unknown type %1"_s.arg(type));
}

bool effectiveBooleanValue(const Sequence& sequence)
{
    if (sequence.empty())
        return false;
    const Item& first = sequence.front();
    if (first.isNode())
        return true;
    if (sequence.size() > 1)
        throw Error(u"FORG0006: effective boolean value of a sequence of several atomic values"_s);
    switch (first.type) {
    case Item::Type::Boolean:
        return first.boolean;
    case Item::Type::String:
    case Item::Type::Untyped:
        return !first.string.isEmpty();
    case Item::Type::Integer:
    case Item::Type::Decimal:
        return !first.decimal.isZero();
    case Item::Type::Double:
        return first.number != 0 && !std::isnan(first.number);
    default:
        throw Error(u"FORG0006: no effective boolean value of a date"_s);
    }
}

const Sequence* Variables::find(const QString& name) const
{
    for (const Variables* v = this; v; v = v->outer)
        for (auto it = v->values.rbegin(); it != v->values.rend(); ++it)
            if (it->first == name)
                return &it->second;
    return nullptr;
}

} // namespace xpath
