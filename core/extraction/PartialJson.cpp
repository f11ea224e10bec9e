#include "extraction/PartialJson.h"

#include "util/Bounds.h"

#include <QJsonDocument>

#include <cctype>
#include <deque>
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
    // Only the last few cuts are ever tried, and the stack is bounded, so recording a cut costs
    // a bounded amount: the whole pass stays linear in the prefix.
    constexpr std::size_t triedCuts = 16;
    std::deque<Cut> cuts;
    auto cut = [&](qsizetype end) {
        if (cuts.size() == triedCuts)
            cuts.pop_front();
        cuts.push_back({end, closersOf(stack)});
    };
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
                cut(i + 1);
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
            // Nothing an invoice needs nests this deep; a deeper answer is not shown while it grows.
            if (stack.size() >= std::size_t(Bounds::modelJsonDepth))
                return std::nullopt;
            stack.push_back(c);
            cut(i + 1);
            break;
        case '}':
        case ']':
            if (!stack.empty())
                stack.pop_back();
            cut(i + 1);
            if (stack.empty())
                return parse(text.left(i + 1));
            break;
        case ',':
            cut(i);
            break;
        default:
            // The end of a number or literal ("12", "true") is a cut too: the next character ends it.
            if (i + 1 < text.size() && (std::isalnum(static_cast<unsigned char>(c)) || c == '.') &&
                !std::isalnum(static_cast<unsigned char>(text[i + 1])) && text[i + 1] != '.')
                cut(i + 1);
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
    for (auto it = cuts.rbegin(); it != cuts.rend(); ++it) {
        if (const auto object = parse(withoutTrailingComma(text.left(it->end)) + it->closers))
            return object;
    }
    return QJsonObject();
}

} // namespace PartialJson
