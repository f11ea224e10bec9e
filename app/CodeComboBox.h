#pragma once

#include "model/Codes.h"

#include <QComboBox>

// A picker of countries or currencies by name in the interface language, with the code kept
// as the item's data. Typing filters by name or code.
class CodeComboBox : public QComboBox
{
    Q_OBJECT
public:
    enum class Kind
    {
        country,
        currency
    };
    explicit CodeComboBox(Kind kind, QWidget* parent = nullptr);

    QString code() const;
    // Selects the code; an unknown code is added so that it is shown as it is stored.
    void setCode(const QString& code);

Q_SIGNALS:
    void codeChosen(const QString& code);
};
