#include "validation/Schematron.h"

#include <QFile>
#include <QFileInfo>
#include <QXmlStreamReader>

#include <unordered_set>

using namespace Qt::Literals::StringLiterals;
using xpath::Context;
using xpath::Expression;
using xpath::Item;
using xpath::Sequence;
using xpath::Variables;

namespace {

const auto schematronNs = u"http://purl.oclc.org/dsdl/schematron"_s;
const auto xslNs = u"http://www.w3.org/1999/XSL/Transform"_s;

struct MessagePart
{
    enum class Kind
    {
        Text,
        Name,
        ValueOf
    };
    Kind kind = Kind::Text;
    QString text;
    std::shared_ptr<Expression> expression;
};

struct Assertion
{
    QString id;
    QString flag;
    bool report = false;
    std::shared_ptr<Expression> test;
    std::vector<MessagePart> message;
};

struct Let
{
    QString name;
    std::shared_ptr<Expression> value;
};

struct Rule
{
    QString contextText;
    std::shared_ptr<Expression> context;
    std::vector<Let> lets;
    std::vector<Assertion> assertions;
};

struct Pattern
{
    QString id;
    std::vector<Rule> rules;
};

// The body of an xsl:function, interpreted.
struct Instruction
{
    enum class Kind
    {
        Variable,
        ValueOf,
        Sequence,
        Choose
    };
    Kind kind = Kind::Sequence;
    QString name;
    QString as;
    std::shared_ptr<Expression> select;
    QString literal;               // a variable's text content
    std::vector<Instruction> body; // a variable's content
    std::vector<std::pair<std::shared_ptr<Expression>, std::vector<Instruction>>> branches; // choose
};

struct Function
{
    QString name;
    QString as;
    std::vector<std::pair<QString, QString>> params; // name, type
    std::vector<Instruction> body;
};

// The type of a declared parameter, variable or result without its occurrence indicator.
QString baseType(QString as)
{
    while (as.endsWith(u'?') || as.endsWith(u'*') || as.endsWith(u'+'))
        as.chop(1);
    return as;
}

Sequence convert(const Sequence& value, const QString& as)
{
    const QString type = baseType(as);
    if (type.isEmpty() || type == u"item()" || type == u"node()")
        return value;
    Sequence out;
    for (const Item& i : value) {
        const Item a = xpath::atomize(i);
        // Numbers passed where a decimal is declared keep their value; an integer stays usable.
        if (type == u"xs:decimal" && a.type == Item::Type::Integer)
            out.push_back(Item::ofDecimal(a.decimal, Item::Type::Integer));
        else
            out.push_back(xpath::castTo(a, type));
    }
    return out;
}

class Loader
{
public:
    xpath::StaticContext statics;
    std::vector<Let> globals;
    std::vector<Pattern> patterns;
    std::vector<std::shared_ptr<Function>> functions;
    QString title;

    bool loadFile(const QString& path, QString* error, int depth = 0)
    {
        if (depth > 4) {
            *error = u"%1: includes nested too deeply"_s.arg(path);
            return false;
        }
        QFile file(path);
        if (!file.open(QIODevice::ReadOnly)) {
            *error = u"%1: cannot read: %2"_s.arg(path, file.errorString());
            return false;
        }
        QXmlStreamReader reader(&file);
        reader.setNamespaceProcessing(true);
        m_dir = QFileInfo(path).path();
        try {
            while (!reader.atEnd()) {
                if (reader.readNext() != QXmlStreamReader::StartElement)
                    continue;
                collectNamespaces(reader);
                const auto name = reader.name();
                const bool sch = reader.namespaceUri() == schematronNs;
                if (sch && name == u"schema") {
                    continue; // its children follow
                } else if (sch && name == u"title" && title.isEmpty()) {
                    title = reader.readElementText(QXmlStreamReader::IncludeChildElements).simplified();
                } else if (sch && name == u"ns") {
                    const auto a = reader.attributes();
                    statics.namespaces.insert(a.value(u"prefix"_s).toString(), a.value(u"uri"_s).toString());
                } else if (sch && name == u"let") {
                    globals.push_back(readLet(reader));
                    reader.skipCurrentElement();
                } else if (sch && name == u"pattern") {
                    readPattern(reader);
                } else if (sch && name == u"include") {
                    const QString href = reader.attributes().value(u"href"_s).toString();
                    const QString dir = m_dir;
                    if (href.contains(u'/') || href.contains(u'\\')) {
                        *error = u"%1: include of another folder is not followed (%2)"_s.arg(path, href);
                        return false;
                    }
                    if (!loadFile(dir + u'/' + href, error, depth + 1))
                        return false;
                    m_dir = dir;
                    reader.skipCurrentElement();
                } else if (reader.namespaceUri() == xslNs && name == u"function") {
                    readFunction(reader);
                } else {
                    reader.skipCurrentElement(); // phases, diagnostics, documentation
                }
            }
        } catch (const xpath::Error& e) {
            *error = u"%1, line %2: %3"_s.arg(path).arg(reader.lineNumber()).arg(e.message());
            return false;
        }
        if (reader.hasError()) {
            *error = u"%1, line %2: %3"_s.arg(path).arg(reader.lineNumber()).arg(reader.errorString());
            return false;
        }
        return true;
    }

private:
    QString m_dir;

