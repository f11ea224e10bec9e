#include "InvoiceListView.h"

#include "AppText.h"
#include "InvoiceListModel.h"

#include <QApplication>
#include <QHeaderView>
#include <QLabel>
#include <QPainter>
#include <QPushButton>
#include <QScrollBar>
#include <QSortFilterProxyModel>
#include <QStyledItemDelegate>
#include <QVBoxLayout>

using namespace Qt::Literals::StringLiterals;

namespace {

// The status as a small rounded badge; overdue in the warning colour.
class StatusDelegate : public QStyledItemDelegate
{
public:
    using QStyledItemDelegate::QStyledItemDelegate;

    void paint(QPainter* painter, const QStyleOptionViewItem& option, const QModelIndex& index) const override
    {
        QStyleOptionViewItem opt = option;
        initStyleOption(&opt, index);
        const QString text = opt.text;
        opt.text.clear();
        const QWidget* widget = option.widget;
        QStyle* style = widget ? widget->style() : QApplication::style();
        style->drawControl(QStyle::CE_ItemViewItem, &opt, painter, widget);

        const QColor color = badgeColor(index);
        QFont font = opt.font;
        font.setPointSizeF(font.pointSizeF() * 0.9);
        const QFontMetrics metrics(font);
        const int width = metrics.horizontalAdvance(text) + 14;
        const int height = metrics.height() + 4;
        const QRect badge(opt.rect.left() + 4, opt.rect.center().y() - height / 2 + 1, width, height);
        painter->save();
        painter->setRenderHint(QPainter::Antialiasing);
        QColor fill = color;
        fill.setAlphaF(0.16f);
        painter->setPen(Qt::NoPen);
        painter->setBrush(fill);
        painter->drawRoundedRect(badge, height / 2.0, height / 2.0);
        painter->setFont(font);
        painter->setPen(opt.state & QStyle::State_Selected ? opt.palette.color(QPalette::HighlightedText)
                                                           : color);
        painter->drawText(badge, Qt::AlignCenter, text);
        painter->restore();
    }

    QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const override
    {
        QSize size = QStyledItemDelegate::sizeHint(option, index);
        size.setWidth(size.width() + 22);
        return size;
    }

private:
    static QColor badgeColor(const QModelIndex& index)
    {
        if (index.data(InvoiceListModel::TypeRole).toInt() == int(InvoiceType::quote))
            return QColor(0x7E, 0x57, 0xC2);
        if (index.data(InvoiceListModel::OverdueRole).toBool())
            return QColor(0xC0, 0x39, 0x2B);
        switch (Status(index.data(InvoiceListModel::StatusRole).toInt())) {
        case Status::draft:
            return QColor(0x80, 0x80, 0x80);
        case Status::sent:
            return QColor(0x1E, 0x6F, 0xD9);
        case Status::paid:
            return QColor(0x2E, 0x8B, 0x57);
        case Status::cancelled:
            return QColor(0x8A, 0x6D, 0x3B);
        }
        return QColor(0x80, 0x80, 0x80);
    }
};

} // namespace

InvoiceListView::InvoiceListView(QWidget* parent) : QTreeView(parent)
{
    setObjectName(u"invoiceList"_s);
    setRootIsDecorated(false);
    setUniformRowHeights(true);
    setSortingEnabled(true);
    setAllColumnsShowFocus(true);
    setSelectionBehavior(QAbstractItemView::SelectRows);
    setSelectionMode(QAbstractItemView::ExtendedSelection);
    setContextMenuPolicy(Qt::ActionsContextMenu);
    setItemDelegateForColumn(InvoiceListModel::statusColumn, new StatusDelegate(this));
    setFrameShape(QFrame::NoFrame);
    // Only when the user narrows a column: numbers and names keep their start and end.
    setTextElideMode(Qt::ElideMiddle);
    header()->setStretchLastSection(false);
    header()->setSortIndicatorShown(true);

    m_dropHint = new QLabel(viewport());
    m_dropHint->setObjectName(u"dropHint"_s);
    m_dropHint->setAlignment(Qt::AlignCenter);
    m_dropHint->setAutoFillBackground(true);
    m_dropHint->setStyleSheet(u"QLabel#dropHint { border: 2px dashed palette(highlight); border-radius: 8px; "
                              u"background: palette(base); color: palette(highlight); font-size: 13pt; }"_s);
    m_dropHint->hide();

    m_empty = new QWidget(viewport());
    auto* layout = new QVBoxLayout(m_empty);
    layout->setAlignment(Qt::AlignCenter);
    m_emptyTitle = new QLabel(m_empty);
    m_emptyTitle->setAlignment(Qt::AlignCenter);
    QFont title = m_emptyTitle->font();
    title.setPointSizeF(title.pointSizeF() * 1.25);
    m_emptyTitle->setFont(title);
    m_emptyHint = new QLabel(m_empty);
    m_emptyHint->setAlignment(Qt::AlignCenter);
    m_emptyHint->setWordWrap(true);
    m_emptyHint->setForegroundRole(QPalette::PlaceholderText);
    m_newInvoice = new QPushButton(ui(u"New Invoice"), m_empty);
    m_newInvoice->setObjectName(u"emptyNewInvoice"_s);
    layout->addWidget(m_emptyTitle);
    layout->addWidget(m_emptyHint);
    layout->addSpacing(8);
    layout->addWidget(m_newInvoice, 0, Qt::AlignCenter);
    connect(m_newInvoice, &QPushButton::clicked, this, &InvoiceListView::newInvoiceRequested);
    setEmptyTexts(ui(u"No Invoices Yet"), ui(u"Drop PDFs or e-invoices here to import them."), true);
}

