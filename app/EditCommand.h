#pragma once

#include "model/Invoice.h"

#include <QElapsedTimer>
#include <QString>
#include <QUndoCommand>

#include <functional>

// One change of the invoice in the editor: the record before and after. Typing into one field
// merges into one step, so undo takes back a word or a whole entry, not a letter.
class EditCommand : public QUndoCommand
{
public:
    using Apply = std::function<void(const Invoice& invoice)>;

    // `field` names what was edited ("name", "item:<id>:price"); edits of the same field in a
    // row merge. An empty field never merges (adding or removing lines).
    EditCommand(Invoice before, Invoice after, const QString& text, const QString& field, Apply apply);

    void undo() override;
    void redo() override;
    int id() const override;
    bool mergeWith(const QUndoCommand* other) override;

    const Invoice& after() const { return m_after; }

private:
    Invoice m_before;
    Invoice m_after;
    QString m_field;
    Apply m_apply;
    bool m_firstRedo = true;
    QElapsedTimer m_lastEdit;
};
