#include "extraction/PartialJson.h"

#include <QJsonDocument>

#include <cctype>
#include <vector>

namespace {

// A place where the prefix may be cut: outside any string, with the closers that the open
// containers need at that point.
struct Cut
{
    qsizetype end;
    QByteArray closers;
};

std::optional<QJsonObject> parse(const QByteArray& text)
{
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(text, &error);
    if (error.error != QJsonParseError::NoError || !document.isObject())
        return std::nullopt;
    return document.object();
}

QByteArray closersOf(const std::vector<char>& stack)
{
    QByteArray closers;
    for (auto it = stack.rbegin(); it != stack.rend(); ++it)
        closers.append(*it == '{' ? '}' : ']');
    return closers;
}

QByteArray withoutTrailingComma(QByteArray text)
{
    while (!text.isEmpty() &&
           (text.back() == ' ' || text.back() == '\n' || text.back() == '\r' || text.back() == '\t'))
        text.chop(1);
    if (text.endsWith(','))
        text.chop(1);
    return text;
}

} // namespace

namespace PartialJson {

std::optional<QJsonObject> complete(const QByteArray& prefix)
{
    const qsizetype start = prefix.indexOf('{');
    if (start < 0)
        return std::nullopt;
    const QByteArray text = prefix.mid(start);

    std::vector<char> stack;
    std::vector<Cut> cuts;
    bool inString = false;
    bool escaped = false;
    qsizetype stringStart = 0;
    for (qsizetype i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (inString) {
            if (escaped)
                escaped = false;
            else if (c == '\\')
                escaped = true;
            else if (c == '"') {
                inString = false;
                cuts.push_back({i + 1, closersOf(stack)});
            }
            continue;
        }
        switch (c) {
        case '"':
            inString = true;
            stringStart = i;
            break;
        case '{':
        case '[':
            stack.push_back(c);
            cuts.push_back({i + 1, closersOf(stack)});
            break;
        case '}':
        case ']':
            if (!stack.empty())
                stack.pop_back();
            cuts.push_back({i + 1, closersOf(stack)});
            if (stack.empty())
                return parse(text.left(i + 1));
            break;
        case ',':
            cuts.push_back({i, closersOf(stack)});
            break;
        default:
            // The end of a number or literal ("12", "true") is a cut too: the next character ends it.
            if (i + 1 < text.size() && (std::isalnum(static_cast<unsigned char>(c)) || c == '.') &&
                !std::isalnum(static_cast<unsigned char>(text[i + 1])) && text[i + 1] != '.')
                cuts.push_back({i + 1, closersOf(stack)});
            break;
        }
    }

    // A string still being written shows what it has so far.
    if (inString) {
        QByteArray open = text.left(text.size() - (escaped ? 1 : 0));
        // An escape such as "\u00" that has not arrived in full is left out.
        const qsizetype backslash = open.lastIndexOf('\\');
        if (backslash > stringStart && open.size() - backslash < 6 && open.size() > backslash + 1 &&
            open[backslash + 1] == 'u')
            open.truncate(backslash);
        if (const auto object = parse(open + '"' + closersOf(stack)))
            return object;
    } else if (const auto object = parse(withoutTrailingComma(text) + closersOf(stack))) {
        return object;
    }
    // Otherwise go back to the last place that closes cleanly: this drops a key without its
    // value ("name": ) or a literal cut short ("tru").
    int attempts = 0;
    for (auto it = cuts.rbegin(); it != cuts.rend() && attempts < 16; ++it, ++attempts) {
        if (const auto object = parse(withoutTrailingComma(text.left(it->end)) + it->closers))
            return object;
    }
    return QJsonObject();
}

} // namespace PartialJson
