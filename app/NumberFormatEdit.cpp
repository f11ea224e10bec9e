#include "NumberFormatEdit.h"

#include "AppText.h"
#include "util/Clock.h"

#include <QAbstractTextDocumentLayout>
#include <QKeyEvent>
#include <QLineEdit>
#include <QMenu>
#include <QMimeData>
#include <QPainter>
#include <QPainterPath>
#include <QTextBlock>
#include <QTextObjectInterface>

using namespace Qt::Literals::StringLiterals;

namespace {

constexpr int chipObjectType = QTextFormat::UserObject + 1;
constexpr int chipTokenProperty = QTextFormat::UserProperty + 1;
constexpr QChar chipCharacter = QChar::ObjectReplacementCharacter;

QTextCharFormat chipFormat(const NumberFormatChip& chip)
{
    QTextCharFormat format;
    format.setObjectType(chipObjectType);
    format.setProperty(chipTokenProperty, chip.token());
    // Centred on the line like the text around it, not standing on the baseline.
    format.setVerticalAlignment(QTextCharFormat::AlignMiddle);
    return format;
}

} // namespace

// Draws a chip as a rounded label with its token, in the field's highlight colour.
class NumberFormatChipRenderer : public QObject, public QTextObjectInterface
{
    Q_OBJECT
    Q_INTERFACES(QTextObjectInterface)
public:
    explicit NumberFormatChipRenderer(QWidget* field) : QObject(field), m_field(field) {}

    QSizeF intrinsicSize(QTextDocument*, int, const QTextFormat& format) override
    {
        const QFontMetricsF metrics(m_field->font());
        const QString token = format.property(chipTokenProperty).toString();
        return {metrics.horizontalAdvance(token) + 2 * padding + 2 * gap, metrics.height()};
    }

    void drawObject(QPainter* painter, const QRectF& rect, QTextDocument*, int,
                    const QTextFormat& format) override
    {
        const QString token = format.property(chipTokenProperty).toString();
        const QPalette palette = m_field->palette();
        QColor fill = palette.color(QPalette::Highlight);
        fill.setAlphaF(0.18f);
        QColor edge = palette.color(QPalette::Highlight);
        edge.setAlphaF(0.55f);
        const QRectF pill = rect.adjusted(gap, 0.5, -gap, -0.5);
        painter->save();
        painter->setRenderHint(QPainter::Antialiasing);
        painter->setPen(QPen(edge, 1));
        painter->setBrush(fill);
        painter->drawRoundedRect(pill, pill.height() / 2.5, pill.height() / 2.5);
        painter->setPen(palette.color(QPalette::Text));
        painter->setFont(m_field->font());
        painter->drawText(pill, Qt::AlignCenter, token);
        painter->restore();
    }

private:
    static constexpr double padding = 5;
    static constexpr double gap = 1.5;
    QWidget* m_field;
};

NumberFormatEdit::NumberFormatEdit(QWidget* parent) : QTextEdit(parent)
{
    setAcceptRichText(false);
    setLineWrapMode(QTextEdit::NoWrap);
    setWordWrapMode(QTextOption::NoWrap);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    setTabChangesFocus(true);
    document()->setDocumentMargin(2);
    document()->documentLayout()->registerHandler(chipObjectType, new NumberFormatChipRenderer(this));
    setFixedHeight(sizeHint().height());
    setAccessibleDescription(ui(u"Text with placeholders. Click a placeholder to change it."));

    m_insertMenu = new QMenu(this);
    const QList<std::pair<NumberFormatChipKind, QString>> kinds{
        {NumberFormatChipKind::number, ui(u"Running Number")},
        {NumberFormatChipKind::date, ui(u"Date")},
        {NumberFormatChipKind::variable, ui(u"Per-Invoice Variable")}};
    for (const auto& [kind, title] : kinds) {
        QMenu* tokens = tokenMenu(kind, m_insertMenu, [this](const QString& token) {
            if (const auto chip = NumberFormat::parseToken(token))
                insertChip(*chip);
        });
        tokens->setTitle(title);
        m_insertMenu->addMenu(tokens);
    }

    // Text typed right after a chip must not take the chip's format.
    connect(this, &QTextEdit::cursorPositionChanged, this, [this] {
        if (currentCharFormat().objectType() == chipObjectType)
            setCurrentCharFormat(QTextCharFormat());
    });
    connect(this, &QTextEdit::textChanged, this, [this] {
        const QString now = format();
        if (now != m_lastFormat) {
            m_lastFormat = now;
            Q_EMIT formatChanged(now);
        }
    });
}

