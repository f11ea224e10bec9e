#pragma once

#include <QFrame>

#include <functional>

class QHBoxLayout;
class QLabel;
class QToolButton;

// A message above the editor instead of a modal box: what happened, and what to do about it
// ("Show Missing Fields", "Keep My Changes"). Closed by the user or by the next message.
class MessageBar : public QFrame
{
    Q_OBJECT
public:
    enum class Kind
    {
        information,
        warning,
        error
    };

    explicit MessageBar(QWidget* parent = nullptr);

    void show(Kind kind, const QString& text);
    // Adds a button to the current message; clicking it runs `action` and closes the message.
    void addAction(const QString& text, std::function<void()> action);
    void dismiss();
    QString text() const;
    Kind kind() const { return m_kind; }

Q_SIGNALS:
    void dismissed();

private:
    Kind m_kind = Kind::information;
    QLabel* m_text = nullptr;
    QHBoxLayout* m_actions = nullptr;
};
