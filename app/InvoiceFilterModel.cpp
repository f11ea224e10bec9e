#include "InvoiceFilterModel.h"

#include <QDate>

InvoiceFilterModel::InvoiceFilterModel(QObject* parent) : QSortFilterProxyModel(parent)
{
    setSortRole(InvoiceListModel::SortRole);
    // Rows re-sort and re-filter when their invoice changes, not only on a full reload.
    setDynamicSortFilter(true);
}

void InvoiceFilterModel::setCategory(InvoiceCategory category)
{
    if (category == m_category)
        return;
    m_category = category;
    invalidateRowsFilter();
}

void InvoiceFilterModel::setSearchText(const QString& text)
{
    if (text == m_searchText)
        return;
    m_searchText = text;
    m_words = text.toLower().split(u' ', Qt::SkipEmptyParts);
    m_indexMatches.clear();
    invalidateRowsFilter();
}

void InvoiceFilterModel::setIndexMatches(const QString& text, const QSet<QUuid>& ids)
{
    if (text != m_searchText || ids == m_indexMatches)
        return;
    m_indexMatches = ids;
    invalidateRowsFilter();
}

bool InvoiceFilterModel::filterAcceptsRow(int sourceRow, const QModelIndex& sourceParent) const
{
    const QModelIndex index = sourceModel()->index(sourceRow, 0, sourceParent);
    const int categories = index.data(InvoiceListModel::CategoriesRole).toInt();
    if (!(categories & (1 << int(m_category))))
        return false;
    if (m_words.isEmpty())
        return true;
    if (!m_indexMatches.isEmpty() && m_indexMatches.contains(index.data(InvoiceListModel::IdRole).toUuid()))
        return true;
    const QString search = index.data(InvoiceListModel::SearchRole).toString();
    for (const QString& word : m_words)
        if (!search.contains(word))
            return false;
    return true;
}

bool InvoiceFilterModel::lessThan(const QModelIndex& left, const QModelIndex& right) const
{
    const QVariant a = left.data(InvoiceListModel::SortRole);
    const QVariant b = right.data(InvoiceListModel::SortRole);
    if (a != b)
        return QVariant::compare(a, b) == QPartialOrdering::Less;
    // Equal keys fall back to the date, then the number, so the order never jumps around.
    const QDate dateA = sourceModel()
                            ->index(left.row(), InvoiceListModel::dateColumn)
                            .data(InvoiceListModel::SortRole)
                            .toDate();
    const QDate dateB = sourceModel()
                            ->index(right.row(), InvoiceListModel::dateColumn)
                            .data(InvoiceListModel::SortRole)
                            .toDate();
    if (dateA != dateB)
        return dateA < dateB;
    return sourceModel()->index(left.row(), 0).data(InvoiceListModel::SortRole).toString() <
           sourceModel()->index(right.row(), 0).data(InvoiceListModel::SortRole).toString();
}