QSize NumberFormatEdit::sizeHint() const
{
    // As tall as a line edit, so it lines up with the fields around it.
    const int height =
        std::max(QLineEdit().sizeHint().height(),
                 fontMetrics().height() + 2 * int(document()->documentMargin()) + 2 * frameWidth());
    return {fontMetrics().horizontalAdvance(u'x') * 28, height};
}

QSize NumberFormatEdit::minimumSizeHint() const
{
    return {fontMetrics().horizontalAdvance(u'x') * 10, sizeHint().height()};
}

QString NumberFormatEdit::describe(const NumberFormatChip& chip)
{
    switch (chip.kind) {
    case NumberFormatChipKind::number:
        return chip.length == 1 ? ui(u"Running number") : ui(u"Running number, %1 digits").arg(chip.length);
    case NumberFormatChipKind::date:
        if (chip.pattern == u"YY")
            return ui(u"Year, two digits");
        if (chip.pattern == u"YYYY")
            return ui(u"Year");
        if (chip.pattern == u"YYYYMM")
            return ui(u"Year and month");
        if (chip.pattern == u"MM")
            return ui(u"Month");
        if (chip.pattern == u"DD")
            return ui(u"Day");
        return ui(u"Date");
    case NumberFormatChipKind::variable:
        return ui(u"Per-Invoice Variable");
    }
    return {};
}

QMenu* NumberFormatEdit::tokenMenu(NumberFormatChipKind kind, QWidget* parent,
                                   const std::function<void(const QString&)>& chosen)
{
    auto* menu = new QMenu(parent);
    for (const NumberFormatChipTypeDefinition& definition : NumberFormat::chipTypeDefinitions()) {
        if (definition.kind != kind)
            continue;
        for (const NumberFormatChipFormat& format : definition.formats) {
            const auto chip = NumberFormat::parseToken(format.token);
            if (!chip)
                continue;
            QString text = format.token + u"\t"_s + describe(*chip);
            if (kind != NumberFormatChipKind::variable)
                text +=
                    u"  ("_s + NumberFormat::render(u'{' + format.token + u'}', 7, Clock::today(), {}) + u')';
            QAction* action = menu->addAction(text, this, [chosen, token = format.token] { chosen(token); });
            action->setData(format.token);
            if (format.token == definition.defaultToken)
                menu->setDefaultAction(action);
        }
    }
    return menu;
}

QString NumberFormatEdit::format() const
{
    return formatOf(0, document()->characterCount());
}

QString NumberFormatEdit::formatOf(int from, int to) const
{
    QString result;
    for (QTextBlock block = document()->begin(); block.isValid(); block = block.next()) {
        for (auto it = block.begin(); !it.atEnd(); ++it) {
            const QTextFragment fragment = it.fragment();
            const int start = std::max(from, fragment.position());
            const int end = std::min(to, fragment.position() + fragment.length());
            if (start >= end)
                continue;
            const QString text = fragment.text().mid(start - fragment.position(), end - start);
            const QTextCharFormat format = fragment.charFormat();
            if (format.objectType() == chipObjectType) {
                const QString token = format.property(chipTokenProperty).toString();
                for (qsizetype i = 0; i < text.size(); ++i)
                    result += u'{' + token + u'}';
            } else {
                result += text;
            }
        }
    }
    return result;
}

void NumberFormatEdit::setFormat(const QString& format)
{
    const QSignalBlocker blocker(this);
    clear();
    setCurrentCharFormat(QTextCharFormat());
    insertSegments(NumberFormat::parse(format));
    m_lastFormat = this->format();
    moveCursor(QTextCursor::End);
}

void NumberFormatEdit::insertChip(const NumberFormatChip& chip)
{
    insertSegments({NumberFormatSegment{chip}});
    setFocus();
}

void NumberFormatEdit::insertSegments(const QList<NumberFormatSegment>& segments)
{
    QTextCursor cursor = textCursor();
    cursor.beginEditBlock();
    for (const NumberFormatSegment& segment : segments) {
        if (segment.isText())
            cursor.insertText(std::get<QString>(segment.content), QTextCharFormat());
        else
            cursor.insertText(QString(chipCharacter),
                              chipFormat(std::get<NumberFormatChip>(segment.content)));
    }
    cursor.setCharFormat(QTextCharFormat());
    cursor.endEditBlock();
    setTextCursor(cursor);
    setCurrentCharFormat(QTextCharFormat());
}

