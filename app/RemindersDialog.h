#pragma once

#include "model/Invoice.h"
#include "reminders/Reminder.h"

#include <QDialog>

#include <optional>

class DocumentActions;
class PreviewWidget;
class QDateEdit;
class QDoubleSpinBox;
class QListWidget;
class QPlainTextEdit;
class QPushButton;
class QTimer;
class Workspace;

// The payment reminders of one invoice: the chain so far (numbers and titles), the selected
// reminder's date, fee, interest and text with the variables to insert, its letter as it will
// print, and its PDF. Edits are saved a moment after the last change.
class RemindersDialog : public QDialog
{
    Q_OBJECT
public:
    RemindersDialog(Workspace& workspace, DocumentActions& documents, const Invoice& invoice,
                    QWidget* parent = nullptr);
    ~RemindersDialog() override;

    // Adds the next reminder of the chain and selects it.
    void createNext();
    // The reminder being edited, as it stands in the editor.
    std::optional<Reminder> current() const { return m_current; }
    PreviewWidget* preview() const { return m_preview; }

private:
    void reload(const QUuid& select = {});
    void select(const QUuid& id);
    void edited();
    void saveNow();
    void deleteCurrent();
    void updatePreview();
    void updateButtons();

    Workspace& m_workspace;
    DocumentActions& m_documents;
    Invoice m_invoice;
    std::optional<Reminder> m_current;
    QListWidget* m_chain;
    QDateEdit* m_date;
    QDoubleSpinBox* m_fee;
    QDoubleSpinBox* m_interest;
    QPlainTextEdit* m_text;
    QPushButton* m_createNext;
    QPushButton* m_delete;
    QPushButton* m_export;
    PreviewWidget* m_preview;
    QTimer* m_saveTimer;
    bool m_loading = false;
    bool m_dirty = false; // edited since the last save
};
