#pragma once

#include "MessageBar.h"

#include <QUuid>

#include <optional>

class Workspace;

// The bar above the editor that says what a synced data folder did to the open invoice: it was
// changed on another machine at the same time (Compare…), or its number is used by another
// invoice too (Renumber, for a draft). Without either, the conflicts of the profile itself.
class SyncIssuesBar : public MessageBar
{
    Q_OBJECT
public:
    explicit SyncIssuesBar(Workspace& workspace, QWidget* parent = nullptr);

    void setInvoice(const std::optional<QUuid>& id);
    // Reads the state again and shows the message that is due, or hides.
    void refresh();

Q_SIGNALS:
    // Before the versions are compared or changed: pending edits should be saved now.
    void aboutToCompare();
    // A conflict was resolved or a draft renumbered; `text` says what happened.
    void resolved(const QString& text);

private:
    void compare(int conflictIndex);

    Workspace& m_workspace;
    std::optional<QUuid> m_invoice;
};
