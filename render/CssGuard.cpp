#include "render/CssGuard.h"

#include <QSet>

using namespace Qt::Literals::StringLiterals;

namespace CssGuard {

namespace {

bool isHex(QChar c)
{
    return (c >= u'0' && c <= u'9') || (c >= u'a' && c <= u'f') || (c >= u'A' && c <= u'F');
}

bool isNameChar(QChar c)
{
    return c.isLetterOrNumber() || c == u'-' || c == u'_' || c.unicode() >= 0x80;
}

bool isNameStart(QChar c)
{
    return c.isLetter() || c == u'-' || c == u'_' || c.unicode() >= 0x80;
}

// Reads one escape at `pos` (the backslash) and returns the character it stands for; `pos`
// ends behind it.
QString readEscape(const QString& css, qsizetype& pos)
{
    ++pos; // the backslash
    if (pos >= css.size())
        return u"\uFFFD"_s;
    if (!isHex(css[pos])) {
        return QString(css[pos++]);
    }
    qsizetype end = pos;
    while (end < css.size() && end - pos < 6 && isHex(css[end]))
        ++end;
    const uint code = css.mid(pos, end - pos).toUInt(nullptr, 16);
    pos = end;
    if (pos < css.size() && (css[pos] == u' ' || css[pos] == u'\t' || css[pos] == u'\n'))
        ++pos;
    if (code == 0 || code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF))
        return u"\uFFFD"_s;
    const char32_t c = code;
    return QString::fromUcs4(&c, 1);
}

// A name (identifier, function or at-rule name) from `pos`, escapes decoded.
QString readName(const QString& css, qsizetype& pos)
{
    QString name;
    while (pos < css.size()) {
        const QChar c = css[pos];
        if (c == u'\\' && pos + 1 < css.size() && css[pos + 1] != u'\n') {
            name += readEscape(css, pos);
        } else if (isNameChar(c)) {
            name += c;
            ++pos;
        } else {
            break;
        }
    }
    return name;
}

// A quoted string from `pos` (the quote) to behind its end; the decoded content goes to `value`.
void skipString(const QString& css, qsizetype& pos, QString* value)
{
    const QChar quote = css[pos++];
    while (pos < css.size()) {
        const QChar c = css[pos];
        if (c == quote) {
            ++pos;
            return;
        }
        if (c == u'\n')
            return; // a bad string ends at the line
        if (c == u'\\') {
            if (pos + 1 < css.size() && css[pos + 1] == u'\n') {
                pos += 2;
                continue;
            }
            const QString decoded = readEscape(css, pos);
            if (value)
                *value += decoded;
            continue;
        }
        if (value)
            *value += c;
        ++pos;
    }
}

void skipComment(const QString& css, qsizetype& pos)
{
    const qsizetype end = css.indexOf(u"*/"_s, pos + 2);
    pos = end < 0 ? css.size() : end + 2;
}

// Moves behind a string, a comment or an escape standing at `pos`; false when none stands there.
// Brackets and semicolons inside them are text, never structure.
bool skipInert(const QString& css, qsizetype& pos)
{
    const QChar c = css[pos];
    if (c == u'"' || c == u'\'') {
        skipString(css, pos, nullptr);
    } else if (c == u'/' && pos + 1 < css.size() && css[pos + 1] == u'*') {
        skipComment(css, pos);
    } else if (c == u'\\') {
        readEscape(css, pos);
    } else {
        return false;
    }
    return true;
}

// From behind an opening parenthesis to behind its matching closing one.
void skipToClose(const QString& css, qsizetype& pos)
{
    int depth = 1;
    while (pos < css.size() && depth > 0) {
        if (!skipInert(css, pos)) {
            const QChar c = css[pos];
            if (c == u'(')
                ++depth;
            else if (c == u')')
                --depth;
            ++pos;
        }
    }
}

// Behind the end of an at-rule's prelude: the next ";" or a whole {} block at this level.
void skipAtRule(const QString& css, qsizetype& pos)
{
    while (pos < css.size()) {
        const QChar c = css[pos];
        if (skipInert(css, pos)) {
            continue;
        } else if (c == u';') {
            ++pos;
            return;
        } else if (c == u'{') {
            int depth = 1;
            ++pos;
            while (pos < css.size() && depth > 0) {
                if (!skipInert(css, pos)) {
                    depth += css[pos] == u'{' ? 1 : css[pos] == u'}' ? -1 : 0;
                    ++pos;
                }
            }
            return;
        } else {
            ++pos;
        }
    }
}

bool isDataUrl(const QString& url)
{
    return url.trimmed().startsWith(u"data:"_s, Qt::CaseInsensitive);
}

// The argument of url( from behind the parenthesis, decoded; `pos` ends behind the ")".
QString readUrl(const QString& css, qsizetype& pos)
{
    while (pos < css.size() && css[pos].isSpace())
        ++pos;
    QString value;
    if (pos < css.size() && (css[pos] == u'"' || css[pos] == u'\'')) {
        skipString(css, pos, &value);
        skipToClose(css, pos);
        return value;
    }
    while (pos < css.size() && css[pos] != u')') {
        if (css[pos] == u'\\')
            value += readEscape(css, pos);
        else
            value += css[pos++];
    }
    if (pos < css.size())
        ++pos;
    return value;
}

} // namespace

