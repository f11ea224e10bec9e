#pragma once

#include "InvoiceListModel.h"

#include <QSortFilterProxyModel>
#include <QStringList>

// The list as the user narrows it: one category of the sidebar and the words typed into the
// search field (every word must occur), sorted by the clicked column.
class InvoiceFilterModel : public QSortFilterProxyModel
{
    Q_OBJECT
public:
    explicit InvoiceFilterModel(QObject* parent = nullptr);

    void setCategory(InvoiceCategory category);
    InvoiceCategory category() const { return m_category; }
    void setSearchText(const QString& text);
    QString searchText() const { return m_searchText; }

protected:
    bool filterAcceptsRow(int sourceRow, const QModelIndex& sourceParent) const override;
    bool lessThan(const QModelIndex& left, const QModelIndex& right) const override;

private:
    InvoiceCategory m_category = InvoiceCategory::all;
    QString m_searchText;
    QStringList m_words;
};