    void collectNamespaces(const QXmlStreamReader& reader)
    {
        for (const auto& d : reader.namespaceDeclarations())
            if (!d.prefix().isEmpty())
                statics.namespaces.insert(d.prefix().toString(), d.namespaceUri().toString());
    }

    std::shared_ptr<Expression> compile(const QString& text)
    {
        return std::make_shared<Expression>(Expression::compile(text, statics));
    }

    Let readLet(QXmlStreamReader& reader)
    {
        const auto a = reader.attributes();
        return Let{a.value(u"name"_s).toString(), compile(a.value(u"value"_s).toString())};
    }

    // A rule's context is an XSLT match pattern: a relative one matches at any depth.
    static QString contextExpression(const QString& pattern)
    {
        QStringList branches;
        int depth = 0;
        QChar quote;
        qsizetype start = 0;
        for (qsizetype i = 0; i <= pattern.size(); ++i) {
            const QChar c = i < pattern.size() ? pattern[i] : QChar(u'|');
            if (!quote.isNull()) {
                if (c == quote)
                    quote = QChar();
                continue;
            }
            if (c == u'\'' || c == u'"')
                quote = c;
            else if (c == u'(' || c == u'[')
                ++depth;
            else if (c == u')' || c == u']')
                --depth;
            else if (c == u'|' && depth == 0) {
                const QString branch = pattern.mid(start, i - start).trimmed();
                branches << (branch.startsWith(u'/') ? branch : u"//"_s + branch);
                start = i + 1;
            }
        }
        return branches.join(u" | "_s);
    }

    void readPattern(QXmlStreamReader& reader)
    {
        Pattern pattern;
        pattern.id = reader.attributes().value(u"id"_s).toString();
        while (reader.readNextStartElement()) {
            collectNamespaces(reader);
            if (reader.name() == u"rule") {
                pattern.rules.push_back(readRule(reader));
            } else if (reader.name() == u"let") {
                globals.push_back(readLet(reader));
                reader.skipCurrentElement();
            } else {
                reader.skipCurrentElement();
            }
        }
        patterns.push_back(std::move(pattern));
    }

    Rule readRule(QXmlStreamReader& reader)
    {
        Rule rule;
        rule.contextText = reader.attributes().value(u"context"_s).toString();
        rule.context = compile(contextExpression(rule.contextText));
        while (reader.readNextStartElement()) {
            const auto name = reader.name();
            if (name == u"let") {
                rule.lets.push_back(readLet(reader));
                reader.skipCurrentElement();
            } else if (name == u"assert" || name == u"report") {
                Assertion a;
                a.report = name == u"report";
                const auto attrs = reader.attributes();
                a.id = attrs.value(u"id"_s).toString();
                a.flag = attrs.value(u"flag"_s).toString();
                if (a.flag.isEmpty())
                    a.flag = u"error"_s;
                a.test = compile(attrs.value(u"test"_s).toString());
                readMessage(reader, a.message);
                rule.assertions.push_back(std::move(a));
            } else {
                reader.skipCurrentElement();
            }
        }
        return rule;
    }

