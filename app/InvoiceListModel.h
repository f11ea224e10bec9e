#pragma once

#include "model/Invoice.h"

#include <QAbstractTableModel>
#include <QDate>
#include <QHash>
#include <QList>
#include <QUuid>

#include <array>

class InvoiceManager;
class ProfileManager;

// Where an invoice belongs in the filter list. A document counts in exactly one of the status
// categories (drafts, open, paid, cancelled) or among the quotes; overdue is a part of open.
enum class InvoiceCategory
{
    all,
    drafts,
    open,
    overdue,
    paid,
    cancelled,
    quotes
};
inline constexpr int invoiceCategoryCount = 7;

// The invoices of the active profile as rows for the list: number, date, recipient, gross total
// and status. Rows hold what the list shows and searches, computed once per change of their
// invoice, so that sorting and filtering 10,000 invoices never touches the records.
class InvoiceListModel : public QAbstractTableModel
{
    Q_OBJECT
public:
    enum Column
    {
        numberColumn,
        dateColumn,
        recipientColumn,
        grossColumn,
        statusColumn,
        columnTotal
    };
    enum Role
    {
        IdRole = Qt::UserRole + 1,
        SortRole,       // a value that sorts like the column reads
        SearchRole,     // lower-case text of number, recipient, items and amount
        StatusRole,     // Status as int
        OverdueRole,    // bool
        TypeRole,       // InvoiceType as int
        CategoriesRole, // bit set of InvoiceCategory
        SyncIssueRole   // text: changed on two machines, or number used twice; empty when neither
    };

    InvoiceListModel(InvoiceManager& invoices, ProfileManager& profiles, QObject* parent = nullptr);

    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;
    Qt::ItemFlags flags(const QModelIndex& index) const override;

    QModelIndex indexOf(const QUuid& id) const;
    QUuid idAt(int row) const;
    int count(InvoiceCategory category) const { return m_counts[size_t(category)]; }

    // Rebuilds every row (after a reload, or when the day changed and invoices became overdue).
    void reload();

    // Whether an invoice belongs in a category.
    static bool inCategory(const Invoice& invoice, InvoiceCategory category, bool overdue);

Q_SIGNALS:
    void countsChanged();

private:
    struct Row
    {
        QUuid id;
        InvoiceType type = InvoiceType::invoice;
        Status status = Status::draft;
        bool overdue = false;
        QString number;
        QString numberKey;
        QDate date;
        QString recipient;
        double gross = 0;
        QString grossText;
        QString search;
        int categories = 0;
    };
    Row rowFor(const Invoice& invoice) const;
    QString syncIssue(const QUuid& id) const;
    void upsert(const QUuid& id);
    void remove(const QUuid& id);
    void recount();

    InvoiceManager& m_invoices;
    ProfileManager& m_profiles;
    QList<Row> m_rows;
    QHash<QUuid, int> m_rowById;
    std::array<int, invoiceCategoryCount> m_counts{};
};
