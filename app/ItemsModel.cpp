#include "ItemsModel.h"

#include "AppText.h"
#include "LocaleNumbers.h"
#include "calc/Totals.h"
#include "l10n/Strings.h"
#include "render/InvoiceDocument.h"

#include <QMimeData>

using namespace Qt::Literals::StringLiterals;

namespace {

const QString rowMimeType = u"application/x-ledra-item-row"_s;

} // namespace

ItemsModel::ItemsModel(QObject* parent) : QAbstractTableModel(parent) {}

void ItemsModel::setInvoice(const Invoice& invoice)
{
    const bool sameRows = invoice.items.size() == m_items.size() &&
                          std::equal(invoice.items.begin(), invoice.items.end(), m_items.begin(),
                                     [](const InvoiceItem& a, const InvoiceItem& b) { return a.id == b.id; });
    const bool displayChanged = invoice.grossPrices != m_grossPrices || invoice.currency.code != m_currency;
    if (!sameRows) {
        beginResetModel();
        m_items = invoice.items;
        m_grossPrices = invoice.grossPrices;
        m_currency = invoice.currency.code;
        endResetModel();
        return;
    }
    const QList<InvoiceItem> old = std::exchange(m_items, invoice.items);
    m_grossPrices = invoice.grossPrices;
    m_currency = invoice.currency.code;
    for (int row = 0; row < m_items.size(); ++row)
        if (displayChanged || !(old[row] == m_items[row]))
            Q_EMIT dataChanged(index(row, 0), index(row, columnTotal - 1));
}

int ItemsModel::rowCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : int(m_items.size());
}

int ItemsModel::columnCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : int(columnTotal);
}

QVariant ItemsModel::data(const QModelIndex& index, int role) const
{
    if (!index.isValid() || index.row() >= m_items.size())
        return {};
    const InvoiceItem& item = m_items[index.row()];
    if (role == Qt::TextAlignmentRole)
        return int((index.column() == descriptionColumn || index.column() == unitColumn ? Qt::AlignLeft
                                                                                        : Qt::AlignRight) |
                   Qt::AlignVCenter);
    if (role == UnitRole)
        return int(item.unit);
    if (role != Qt::DisplayRole && role != Qt::EditRole && role != Qt::ToolTipRole)
        return {};
    switch (index.column()) {
    case descriptionColumn:
        return item.item;
    case quantityColumn:
        return LocaleNumbers::plain(item.quantity);
    case unitColumn:
        return role == Qt::EditRole ? QVariant(int(item.unit)) : QVariant(labelText(item.unit));
    case priceColumn:
        return LocaleNumbers::price(item.unitPrice);
    case vatColumn:
        return LocaleNumbers::plain(item.vatPercentage);
    case totalColumn:
        return InvoiceDocument::formatAmount(Totals::lineNet(item, m_grossPrices), m_currency,
                                             Strings::interfaceLanguage());
    }
    return {};
}

bool ItemsModel::setData(const QModelIndex& index, const QVariant& value, int role)
{
    if (role != Qt::EditRole || !index.isValid() || index.row() >= m_items.size() || !m_onEdit)
        return false;
    QList<InvoiceItem> items = m_items;
    InvoiceItem& item = items[index.row()];
    switch (index.column()) {
    case descriptionColumn:
        item.item = value.toString();
        break;
    case unitColumn:
        item.unit = Unit(value.toInt());
        break;
    case quantityColumn:
    case priceColumn:
    case vatColumn: {
        const std::optional<double> number = value.typeId() == QMetaType::Double
                                                 ? std::optional(value.toDouble())
                                                 : LocaleNumbers::parse(value.toString());
        if (!number)
            return false;
        (index.column() == quantityColumn ? item.quantity
         : index.column() == priceColumn  ? item.unitPrice
                                          : item.vatPercentage) = *number;
        break;
    }
    default:
        return false;
    }
    if (items[index.row()] == m_items[index.row()])
        return true;
    m_onEdit(items, index.row(), index.column());
    return true;
}

QVariant ItemsModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal)
        return {};
    if (role == Qt::TextAlignmentRole)
        return int((section == descriptionColumn || section == unitColumn ? Qt::AlignLeft : Qt::AlignRight) |
                   Qt::AlignVCenter);
    if (role != Qt::DisplayRole)
        return {};
    switch (section) {
    case descriptionColumn:
        return ui(u"Description");
    case quantityColumn:
        return ui(u"Qty");
    case unitColumn:
        return ui(u"Unit");
    case priceColumn:
        return m_grossPrices ? ui(u"Gross Price") : ui(u"Price");
    case vatColumn:
        return ui(u"VAT %");
    case totalColumn:
        return ui(u"Net Total");
    }
    return {};
}

Qt::ItemFlags ItemsModel::flags(const QModelIndex& index) const
{
    if (!index.isValid())
        return Qt::ItemIsDropEnabled;
    Qt::ItemFlags flags = Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemIsDragEnabled;
    if (index.column() != totalColumn)
        flags |= Qt::ItemIsEditable;
    return flags;
}

QStringList ItemsModel::mimeTypes() const
{
    return {rowMimeType};
}

QMimeData* ItemsModel::mimeData(const QModelIndexList& indexes) const
{
    if (indexes.isEmpty())
        return nullptr;
    auto* data = new QMimeData;
    data->setData(rowMimeType, QByteArray::number(indexes.first().row()));
    return data;
}

bool ItemsModel::dropMimeData(const QMimeData* data, Qt::DropAction action, int row, int,
                              const QModelIndex& parent)
{
    if (action != Qt::MoveAction || !data->hasFormat(rowMimeType) || !m_onEdit)
        return false;
    const int from = data->data(rowMimeType).toInt();
    int to = row >= 0 ? row : parent.isValid() ? parent.row() : int(m_items.size());
    if (from < 0 || from >= m_items.size())
        return false;
    if (to > from)
        --to;
    to = std::clamp(to, 0, int(m_items.size()) - 1);
    if (to == from)
        return false;
    QList<InvoiceItem> items = m_items;
    items.move(from, to);
    m_onEdit(items, to, -1);
    // The editor has reordered the rows already; nothing for the view to remove.
    return false;
}
