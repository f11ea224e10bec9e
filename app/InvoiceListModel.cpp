#include "InvoiceListModel.h"

#include "AppText.h"
#include "calc/Totals.h"
#include "l10n/Strings.h"
#include "numbering/NumberFormat.h"
#include "render/InvoiceDocument.h"
#include "storage/InvoiceManager.h"
#include "storage/ProfileManager.h"

#include <QApplication>
#include <QLocale>
#include <QStyle>

using namespace Qt::Literals::StringLiterals;

namespace {

// Digit runs padded, so that "2025-9" sorts before "2025-10".
QString naturalKey(const QString& text)
{
    QString key;
    key.reserve(text.size() + 16);
    qsizetype i = 0;
    while (i < text.size()) {
        if (!text[i].isDigit()) {
            key += text[i++].toLower();
            continue;
        }
        qsizetype end = i;
        while (end < text.size() && text[end].isDigit())
            ++end;
        key += text.mid(i, end - i).rightJustified(12, u'0');
        i = end;
    }
    return key;
}

QString recipientOf(const Invoice& invoice)
{
    if (invoice.businessName.trimmed().isEmpty())
        return invoice.name.trimmed();
    return invoice.businessName.trimmed();
}

} // namespace

InvoiceListModel::InvoiceListModel(InvoiceManager& invoices, ProfileManager& profiles, QObject* parent)
    : QAbstractTableModel(parent), m_invoices(invoices), m_profiles(profiles)
{
    connect(&m_invoices, &InvoiceManager::invoiceChanged, this, &InvoiceListModel::upsert);
    connect(&m_invoices, &InvoiceManager::invoiceRemoved, this, &InvoiceListModel::remove);
    connect(&m_invoices, &InvoiceManager::refreshTriggerChanged, this, &InvoiceListModel::reload);
    // Numbers are shown with the profile's prefixes and format.
    connect(&m_profiles, &ProfileManager::profilesChanged, this, &InvoiceListModel::reload);
    reload();
}

bool InvoiceListModel::inCategory(const Invoice& invoice, InvoiceCategory category, bool overdue)
{
    const bool quote = invoice.type == InvoiceType::quote;
    switch (category) {
    case InvoiceCategory::all:
        return !quote;
    case InvoiceCategory::drafts:
        return !quote && invoice.status == Status::draft;
    case InvoiceCategory::open:
        return !quote && invoice.status == Status::sent;
    case InvoiceCategory::overdue:
        return !quote && overdue;
    case InvoiceCategory::paid:
        return !quote && invoice.status == Status::paid;
    case InvoiceCategory::cancelled:
        return !quote && invoice.status == Status::cancelled;
    case InvoiceCategory::quotes:
        return quote;
    }
    return false;
}

InvoiceListModel::Row InvoiceListModel::rowFor(const Invoice& invoice) const
{
    static const Profile fallback = Profile::makeNew();
    const Profile* profile = m_profiles.activeProfile();
    const Language language = Strings::interfaceLanguage();
    Row row;
    row.id = invoice.id;
    row.type = invoice.type;
    row.status = invoice.status;
    row.overdue = invoice.isOverdue();
    row.number = NumberFormat::displayNumber(invoice, profile ? *profile : fallback);
    row.numberKey = naturalKey(row.number);
    row.date = invoice.date.localDate();
    row.recipient = recipientOf(invoice);
    row.gross = Totals::round2(Totals::grossTotal(invoice));
    row.grossText = InvoiceDocument::formatAmount(row.gross, invoice.currency.code, language);
    for (int c = 0; c < invoiceCategoryCount; ++c)
        if (inCategory(invoice, InvoiceCategory(c), row.overdue))
            row.categories |= 1 << c;

    // What the search field finds: the number, both names, every line's text and the amount as
    // people type it ("1533.44", "1533,44", "1.533,44").
    QStringList parts{row.number,
                      invoice.name,
                      invoice.businessName,
                      invoice.email,
                      invoice.addressCity,
                      invoice.reference.value_or(QString()),
                      QString::number(row.gross, 'f', 2),
                      QString::number(row.gross, 'f', 2).replace(u'.', u','),
                      row.grossText};
    for (const InvoiceItem& item : invoice.items)
        parts.append(item.item);
    row.search = parts.join(u'\n').toLower();
    return row;
}

void InvoiceListModel::reload()
{
    beginResetModel();
    m_rows.clear();
    m_rowById.clear();
    const QList<Invoice>& invoices = m_invoices.invoices();
    m_rows.reserve(invoices.size());
    for (const Invoice& invoice : invoices) {
        m_rowById.insert(invoice.id, int(m_rows.size()));
        m_rows.append(rowFor(invoice));
    }
    endResetModel();
    recount();
}

