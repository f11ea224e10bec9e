#pragma once

class QMenu;
class QPlainTextEdit;
class QPushButton;
class QString;

// Buttons that open a menu. Push buttons rather than tool buttons: the desktop styles draw a
// tool button's menu arrow over its text, a push button's beside it.
namespace MenuButtons {

QPushButton* withMenu(const QString& text, QMenu* menu);

// "Insert Variable": each reminder variable's placeholder, typed into `text` at the cursor.
QPushButton* reminderVariables(QPlainTextEdit* text);

} // namespace MenuButtons
