#include "render/Html.h"

#include <algorithm>

Html Html::trusted(const QString& markup)
{
    Html html;
    html.m_markup = markup;
    return html;
}

QString Html::escape(const QString& text)
{
    QString out;
    out.reserve(text.size() + text.size() / 8);
    for (const QChar c : text) {
        switch (c.unicode()) {
        case u'&':
            out += QLatin1StringView("&amp;");
            break;
        case u'<':
            out += QLatin1StringView("&lt;");
            break;
        case u'>':
            out += QLatin1StringView("&gt;");
            break;
        case u'"':
            out += QLatin1StringView("&quot;");
            break;
        case u'\'':
            out += QLatin1StringView("&#39;");
            break;
        default:
            out += c;
        }
    }
    return out;
}

Html Html::join(const QList<Html>& parts, const Html& separator)
{
    Html out;
    for (qsizetype i = 0; i < parts.size(); ++i) {
        if (i > 0)
            out += separator;
        out += parts[i];
    }
    return out;
}

Html Html::fill(const Html& templ, const QHash<QString, Html>& values)
{
    const QString& text = templ.m_markup;
    QString out;
    out.reserve(text.size() * 2);
    qsizetype pos = 0;
    while (pos < text.size()) {
        const qsizetype open = text.indexOf(QLatin1StringView("{{"), pos);
        if (open < 0)
            break;
        const qsizetype close = text.indexOf(QLatin1StringView("}}"), open + 2);
        if (close < 0)
            break;
        const QStringView name = QStringView(text).mid(open + 2, close - open - 2);
        const bool isName = !name.isEmpty() && std::all_of(name.begin(), name.end(), [](QChar c) {
            return (c >= u'a' && c <= u'z') || (c >= u'0' && c <= u'9') || c == u'-';
        });
        if (!isName) {
            // Not a placeholder: keep the first brace and look again behind it.
            out += QStringView(text).mid(pos, open + 1 - pos);
            pos = open + 1;
            continue;
        }
        out += QStringView(text).mid(pos, open - pos);
        if (const auto found = values.constFind(name.toString()); found != values.cend())
            out += found->m_markup;
        pos = close + 2;
    }
    out += QStringView(text).mid(pos);
    return trusted(out);
}