void InvoiceListModel::upsert(const QUuid& id)
{
    const Invoice* invoice = m_invoices.invoice(id);
    if (!invoice)
        return remove(id);
    if (const auto existing = m_rowById.constFind(id); existing != m_rowById.constEnd()) {
        m_rows[*existing] = rowFor(*invoice);
        Q_EMIT dataChanged(index(*existing, 0), index(*existing, columnTotal - 1));
    } else {
        const int row = int(m_rows.size());
        beginInsertRows({}, row, row);
        m_rows.append(rowFor(*invoice));
        m_rowById.insert(id, row);
        endInsertRows();
    }
    recount();
}

void InvoiceListModel::remove(const QUuid& id)
{
    const auto existing = m_rowById.constFind(id);
    if (existing == m_rowById.constEnd())
        return;
    const int row = *existing;
    beginRemoveRows({}, row, row);
    m_rows.removeAt(row);
    m_rowById.remove(id);
    for (auto it = m_rowById.begin(); it != m_rowById.end(); ++it)
        if (*it > row)
            --*it;
    endRemoveRows();
    recount();
}

void InvoiceListModel::recount()
{
    std::array<int, invoiceCategoryCount> counts{};
    for (const Row& row : std::as_const(m_rows))
        for (int c = 0; c < invoiceCategoryCount; ++c)
            if (row.categories & (1 << c))
                ++counts[size_t(c)];
    if (counts != m_counts) {
        m_counts = counts;
        Q_EMIT countsChanged();
    }
}

int InvoiceListModel::rowCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : int(m_rows.size());
}

int InvoiceListModel::columnCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : int(columnTotal);
}

QModelIndex InvoiceListModel::indexOf(const QUuid& id) const
{
    const auto row = m_rowById.constFind(id);
    return row == m_rowById.constEnd() ? QModelIndex() : index(*row, numberColumn);
}

QUuid InvoiceListModel::idAt(int row) const
{
    return row >= 0 && row < m_rows.size() ? m_rows[row].id : QUuid();
}

QString InvoiceListModel::syncIssue(const QUuid& id) const
{
    // Both lookups are hash look-ups; the store keeps the duplicate numbers for the whole list.
    if (m_invoices.isInConflict(id))
        return ui(u"Changed on another machine at the same time");
    if (m_invoices.duplicateNumbers().contains(id))
        return ui(u"This number is used by another invoice too");
    return {};
}

QVariant InvoiceListModel::data(const QModelIndex& index, int role) const
{
    if (!index.isValid() || index.row() >= m_rows.size())
        return {};
    const Row& row = m_rows[index.row()];
    switch (role) {
    case Qt::DisplayRole:
        switch (index.column()) {
        case numberColumn:
            return row.number;
        case dateColumn:
            return QLocale().toString(row.date, QLocale::ShortFormat);
        case recipientColumn:
            return row.recipient;
        case grossColumn:
            return row.grossText;
        case statusColumn:
            if (row.type == InvoiceType::quote)
                return ui(u"Quote");
            return row.overdue ? ui(u"Overdue") : labelText(row.status);
        }
        return {};
    case Qt::ToolTipRole:
        if (index.column() == recipientColumn)
            return row.recipient;
        if (index.column() == numberColumn)
            return syncIssue(row.id);
        return {};
    case Qt::DecorationRole:
        // A conflict or a number used twice is marked where the number is.
        if (index.column() == numberColumn && !syncIssue(row.id).isEmpty())
            return QApplication::style()->standardIcon(QStyle::SP_MessageBoxWarning);
        return {};
    case SyncIssueRole:
        return syncIssue(row.id);
    case Qt::TextAlignmentRole:
        if (index.column() == grossColumn)
            return int(Qt::AlignRight | Qt::AlignVCenter);
        return int(Qt::AlignLeft | Qt::AlignVCenter);
    case SortRole:
        switch (index.column()) {
        case numberColumn:
            return row.numberKey;
        case dateColumn:
            return row.date;
        case recipientColumn:
            return row.recipient.toLower();
        case grossColumn:
            return row.gross;
        case statusColumn:
            return row.overdue ? 1 : int(row.status) * 2 + 2;
        }
        return {};
    case IdRole:
        return row.id;
    case SearchRole:
        return row.search;
    case StatusRole:
        return int(row.status);
    case OverdueRole:
        return row.overdue;
    case TypeRole:
        return int(row.type);
    case CategoriesRole:
        return row.categories;
    }
    return {};
}

QVariant InvoiceListModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal)
        return {};
    if (role == Qt::TextAlignmentRole)
        return int((section == grossColumn ? Qt::AlignRight : Qt::AlignLeft) | Qt::AlignVCenter);
    if (role != Qt::DisplayRole)
        return {};
    switch (section) {
    case numberColumn:
        return ui(u"Number");
    case dateColumn:
        return ui(u"Date");
    case recipientColumn:
        return ui(u"Recipient");
    case grossColumn:
        return ui(u"Gross");
    case statusColumn:
        return ui(u"Status");
    }
    return {};
}

Qt::ItemFlags InvoiceListModel::flags(const QModelIndex& index) const
{
    return index.isValid() ? Qt::ItemIsEnabled | Qt::ItemIsSelectable : Qt::NoItemFlags;
}
