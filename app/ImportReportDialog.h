#pragma once

#include "model/Profile.h"
#include "tasks/ImportTasks.h"

#include <QDialog>

// What became of each imported file: the new invoice's number, or why the file was refused,
// and what to check (an e-invoice whose own totals differ from its lines').
class ImportReportDialog : public QDialog
{
    Q_OBJECT
public:
    ImportReportDialog(const Profile& profile, const QList<ImportResult>& results, QWidget* parent = nullptr);
};
