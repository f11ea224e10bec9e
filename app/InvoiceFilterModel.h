#pragma once

#include "InvoiceListModel.h"

#include <QSet>
#include <QSortFilterProxyModel>
#include <QStringList>
#include <QUuid>

// The list as the user narrows it: one category of the sidebar and the words typed into the
// search field (every word must occur in the row, or the search index found the invoice by
// its address, items or note), sorted by the clicked column.
class InvoiceFilterModel : public QSortFilterProxyModel
{
    Q_OBJECT
public:
    explicit InvoiceFilterModel(QObject* parent = nullptr);

    void setCategory(InvoiceCategory category);
    InvoiceCategory category() const { return m_category; }
    void setSearchText(const QString& text);
    QString searchText() const { return m_searchText; }
    // What the search index found for `text`; ignored once the user has typed on.
    void setIndexMatches(const QString& text, const QSet<QUuid>& ids);

protected:
    bool filterAcceptsRow(int sourceRow, const QModelIndex& sourceParent) const override;
    bool lessThan(const QModelIndex& left, const QModelIndex& right) const override;

private:
    InvoiceCategory m_category = InvoiceCategory::all;
    QString m_searchText;
    QStringList m_words;
    QSet<QUuid> m_indexMatches;
};
