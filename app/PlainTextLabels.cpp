#include "PlainTextLabels.h"

#include <QApplication>
#include <QEvent>
#include <QLabel>

namespace PlainTextLabels {

namespace {

class Filter : public QObject
{
public:
    using QObject::QObject;

    bool eventFilter(QObject* watched, QEvent* event) override
    {
        // Polish comes before a widget is first shown, after its code has set it up.
        if (event->type() == QEvent::Polish)
            if (auto* label = qobject_cast<QLabel*>(watched); label && label->textFormat() == Qt::AutoText)
                label->setTextFormat(Qt::PlainText);
        return false;
    }
};

} // namespace

void install(QApplication& application)
{
    application.installEventFilter(new Filter(&application));
}

} // namespace PlainTextLabels
