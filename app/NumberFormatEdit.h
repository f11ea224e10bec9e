#pragma once

#include "numbering/NumberFormat.h"

#include <QTextEdit>

class QMenu;

// A one-line field for an invoice number format: literal text as typed, the placeholders
// as chips that move and delete as one character. A chip offers the other tokens of its kind
// when clicked; the insert menu offers the tokens of every kind. Typing a token in braces, or
// pasting a whole format, gives chips too.
class NumberFormatEdit : public QTextEdit
{
    Q_OBJECT
public:
    explicit NumberFormatEdit(QWidget* parent = nullptr);

    // The format as stored: text, and each chip as "{token}".
    QString format() const;
    void setFormat(const QString& format);

    void insertChip(const NumberFormatChip& chip);
    // Number, date and per-invoice variable, each with its tokens in menu order.
    QMenu* insertMenu() const { return m_insertMenu; }
    // The tokens of the chip's kind; choosing one replaces the chip at `position`.
    QMenu* chipMenu(int position);

    // What a chip stands for, in the interface language ("Running number, 3 digits").
    static QString describe(const NumberFormatChip& chip);

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;

Q_SIGNALS:
    void formatChanged(const QString& format);

protected:
    void keyPressEvent(QKeyEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    bool canInsertFromMimeData(const QMimeData* source) const override;
    void insertFromMimeData(const QMimeData* source) override;
    QMimeData* createMimeDataFromSelection() const override;

private:
    void insertSegments(const QList<NumberFormatSegment>& segments);
    QString formatOf(int from, int to) const;
    // Turns a typed "{token}" just before the cursor into its chip.
    void chipTypedToken();
    int chipAt(const QPoint& point) const;
    QMenu* tokenMenu(NumberFormatChipKind kind, QWidget* parent,
                     const std::function<void(const QString&)>& chosen);

    QMenu* m_insertMenu = nullptr;
    QString m_lastFormat;
};
