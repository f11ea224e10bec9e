#include "EditCommand.h"

namespace {

// Typing pauses longer than this start a new undo step.
constexpr qint64 mergeWindowMs = 2000;

} // namespace

EditCommand::EditCommand(Invoice before, Invoice after, const QString& text, const QString& field,
                         Apply apply)
    : QUndoCommand(text), m_before(std::move(before)), m_after(std::move(after)), m_field(field),
      m_apply(std::move(apply))
{
    m_lastEdit.start();
}

void EditCommand::undo()
{
    m_apply(m_before);
}

void EditCommand::redo()
{
    // The first time, the editor shows the change already: it is where it came from.
    if (std::exchange(m_firstRedo, false))
        return;
    m_apply(m_after);
}

int EditCommand::id() const
{
    return m_field.isEmpty() ? -1 : 1;
}

bool EditCommand::mergeWith(const QUndoCommand* other)
{
    const auto* next = static_cast<const EditCommand*>(other);
    if (next->m_field != m_field || m_lastEdit.elapsed() > mergeWindowMs)
        return false;
    m_after = next->m_after;
    m_lastEdit.restart();
    return true;
}
