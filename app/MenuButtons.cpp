#include "MenuButtons.h"

#include "AppText.h"
#include "reminders/ReminderVariable.h"

#include <QMenu>
#include <QPlainTextEdit>
#include <QPushButton>

using namespace Qt::Literals::StringLiterals;

namespace MenuButtons {

QPushButton* withMenu(const QString& text, QMenu* menu)
{
    auto* button = new QPushButton(text);
    button->setAutoDefault(false);
    button->setMenu(menu);
    return button;
}

QPushButton* reminderVariables(QPlainTextEdit* text)
{
    auto* menu = new QMenu(text);
    for (const auto& variableCase : EnumTraits<ReminderVariable>::cases) {
        const ReminderVariable variable = variableCase.value;
        menu->addAction(ReminderVariables::label(variable), text, [text, variable] {
            text->insertPlainText(ReminderVariables::placeholder(variable));
            text->setFocus();
        });
    }
    QPushButton* button = withMenu(ui(u"Insert Variable"), menu);
    button->setObjectName(u"insertVariable"_s);
    return button;
}

} // namespace MenuButtons
