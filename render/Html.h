#pragma once

#include <QHash>
#include <QList>
#include <QString>

// Markup for the document pages. Text becomes markup only escaped: wherever a QString meets
// an Html (construction, "+", the template filler) it is escaped on the way in, so a value
// that a caller forgot to escape still shows as text and never as an element. Markup that the
// program writes itself comes from literals (u"<tr>"_html); markup that code builds from
// numbers (the QR symbol) is let in by name with Html::trusted().
class Html
{
public:
    Html() = default;
    // Text, escaped. Implicit on purpose: that is what makes escaping the default.
    Html(const QString& text) : m_markup(escape(text)) {}
    // A bare literal is ambiguous (text or markup?): say which with _s or _html.
    Html(const char16_t*) = delete;
    Html(const char*) = delete;

    static Html trusted(const QString& markup);
    // "&", "<", ">", '"' and "'" as entities: safe in element content and in quoted attributes.
    static QString escape(const QString& text);

    const QString& toString() const { return m_markup; }
    bool isEmpty() const { return m_markup.isEmpty(); }

    Html& operator+=(const Html& other)
    {
        m_markup += other.m_markup;
        return *this;
    }
    friend Html operator+(Html a, const Html& b) { return a += b; }
    friend bool operator==(const Html&, const Html&) = default;

    static Html join(const QList<Html>& parts, const Html& separator);
    // Replaces every "{{name}}" of the template by its value, in one pass: braces inside a
    // value are never read as a placeholder. A placeholder without a value becomes empty.
    static Html fill(const Html& templ, const QHash<QString, Html>& values);

private:
    QString m_markup;
};

inline Html operator""_html(const char16_t* text, size_t size)
{
    return Html::trusted(QString::fromUtf16(text, qsizetype(size)));
}