QString userStyleSheet(const QString& css)
{
    // Functions that fetch what a plain string names; none of them is needed for a letterhead.
    static const QSet<QString> fetching{u"src"_s,     u"image-set"_s,          u"-webkit-image-set"_s,
                                        u"image"_s,   u"-webkit-image"_s,      u"cross-fade"_s,
                                        u"element"_s, u"-webkit-cross-fade"_s, u"-moz-element"_s};
    QString out;
    out.reserve(css.size());
    qsizetype pos = 0;
    while (pos < css.size()) {
        const QChar c = css[pos];
        const qsizetype start = pos;
        if (c == u'/' && pos + 1 < css.size() && css[pos + 1] == u'*') {
            skipComment(css, pos);
            out += QStringView(css).mid(start, pos - start);
        } else if (c == u'"' || c == u'\'') {
            skipString(css, pos, nullptr);
            out += QStringView(css).mid(start, pos - start);
        } else if (c == u'@') {
            ++pos;
            const QString name = readName(css, pos).toLower();
            if (name == u"import") {
                skipAtRule(css, pos);
                continue;
            }
            out += QStringView(css).mid(start, pos - start);
        } else if (isNameStart(c) || c == u'\\') {
            const QString name = readName(css, pos).toLower();
            if (pos == start) { // a lone backslash
                out += c;
                ++pos;
                continue;
            }
            if (pos < css.size() && css[pos] == u'(') {
                ++pos;
                if (name == u"url") {
                    if (isDataUrl(readUrl(css, pos)))
                        out += QStringView(css).mid(start, pos - start);
                    else
                        out += u"none"_s;
                    continue;
                }
                if (fetching.contains(name)) {
                    skipToClose(css, pos);
                    out += u"none"_s;
                    continue;
                }
            }
            out += QStringView(css).mid(start, pos - start);
        } else {
            out += c;
            ++pos;
        }
    }
    return styleElementText(out);
}

QString styleElementText(const QString& css)
{
    QString out = css;
    out.replace(u'<', u"\\3c "_s);
    return out;
}

QString stringContent(const QString& text)
{
    QString out;
    for (const QChar c : text) {
        if (c.isLetterOrNumber() || c.isSurrogate() || c == u' ' || c == u'-' || c == u'_' || c == u'.')
            out += c;
        else
            out += u'\\' + QString::number(c.unicode(), 16) + u' ';
    }
    return out;
}

} // namespace CssGuard
