#pragma once

#include "model/Invoice.h"

#include <QAbstractTableModel>

#include <functional>

// The line items of the invoice in the editor. Edits do not change the model directly: they
// go to the editor as a new list of items (so that each is one undoable step), and the editor
// hands the result back through setInvoice().
class ItemsModel : public QAbstractTableModel
{
    Q_OBJECT
public:
    enum Column
    {
        descriptionColumn,
        quantityColumn,
        unitColumn,
        priceColumn,
        vatColumn,
        totalColumn,
        columnTotal
    };
    static constexpr int UnitRole = Qt::UserRole + 1;

    using EditHandler = std::function<void(QList<InvoiceItem> items, int row, int column)>;

    explicit ItemsModel(QObject* parent = nullptr);

    void setEditHandler(EditHandler handler) { m_onEdit = std::move(handler); }
    // Shows the invoice's items; rows that kept their identity are updated in place, so an
    // open cell editor and the selection survive.
    void setInvoice(const Invoice& invoice);
    const QList<InvoiceItem>& items() const { return m_items; }

    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    bool setData(const QModelIndex& index, const QVariant& value, int role) override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;
    Qt::ItemFlags flags(const QModelIndex& index) const override;

    // Drag and drop within the table reorders the lines.
    Qt::DropActions supportedDropActions() const override { return Qt::MoveAction; }
    QStringList mimeTypes() const override;
    QMimeData* mimeData(const QModelIndexList& indexes) const override;
    bool dropMimeData(const QMimeData* data, Qt::DropAction action, int row, int column,
                      const QModelIndex& parent) override;

private:
    QList<InvoiceItem> m_items;
    bool m_grossPrices = false;
    QString m_currency;
    EditHandler m_onEdit;
};