    void readMessage(QXmlStreamReader& reader, std::vector<MessagePart>& parts)
    {
        while (!reader.atEnd()) {
            const auto token = reader.readNext();
            if (token == QXmlStreamReader::EndElement)
                return;
            if (token == QXmlStreamReader::Characters) {
                parts.push_back({MessagePart::Kind::Text, reader.text().toString(), nullptr});
            } else if (token == QXmlStreamReader::StartElement) {
                if (reader.name() == u"name") {
                    const QString path = reader.attributes().value(u"path"_s).toString();
                    parts.push_back({MessagePart::Kind::Name, {}, path.isEmpty() ? nullptr : compile(path)});
                    reader.skipCurrentElement();
                } else if (reader.name() == u"value-of") {
                    parts.push_back({MessagePart::Kind::ValueOf,
                                     {},
                                     compile(reader.attributes().value(u"select"_s).toString())});
                    reader.skipCurrentElement();
                } else {
                    readMessage(reader, parts); // emphasis and the like: their text counts
                }
            }
        }
    }

    std::vector<Instruction> readBody(QXmlStreamReader& reader)
    {
        std::vector<Instruction> body;
        while (reader.readNextStartElement()) {
            collectNamespaces(reader);
            const auto name = reader.name();
            const auto attrs = reader.attributes();
            Instruction in;
            if (name == u"variable") {
                in.kind = Instruction::Kind::Variable;
                in.name = attrs.value(u"name"_s).toString();
                in.as = attrs.value(u"as"_s).toString();
                if (attrs.hasAttribute(u"select"_s)) {
                    in.select = compile(attrs.value(u"select"_s).toString());
                    reader.skipCurrentElement();
                } else {
                    // Either literal text or instructions.
                    QString text;
                    while (!reader.atEnd()) {
                        const auto t = reader.readNext();
                        if (t == QXmlStreamReader::EndElement)
                            break;
                        if (t == QXmlStreamReader::Characters)
                            text += reader.text();
                        else if (t == QXmlStreamReader::StartElement) {
                            // One instruction at a time, read as a body of its own.
                            Instruction inner;
                            if (reader.name() == u"value-of" || reader.name() == u"sequence") {
                                inner.kind = reader.name() == u"value-of" ? Instruction::Kind::ValueOf
                                                                          : Instruction::Kind::Sequence;
                                inner.select = compile(reader.attributes().value(u"select"_s).toString());
                                reader.skipCurrentElement();
                                in.body.push_back(std::move(inner));
                            } else {
                                throw xpath::Error(
                                    u"unsupported instruction xsl:%1 in a variable"_s.arg(reader.name()));
                            }
                        }
                    }
                    if (in.body.empty())
                        in.literal = text.trimmed();
                }
            } else if (name == u"value-of" || name == u"sequence") {
                in.kind = name == u"value-of" ? Instruction::Kind::ValueOf : Instruction::Kind::Sequence;
                in.select = compile(attrs.value(u"select"_s).toString());
                reader.skipCurrentElement();
            } else if (name == u"choose") {
                in.kind = Instruction::Kind::Choose;
                while (reader.readNextStartElement()) {
                    if (reader.name() == u"when") {
                        auto test = compile(reader.attributes().value(u"test"_s).toString());
                        in.branches.emplace_back(test, readBody(reader));
                    } else if (reader.name() == u"otherwise") {
                        in.branches.emplace_back(nullptr, readBody(reader));
                    } else {
                        reader.skipCurrentElement();
                    }
                }
            } else {
                throw xpath::Error(u"unsupported instruction xsl:%1"_s.arg(name));
            }
            body.push_back(std::move(in));
        }
        return body;
    }

