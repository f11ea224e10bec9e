#pragma once

#include "InvoiceListModel.h"

#include <QListWidget>

// The categories of the list with their counts: All, Drafts, Open, Overdue, Paid, Cancelled
// and, apart from them, Quotes.
class FilterSidebar : public QListWidget
{
    Q_OBJECT
public:
    explicit FilterSidebar(const InvoiceListModel& model, QWidget* parent = nullptr);

    InvoiceCategory category() const;
    void setCategory(InvoiceCategory category);

    QSize sizeHint() const override;

Q_SIGNALS:
    void categoryChanged(InvoiceCategory category);

private:
    void updateCounts();

    const InvoiceListModel& m_model;
};
