#include "MessageBar.h"

#include "AppText.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QStyle>
#include <QToolButton>

using namespace Qt::Literals::StringLiterals;

MessageBar::MessageBar(QWidget* parent) : QFrame(parent)
{
    setObjectName(u"messageBar"_s);
    setFrameShape(QFrame::StyledPanel);
    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(12, 6, 6, 6);
    m_text = new QLabel(this);
    m_text->setWordWrap(true);
    m_text->setTextInteractionFlags(Qt::TextSelectableByMouse);
    m_text->setTextFormat(Qt::PlainText);
    m_actions = new QHBoxLayout;
    auto* close = new QToolButton(this);
    close->setAutoRaise(true);
    close->setText(u"✕"_s);
    close->setToolTip(ui(u"Close"));
    connect(close, &QToolButton::clicked, this, &MessageBar::dismiss);
    layout->addWidget(m_text, 1);
    layout->addLayout(m_actions);
    layout->addWidget(close, 0, Qt::AlignTop);
    hide();
}

void MessageBar::show(Kind kind, const QString& text)
{
    m_kind = kind;
    while (QLayoutItem* item = m_actions->takeAt(0)) {
        delete item->widget();
        delete item;
    }
    m_text->setText(text);
    // A tint of the message's colour on the window background, like the platform's info bars.
    const QColor accent = kind == Kind::error     ? QColor(0xC0, 0x39, 0x2B)
                          : kind == Kind::warning ? QColor(0xD9, 0x8C, 0x00)
                                                  : palette().color(QPalette::Highlight);
    QColor fill = accent;
    fill.setAlphaF(0.12f);
    setStyleSheet(u"#messageBar { background: rgba(%1,%2,%3,%4); border: 1px solid rgba(%1,%2,%3,0.5); "
                  u"border-radius: 4px; }"_s.arg(accent.red())
                      .arg(accent.green())
                      .arg(accent.blue())
                      .arg(fill.alphaF()));
    QFrame::show();
}

void MessageBar::addAction(const QString& text, std::function<void()> action)
{
    auto* button = new QPushButton(text, this);
    connect(button, &QPushButton::clicked, this, [this, action = std::move(action)] {
        dismiss();
        action();
    });
    m_actions->addWidget(button);
}

void MessageBar::dismiss()
{
    if (isHidden())
        return;
    hide();
    Q_EMIT dismissed();
}

QString MessageBar::text() const
{
    return m_text->text();
}
