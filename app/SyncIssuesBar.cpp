#include "SyncIssuesBar.h"

#include "AppText.h"
#include "ConflictDialog.h"
#include "numbering/NumberFormat.h"
#include "tasks/SyncTasks.h"
#include "tasks/TaskError.h"
#include "tasks/Workspace.h"

using namespace Qt::Literals::StringLiterals;

SyncIssuesBar::SyncIssuesBar(Workspace& workspace, QWidget* parent)
    : MessageBar(parent), m_workspace(workspace)
{
    // Outside changes (a sync engine) bring and take conflicts and duplicate numbers.
    connect(&m_workspace.invoices(), &InvoiceManager::invoicesChanged, this, &SyncIssuesBar::refresh);
    connect(&m_workspace.profiles(), &ProfileManager::profilesChanged, this, &SyncIssuesBar::refresh);
}

void SyncIssuesBar::setInvoice(const std::optional<QUuid>& id)
{
    m_invoice = id;
    refresh();
}

void SyncIssuesBar::refresh()
{
    const Invoice* invoice = m_invoice ? m_workspace.invoices().invoice(*m_invoice) : nullptr;
    if (invoice && m_workspace.invoices().isInConflict(invoice->id)) {
        show(Kind::warning, ui(u"Changed on another machine at the same time. Compare the versions and "
                               u"choose which to keep; until then both are kept."));
        addAction(ui(u"Compare…"), [this] { compare(0); });
        return;
    }
    if (invoice) {
        if (const QString clash = SyncTasks::numberClash(m_workspace, *invoice); !clash.isEmpty()) {
            show(Kind::warning, clash);
            if (invoice->status == Status::draft) {
                const QUuid id = invoice->id;
                addAction(ui(u"Renumber"), [this, id] {
                    Q_EMIT aboutToCompare();
                    try {
                        const QString number = SyncTasks::renumber(m_workspace, id);
                        Q_EMIT resolved(ui(u"The draft now has the number %1.").arg(number));
                    } catch (const TaskError& error) {
                        show(Kind::error, error.message());
                    }
                });
            }
            return;
        }
    }
    // The profile's own files; cheap to look for (a few names in one folder per profile).
    QList<SyncTasks::Conflict> profileConflicts;
    for (const SyncTasks::RecordKind kind :
         {SyncTasks::RecordKind::profile, SyncTasks::RecordKind::styling, SyncTasks::RecordKind::folder})
        profileConflicts += SyncTasks::conflictsOf(m_workspace, kind);
    if (!profileConflicts.isEmpty()) {
        const SyncTasks::Conflict& first = profileConflicts.first();
        show(Kind::warning, ui(u"%1 of profile “%2” was changed on another machine at the same time.")
                                .arg(first.subject, first.profileName));
        if (first.kind == SyncTasks::RecordKind::folder)
            addAction(ui(u"Move Into Profile"), [this, conflict = first] {
                try {
                    Q_EMIT resolved(SyncTasks::resolve(m_workspace, conflict, SyncTasks::Choice::keepBoth));
                } catch (const TaskError& error) {
                    show(Kind::error, error.message());
                }
                refresh();
            });
        else
            addAction(ui(u"Compare…"), [this, conflict = first] {
                Q_EMIT aboutToCompare();
                ConflictDialog dialog(m_workspace, conflict, window());
                if (dialog.exec() == QDialog::Accepted)
                    Q_EMIT resolved(dialog.outcome());
                refresh();
            });
        return;
    }
    if (!isHidden())
        dismiss();
}

void SyncIssuesBar::compare(int conflictIndex)
{
    if (!m_invoice)
        return;
    Q_EMIT aboutToCompare();
    const QList<SyncTasks::Conflict> conflicts =
        SyncTasks::conflictsOf(m_workspace, SyncTasks::RecordKind::invoice, *m_invoice);
    if (conflictIndex >= conflicts.size())
        return;
    ConflictDialog dialog(m_workspace, conflicts[conflictIndex], window());
    if (dialog.exec() == QDialog::Accepted)
        Q_EMIT resolved(dialog.outcome());
    refresh();
}
