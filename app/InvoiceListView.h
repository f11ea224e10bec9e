#pragma once

#include <QTreeView>
#include <QUuid>

class QLabel;
class QPushButton;
class QWidget;

// The invoice list: sortable columns, multi-selection, a status badge per row, and an empty
// state that says what to do when there is nothing to show.
class InvoiceListView : public QTreeView
{
    Q_OBJECT
public:
    explicit InvoiceListView(QWidget* parent = nullptr);

    void setModel(QAbstractItemModel* model) override;

    QList<QUuid> selectedIds() const;
    QUuid currentId() const;
    // Selects and shows one invoice; false when it is not in the (filtered) list.
    bool selectId(const QUuid& id);

    // Number, date, gross and status as wide as their longest text (of the first few hundred
    // rows) and header; the recipient takes what is left.
    void fitColumns();
    // The width at which every column shows its texts whole, the recipient of a typical length.
    int fittingWidth() const;

    // The texts of the empty state: no invoices at all, or none that match.
    void setEmptyTexts(const QString& title, const QString& hint, bool offerNewInvoice);
    // Said over the list while something is dragged onto it; an empty text hides it.
    void setDropHint(const QString& text);
    QString dropHint() const;

Q_SIGNALS:
    void newInvoiceRequested();

protected:
    void resizeEvent(QResizeEvent* event) override;

private:
    void updateEmptyState();
    int contentWidth(int column) const;
    int fittedWidth(int column) const;

    QWidget* m_empty = nullptr;
    QLabel* m_emptyTitle = nullptr;
    QLabel* m_emptyHint = nullptr;
    QPushButton* m_newInvoice = nullptr;
    QLabel* m_dropHint = nullptr;
};