void NumberFormatEdit::keyPressEvent(QKeyEvent* event)
{
    if (event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter) {
        // One line only: Enter belongs to the dialog's default button.
        event->ignore();
        return;
    }
    if (event->key() == Qt::Key_Menu ||
        (event->key() == Qt::Key_Down && event->modifiers() & Qt::AltModifier)) {
        // The keyboard's way to a chip's menu: the chip before the cursor, else the insert menu.
        const int position = textCursor().position() - 1;
        QMenu* menu = position >= 0 && document()->characterAt(position) == chipCharacter ? chipMenu(position)
                                                                                          : m_insertMenu;
        menu->popup(viewport()->mapToGlobal(cursorRect().bottomLeft()));
        return;
    }
    QTextEdit::keyPressEvent(event);
    if (event->text() == u"}")
        chipTypedToken();
}

void NumberFormatEdit::chipTypedToken()
{
    QTextCursor cursor = textCursor();
    const int end = cursor.position();
    const QString before = formatOf(0, end);
    const qsizetype open = before.lastIndexOf(u'{');
    if (open < 0)
        return;
    const QString token = before.mid(open + 1, before.size() - open - 2);
    const auto chip = NumberFormat::parseToken(token);
    if (!chip)
        return;
    // Only literal characters can become a chip; the token and braces were typed as text.
    const int length = int(token.size()) + 2;
    const int start = end - length;
    if (start < 0 || formatOf(start, end) != u'{' + token + u'}')
        return;
    cursor.setPosition(start);
    cursor.setPosition(end, QTextCursor::KeepAnchor);
    cursor.beginEditBlock();
    cursor.removeSelectedText();
    cursor.insertText(QString(chipCharacter), chipFormat(*chip));
    cursor.setCharFormat(QTextCharFormat());
    cursor.endEditBlock();
    setTextCursor(cursor);
    setCurrentCharFormat(QTextCharFormat());
}

int NumberFormatEdit::chipAt(const QPoint& point) const
{
    const int near = cursorForPosition(point).position();
    for (const int position : {near, near - 1}) {
        if (position < 0 || document()->characterAt(position) != chipCharacter)
            continue;
        QTextCursor left(document());
        left.setPosition(position);
        QTextCursor right(document());
        right.setPosition(position + 1);
        if (point.x() >= cursorRect(left).left() && point.x() <= cursorRect(right).left())
            return position;
    }
    return -1;
}

QMenu* NumberFormatEdit::chipMenu(int position)
{
    QTextCursor cursor(document());
    cursor.setPosition(position);
    cursor.setPosition(position + 1, QTextCursor::KeepAnchor);
    const QString token = cursor.charFormat().property(chipTokenProperty).toString();
    const auto chip = NumberFormat::parseToken(token);
    auto* menu = tokenMenu(chip ? chip->kind : NumberFormatChipKind::number, this,
                           [this, position](const QString& next) {
                               const auto replacement = NumberFormat::parseToken(next);
                               if (!replacement)
                                   return;
                               QTextCursor target(document());
                               target.setPosition(position);
                               target.setPosition(position + 1, QTextCursor::KeepAnchor);
                               target.insertText(QString(chipCharacter), chipFormat(*replacement));
                               setCurrentCharFormat(QTextCharFormat());
                           });
    menu->setAttribute(Qt::WA_DeleteOnClose);
    for (QAction* action : menu->actions()) {
        action->setCheckable(true);
        action->setChecked(action->data().toString() == token);
    }
    return menu;
}

void NumberFormatEdit::mouseReleaseEvent(QMouseEvent* event)
{
    QTextEdit::mouseReleaseEvent(event);
    if (event->button() != Qt::LeftButton || textCursor().hasSelection())
        return;
    if (const int position = chipAt(event->position().toPoint()); position >= 0)
        chipMenu(position)->popup(event->globalPosition().toPoint());
}

bool NumberFormatEdit::canInsertFromMimeData(const QMimeData* source) const
{
    return source->hasText();
}

void NumberFormatEdit::insertFromMimeData(const QMimeData* source)
{
    QString text = source->text();
    text.replace(u'\n', u' ').replace(u'\r', u' ').replace(u'\t', u' ');
    insertSegments(NumberFormat::parse(text));
}

QMimeData* NumberFormatEdit::createMimeDataFromSelection() const
{
    auto* data = new QMimeData;
    const QTextCursor cursor = textCursor();
    data->setText(formatOf(cursor.selectionStart(), cursor.selectionEnd()));
    return data;
}

#include "NumberFormatEdit.moc"
