#include "FilterSidebar.h"

#include "AppText.h"

#include <QApplication>
#include <QPainter>
#include <QStyledItemDelegate>

using namespace Qt::Literals::StringLiterals;

namespace {

constexpr int countRole = Qt::UserRole + 1;
constexpr int categoryRole = Qt::UserRole + 2;
constexpr int separatorRole = Qt::UserRole + 3;

// Draws the category with its count right-aligned in the secondary text colour; overdue
// counts above zero in the warning colour; a thin rule above the quotes.
class CategoryDelegate : public QStyledItemDelegate
{
public:
    using QStyledItemDelegate::QStyledItemDelegate;

    void paint(QPainter* painter, const QStyleOptionViewItem& option, const QModelIndex& index) const override
    {
        QStyleOptionViewItem opt = option;
        initStyleOption(&opt, index);
        const QString count = index.data(countRole).toString();
        opt.text.clear();
        const QWidget* widget = option.widget;
        QStyle* style = widget ? widget->style() : QApplication::style();
        style->drawControl(QStyle::CE_ItemViewItem, &opt, painter, widget);

        const bool selected = opt.state & QStyle::State_Selected;
        const QRect text = opt.rect.adjusted(12, 0, -12, 0);
        painter->save();
        painter->setPen(opt.palette.color(selected ? QPalette::HighlightedText : QPalette::Text));
        painter->drawText(text, Qt::AlignLeft | Qt::AlignVCenter, index.data(Qt::DisplayRole).toString());
        QColor countColor =
            opt.palette.color(selected ? QPalette::HighlightedText : QPalette::PlaceholderText);
        if (index.data(categoryRole).toInt() == int(InvoiceCategory::overdue) && count != u"0"_s && !selected)
            countColor = QColor(0xC0, 0x39, 0x2B);
        painter->setPen(countColor);
        painter->drawText(text, Qt::AlignRight | Qt::AlignVCenter, count);
        if (index.data(separatorRole).toBool()) {
            painter->setPen(opt.palette.color(QPalette::Mid));
            painter->drawLine(opt.rect.left() + 12, opt.rect.top(), opt.rect.right() - 12, opt.rect.top());
        }
        painter->restore();
    }

    QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const override
    {
        QSize size = QStyledItemDelegate::sizeHint(option, index);
        size.setHeight(std::max(size.height(), option.fontMetrics.height() + 12));
        if (index.data(separatorRole).toBool())
            size.setHeight(size.height() + 8);
        return size;
    }
};

} // namespace

FilterSidebar::FilterSidebar(const InvoiceListModel& model, QWidget* parent)
    : QListWidget(parent), m_model(model)
{
    setObjectName(u"filterSidebar"_s);
    setItemDelegate(new CategoryDelegate(this));
    setFrameShape(QFrame::NoFrame);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    setSelectionMode(QAbstractItemView::SingleSelection);
    // The sidebar sits on the window colour, as sidebars of native programs do.
    setAutoFillBackground(false);
    viewport()->setAutoFillBackground(false);
    const std::pair<InvoiceCategory, QString> categories[] = {
        {InvoiceCategory::all, ui(u"All")},       {InvoiceCategory::drafts, ui(u"Drafts")},
        {InvoiceCategory::open, ui(u"Open")},     {InvoiceCategory::overdue, ui(u"Overdue")},
        {InvoiceCategory::paid, ui(u"Paid")},     {InvoiceCategory::cancelled, ui(u"Cancelled")},
        {InvoiceCategory::quotes, ui(u"Quotes")},
    };
    for (const auto& [category, label] : categories) {
        auto* item = new QListWidgetItem(label, this);
        item->setData(categoryRole, int(category));
        item->setData(separatorRole, category == InvoiceCategory::quotes);
    }
    setCurrentRow(0);
    connect(this, &QListWidget::currentRowChanged, this,
            [this] { Q_EMIT categoryChanged(this->category()); });
    connect(&m_model, &InvoiceListModel::countsChanged, this, &FilterSidebar::updateCounts);
    updateCounts();
}

InvoiceCategory FilterSidebar::category() const
{
    const QListWidgetItem* item = currentItem();
    return item ? InvoiceCategory(item->data(categoryRole).toInt()) : InvoiceCategory::all;
}

void FilterSidebar::setCategory(InvoiceCategory category)
{
    for (int row = 0; row < count(); ++row)
        if (item(row)->data(categoryRole).toInt() == int(category))
            setCurrentRow(row);
}

QSize FilterSidebar::sizeHint() const
{
    return {fontMetrics().horizontalAdvance(u"Cancelled 10000"_s) + 48, 300};
}

void FilterSidebar::updateCounts()
{
    for (int row = 0; row < count(); ++row) {
        QListWidgetItem* entry = item(row);
        entry->setData(countRole,
                       QString::number(m_model.count(InvoiceCategory(entry->data(categoryRole).toInt()))));
    }
}
