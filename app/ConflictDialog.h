#pragma once

#include "tasks/SyncTasks.h"

#include <QDialog>

class QTableWidget;
class Workspace;

// Two versions of a record side by side, the fields in which they differ highlighted, and the
// user's choice: keep this version, the other one, or (invoices) both.
class ConflictDialog : public QDialog
{
    Q_OBJECT
public:
    ConflictDialog(Workspace& workspace, SyncTasks::Conflict conflict, QWidget* parent = nullptr);

    // What happened, after the user chose; empty when the dialog was cancelled.
    QString outcome() const { return m_outcome; }
    QTableWidget* table() const { return m_table; }

private:
    void choose(SyncTasks::Choice choice);

    Workspace& m_workspace;
    SyncTasks::Conflict m_conflict;
    QTableWidget* m_table = nullptr;
    QString m_outcome;
};