    void readFunction(QXmlStreamReader& reader)
    {
        auto f = std::make_shared<Function>();
        f->name = reader.attributes().value(u"name"_s).toString();
        f->as = reader.attributes().value(u"as"_s).toString();
        // Parameters come first; the rest is the body.
        std::vector<Instruction> body;
        while (reader.readNextStartElement()) {
            collectNamespaces(reader);
            if (reader.name() == u"param") {
                const auto a = reader.attributes();
                f->params.emplace_back(a.value(u"name"_s).toString(), a.value(u"as"_s).toString());
                reader.skipCurrentElement();
                continue;
            }
            const auto name = reader.name();
            const auto attrs = reader.attributes();
            if (name == u"variable" || name == u"value-of" || name == u"sequence" || name == u"choose") {
                std::vector<Instruction> one = readSingle(reader, name.toString(), attrs);
                body.insert(body.end(), std::make_move_iterator(one.begin()),
                            std::make_move_iterator(one.end()));
            } else {
                throw xpath::Error(u"unsupported instruction xsl:%1"_s.arg(name));
            }
        }
        f->body = std::move(body);
        functions.push_back(f);
        std::weak_ptr<Function> weak = f;
        statics.functions.insert(f->name, [weak](Context& caller, std::vector<Sequence>& args) {
            const auto fn = weak.lock();
            if (!fn)
                throw xpath::Error(u"function no longer loaded"_s);
            if (args.size() != fn->params.size())
                throw xpath::Error(
                    u"XPST0017: %1 expects %2 arguments"_s.arg(fn->name).arg(fn->params.size()));
            Variables frame; // functions see their parameters and the global variables only
            const Variables* globals = caller.variables;
            while (globals && globals->outer)
                globals = globals->outer;
            frame.outer = globals;
            for (size_t i = 0; i < args.size(); ++i)
                frame.values.emplace_back(fn->params[i].first, convert(args[i], fn->params[i].second));
            Context inner = caller;
            inner.hasItem = false;
            inner.variables = &frame;
            return convert(run(fn->body, inner, frame), fn->as);
        });
    }

    std::vector<Instruction> readSingle(QXmlStreamReader& reader, const QString& name,
                                        const QXmlStreamAttributes& attrs)
    {
        Instruction in;
        if (name == u"value-of" || name == u"sequence") {
            in.kind = name == u"value-of" ? Instruction::Kind::ValueOf : Instruction::Kind::Sequence;
            in.select = compile(attrs.value(u"select"_s).toString());
            reader.skipCurrentElement();
            return {std::move(in)};
        }
        if (name == u"choose") {
            in.kind = Instruction::Kind::Choose;
            while (reader.readNextStartElement()) {
                if (reader.name() == u"when") {
                    auto test = compile(reader.attributes().value(u"test"_s).toString());
                    in.branches.emplace_back(test, readBody(reader));
                } else if (reader.name() == u"otherwise") {
                    in.branches.emplace_back(nullptr, readBody(reader));
                } else {
                    reader.skipCurrentElement();
                }
            }
            return {std::move(in)};
        }
        // variable
        in.kind = Instruction::Kind::Variable;
        in.name = attrs.value(u"name"_s).toString();
        in.as = attrs.value(u"as"_s).toString();
        if (attrs.hasAttribute(u"select"_s)) {
            in.select = compile(attrs.value(u"select"_s).toString());
            reader.skipCurrentElement();
            return {std::move(in)};
        }
        QString text;
        while (!reader.atEnd()) {
            const auto t = reader.readNext();
            if (t == QXmlStreamReader::EndElement)
                break;
            if (t == QXmlStreamReader::Characters) {
                text += reader.text();
            } else if (t == QXmlStreamReader::StartElement) {
                const QString innerName = reader.name().toString();
                if (innerName != u"value-of" && innerName != u"sequence")
                    throw xpath::Error(u"unsupported instruction xsl:%1 in a variable"_s.arg(innerName));
                auto inner = readSingle(reader, innerName, reader.attributes());
                in.body.insert(in.body.end(), std::make_move_iterator(inner.begin()),
                               std::make_move_iterator(inner.end()));
            }
        }
        if (in.body.empty())
            in.literal = text.trimmed();
        return {std::move(in)};
    }

public:
    static Sequence run(const std::vector<Instruction>& body, Context& context, Variables& frame)
    {
        Sequence result;
        for (const Instruction& in : body) {
            switch (in.kind) {
            case Instruction::Kind::Variable: {
                Sequence value;
                if (in.select)
                    value = in.select->evaluate(context);
                else if (!in.body.empty())
                    value = run(in.body, context, frame);
                else
                    value = {Item::ofString(in.literal, Item::Type::Untyped)};
                frame.values.emplace_back(in.name, convert(value, in.as));
                break;
            }
            case Instruction::Kind::ValueOf: {
                // A text node: the values' strings joined by spaces.
                QStringList parts;
                for (const Item& i : in.select->evaluate(context))
                    parts << i.toString();
                result.push_back(Item::ofString(parts.join(u' '), Item::Type::Untyped));
                break;
            }
            case Instruction::Kind::Sequence: {
                Sequence v = in.select->evaluate(context);
                result.insert(result.end(), v.begin(), v.end());
                break;
            }
            case Instruction::Kind::Choose:
                for (const auto& [test, branch] : in.branches) {
                    if (!test || test->test(context)) {
                        Sequence v = run(branch, context, frame);
                        result.insert(result.end(), v.begin(), v.end());
                        break;
                    }
                }
                break;
            }
        }
        return result;
    }
};

} // namespace