void InvoiceListView::setModel(QAbstractItemModel* model)
{
    QTreeView::setModel(model);
    for (const auto signal : {&QAbstractItemModel::rowsInserted, &QAbstractItemModel::rowsRemoved})
        connect(model, signal, this, &InvoiceListView::updateEmptyState);
    connect(model, &QAbstractItemModel::modelReset, this, &InvoiceListView::updateEmptyState);
    connect(model, &QAbstractItemModel::layoutChanged, this, &InvoiceListView::updateEmptyState);
    header()->setSectionResizeMode(InvoiceListModel::recipientColumn, QHeaderView::Stretch);
    for (int column : {InvoiceListModel::numberColumn, InvoiceListModel::dateColumn,
                       InvoiceListModel::grossColumn, InvoiceListModel::statusColumn})
        header()->setSectionResizeMode(column, QHeaderView::Interactive);
    const QFontMetrics metrics(font());
    setColumnWidth(InvoiceListModel::numberColumn, metrics.horizontalAdvance(u"STO-2026-000"_s) + 12);
    setColumnWidth(InvoiceListModel::dateColumn, metrics.horizontalAdvance(u"00.00.00"_s) + 16);
    setColumnWidth(InvoiceListModel::grossColumn, metrics.horizontalAdvance(u"00.000,00 €"_s) + 16);
    setColumnWidth(InvoiceListModel::statusColumn, metrics.horizontalAdvance(u"Überfällig"_s) + 30);
    updateEmptyState();
}

namespace {

// Rows looked at to size the columns: enough for a typical year, quick with thousands.
constexpr int measuredRows = 300;

const QList<int> fittedColumns{InvoiceListModel::numberColumn, InvoiceListModel::dateColumn,
                               InvoiceListModel::grossColumn, InvoiceListModel::statusColumn};

} // namespace

int InvoiceListView::contentWidth(int column) const
{
    int width = header()->sectionSizeHint(column);
    if (!model())
        return width;
    const int rows = std::min(model()->rowCount(), measuredRows);
    for (int row = 0; row < rows; ++row)
        width = std::max(width, sizeHintForIndex(model()->index(row, column)).width());
    return width;
}

int InvoiceListView::fittedWidth(int column) const
{
    // Without rows, the widths made for typical texts stay. A little air, so that the widest
    // text does not touch the next column.
    if (!model() || model()->rowCount() == 0)
        return columnWidth(column);
    return contentWidth(column) + 8;
}

void InvoiceListView::fitColumns()
{
    for (int column : fittedColumns)
        setColumnWidth(column, fittedWidth(column));
}

int InvoiceListView::fittingWidth() const
{
    int width = 0;
    for (int column : fittedColumns)
        width += fittedWidth(column);
    // The recipient: its longest text up to about 24 characters, longer names are rare.
    const int typical = fontMetrics().horizontalAdvance(u"Nordlicht Design UG (hb)"_s);
    width += std::min(contentWidth(InvoiceListModel::recipientColumn) + 8, typical);
    return width + verticalScrollBar()->sizeHint().width() + 2 * frameWidth() + 4;
}

QList<QUuid> InvoiceListView::selectedIds() const
{
    QList<QUuid> ids;
    if (!selectionModel())
        return ids;
    for (const QModelIndex& index : selectionModel()->selectedRows())
        ids.append(index.data(InvoiceListModel::IdRole).toUuid());
    return ids;
}

QUuid InvoiceListView::currentId() const
{
    return currentIndex().data(InvoiceListModel::IdRole).toUuid();
}

bool InvoiceListView::selectId(const QUuid& id)
{
    const auto* proxy = qobject_cast<const QSortFilterProxyModel*>(model());
    const auto* source = proxy ? qobject_cast<const InvoiceListModel*>(proxy->sourceModel()) : nullptr;
    if (!source)
        return false;
    const QModelIndex index = proxy->mapFromSource(source->indexOf(id));
    if (!index.isValid())
        return false;
    setCurrentIndex(index);
    selectionModel()->select(index, QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
    scrollTo(index);
    return true;
}

void InvoiceListView::setEmptyTexts(const QString& title, const QString& hint, bool offerNewInvoice)
{
    m_emptyTitle->setText(title);
    m_emptyHint->setText(hint);
    m_newInvoice->setVisible(offerNewInvoice);
}

void InvoiceListView::resizeEvent(QResizeEvent* event)
{
    QTreeView::resizeEvent(event);
    m_empty->setGeometry(viewport()->rect().adjusted(16, 16, -16, -16));
    m_dropHint->setGeometry(viewport()->rect().adjusted(8, 8, -8, -8));
}

void InvoiceListView::setDropHint(const QString& text)
{
    m_dropHint->setText(text);
    m_dropHint->setGeometry(viewport()->rect().adjusted(8, 8, -8, -8));
    m_dropHint->setVisible(!text.isEmpty());
    m_dropHint->raise();
}

QString InvoiceListView::dropHint() const
{
    return m_dropHint->isVisible() ? m_dropHint->text() : QString();
}

void InvoiceListView::updateEmptyState()
{
    const bool empty = !model() || model()->rowCount() == 0;
    m_empty->setVisible(empty);
    m_empty->setGeometry(viewport()->rect().adjusted(16, 16, -16, -16));
}