struct SchematronRuleSet::Impl
{
    xpath::StaticContext statics;
    std::vector<Let> globals;
    std::vector<Pattern> patterns;
    std::vector<std::shared_ptr<Function>> functions;
};

SchematronRuleSet::SchematronRuleSet() : m_impl(std::make_unique<Impl>()) {}
SchematronRuleSet::~SchematronRuleSet() = default;

std::unique_ptr<SchematronRuleSet> SchematronRuleSet::load(const QString& path, QString* error)
{
    Loader loader;
    QString message;
    if (!loader.loadFile(path, &message)) {
        if (error)
            *error = message;
        return nullptr;
    }
    auto set = std::unique_ptr<SchematronRuleSet>(new SchematronRuleSet);
    set->m_title = loader.title;
    set->m_impl->statics = std::move(loader.statics);
    set->m_impl->globals = std::move(loader.globals);
    set->m_impl->patterns = std::move(loader.patterns);
    set->m_impl->functions = std::move(loader.functions);
    return set;
}

qsizetype SchematronRuleSet::assertionCount() const
{
    qsizetype n = 0;
    for (const Pattern& p : m_impl->patterns)
        for (const Rule& r : p.rules)
            n += qsizetype(r.assertions.size());
    return n;
}

SchematronResult SchematronRuleSet::apply(const xpath::Document& document) const
{
    SchematronResult result;
    Variables globals;
    Context context;
    context.statics = &m_impl->statics;
    context.root = document.root();
    context.variables = &globals;
    try {
        context.item = Item::ofNode(document.root());
        context.hasItem = true;
        for (const Let& let : m_impl->globals)
            globals.values.emplace_back(let.name, let.value->evaluate(context));

        for (const Pattern& pattern : m_impl->patterns) {
            // Within a pattern a node is handled by the first rule whose context matches it.
            std::unordered_set<const xpath::Node*> handled;
            for (const Rule& rule : pattern.rules) {
                context.item = Item::ofNode(document.root());
                context.position = context.size = 1;
                context.variables = &globals;
                const Sequence nodes = rule.context->evaluate(context);
                for (const Item& item : nodes) {
                    if (!item.isNode() || !handled.insert(item.node).second)
                        continue;
                    Variables locals;
                    locals.outer = &globals;
                    Context here = context;
                    here.item = item;
                    here.variables = &locals;
                    for (const Let& let : rule.lets)
                        locals.values.emplace_back(let.name, let.value->evaluate(here));
                    for (const Assertion& a : rule.assertions) {
                        bool holds = false;
                        try {
                            holds = a.test->test(here);
                        } catch (const xpath::Error& e) {
                            throw xpath::Error(
                                u"%1 (rule %2 at %3)"_s.arg(e.message(), a.id, item.node->path()));
                        }
                        if (holds != a.report)
                            continue;
                        SchematronFailure f;
                        f.id = a.id;
                        f.flag = a.flag;
                        f.location = item.node->path();
                        for (const xpath::Node* n = item.node; n && !f.line; n = n->parent)
                            f.line = n->line;
                        QString text;
                        for (const MessagePart& part : a.message) {
                            if (part.kind == MessagePart::Kind::Text) {
                                text += part.text;
                            } else if (part.kind == MessagePart::Kind::Name) {
                                if (part.expression) {
                                    const Sequence v = part.expression->evaluate(here);
                                    if (!v.empty() && v.front().isNode())
                                        text += v.front().node->qualifiedName();
                                } else {
                                    text += item.node->qualifiedName();
                                }
                            } else {
                                QStringList values;
                                for (const Item& v : part.expression->evaluate(here))
                                    values << v.toString();
                                text += values.join(u' ');
                            }
                        }
                        f.text = text.simplified();
                        result.failures.push_back(std::move(f));
                    }
                }
            }
        }
    } catch (const xpath::Error& e) {
        result.failures.clear();
        result.abortedBecause = e.message();
    }
    return result;
}
