#include "InvoiceEditor.h"

#include "AppText.h"
#include "CodeComboBox.h"
#include "EditCommand.h"
#include "ItemsModel.h"
#include "LocaleNumbers.h"
#include "calc/Totals.h"
#include "einvoice/XMLGenerator.h"
#include "numbering/NumberFormat.h"
#include "render/InvoiceDocument.h"
#include "util/Clock.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDateEdit>
#include <QDoubleSpinBox>
#include <QFormLayout>
#include <QHeaderView>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QScopedValueRollback>
#include <QScrollArea>
#include <QScrollBar>
#include <QSpinBox>
#include <QStackedWidget>
#include <QStyledItemDelegate>
#include <QTableView>
#include <QTimer>
#include <QToolButton>
#include <QVBoxLayout>

#include <algorithm>

using namespace Qt::Literals::StringLiterals;

namespace {

// The unit of a line, picked from a list.
class UnitDelegate : public QStyledItemDelegate
{
public:
    using QStyledItemDelegate::QStyledItemDelegate;

    QWidget* createEditor(QWidget* parent, const QStyleOptionViewItem&, const QModelIndex&) const override
    {
        auto* box = new QComboBox(parent);
        for (const Unit unit : allCases<Unit>())
            box->addItem(labelText(unit), int(unit));
        return box;
    }
    void setEditorData(QWidget* editor, const QModelIndex& index) const override
    {
        auto* box = static_cast<QComboBox*>(editor);
        box->setCurrentIndex(box->findData(index.data(ItemsModel::UnitRole).toInt()));
    }
    void setModelData(QWidget* editor, QAbstractItemModel* model, const QModelIndex& index) const override
    {
        model->setData(index, static_cast<QComboBox*>(editor)->currentData(), Qt::EditRole);
    }
};

// A table that grows with its lines instead of scrolling inside the scrolling form.
class ItemsTable : public QTableView
{
public:
    using QTableView::QTableView;

    QSize sizeHint() const override
    {
        const int rows = model() ? model()->rowCount() : 0;
        const int rowHeight = verticalHeader()->defaultSectionSize();
        const int height = horizontalHeader()->height() + std::max(rows, 1) * rowHeight + 2 * frameWidth() +
                           (horizontalScrollBar()->isVisible() ? horizontalScrollBar()->height() : 0);
        return {240, height};
    }
    QSize minimumSizeHint() const override { return sizeHint(); }
};

QDate dateOf(Timestamp moment)
{
    return moment.localDate();
}

// The chosen day at the time of day the moment had, in the calendar's time zone.
QLabel* secondaryLabel(const QString& text = {})
{
    auto* label = new QLabel(text);
    label->setForegroundRole(QPalette::PlaceholderText);
    return label;
}

// Never narrower than the form inside: the splitter then takes the room from the list or
// the preview rather than cut the fields off at the right.
class FormScrollArea : public QScrollArea
{
public:
    QSize minimumSizeHint() const override
    {
        const QSize hint = QScrollArea::minimumSizeHint();
        if (!widget())
            return hint;
        return {widget()->minimumSizeHint().width() + verticalScrollBar()->sizeHint().width() +
                    2 * frameWidth(),
                hint.height()};
    }
};

} // namespace

InvoiceEditor::InvoiceEditor(QWidget* parent) : QWidget(parent)
{
    setObjectName(u"invoiceEditor"_s);
    m_pages = new QStackedWidget(this);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(m_pages);

    auto* empty = new QLabel(ui(u"Select an invoice, or create one with New Invoice."));
    empty->setAlignment(Qt::AlignCenter);
    empty->setWordWrap(true);
    empty->setForegroundRole(QPalette::PlaceholderText);
    m_pages->addWidget(empty);

    m_scroll = new FormScrollArea;
    m_scroll->setWidgetResizable(true);
    m_scroll->setFrameShape(QFrame::NoFrame);
    // The form narrows with the pane; only the description column of the items gives way.
    m_scroll->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    m_scroll->setWidget(buildForm());
    m_pages->addWidget(m_scroll);
    m_pages->setCurrentIndex(0);
    // Undo and redo belong to the invoice's history, also while a field has the focus; the
    // fields' own undo would only take back their text and leave the history out of step.
    for (QWidget* field : m_scroll->widget()->findChildren<QWidget*>())
        if (qobject_cast<QLineEdit*>(field) || qobject_cast<QPlainTextEdit*>(field) ||
            qobject_cast<QAbstractSpinBox*>(field))
            field->installEventFilter(this);
}

bool InvoiceEditor::eventFilter(QObject* watched, QEvent* event)
{
    if (event->type() == QEvent::ShortcutOverride) {
        auto* key = static_cast<QKeyEvent*>(event);
        if (key->matches(QKeySequence::Undo) || key->matches(QKeySequence::Redo)) {
            event->ignore();
            return true;
        }
    }
    return QWidget::eventFilter(watched, event);
}

QWidget* InvoiceEditor::section(const QString& title, QLayout* content, QWidget* trailing)
{
    auto* box = new QWidget;
    auto* layout = new QVBoxLayout(box);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(6);
    auto* heading = new QHBoxLayout;
    auto* caption = new QLabel(title);
    QFont font = caption->font();
    font.setBold(true);
    caption->setFont(font);
    heading->addWidget(caption);
    heading->addStretch();
    if (trailing)
        heading->addWidget(trailing);
    layout->addLayout(heading);
    layout->addLayout(content);
    return box;
}

QLineEdit* InvoiceEditor::lineEdit(const QString& key, const QString& placeholder,
                                   std::function<void(Invoice&, const QString&)> assign)
{
    auto* edit = new QLineEdit;
    edit->setPlaceholderText(placeholder);
    edit->setObjectName(key);
    edit->setAccessibleName(ui(key));
    edit->setClearButtonEnabled(false);
    m_fields.insert(key, edit);
    connect(edit, &QLineEdit::textEdited, this, [this, key, assign](const QString& text) {
        change(key, ui(u"Edit %1").arg(ui(key)), [&](Invoice& invoice) { assign(invoice, text); });
    });
    return edit;
}

QWidget* InvoiceEditor::buildForm()
{
    auto* form = new QWidget;
    form->setObjectName(u"invoiceForm"_s);
    auto* layout = new QVBoxLayout(form);
    layout->setContentsMargins(16, 12, 16, 16);
    layout->setSpacing(18);

    // Header: what this is, and where it stands.
    auto* header = new QGridLayout;
    m_title = new QLabel;
    m_title->setObjectName(u"editorTitle"_s);
    QFont titleFont = m_title->font();
    titleFont.setPointSizeF(titleFont.pointSizeF() * 1.45);
    titleFont.setBold(true);
    m_title->setFont(titleFont);
    m_title->setTextInteractionFlags(Qt::TextSelectableByMouse);
    m_subtitle = secondaryLabel();
    m_status = new QComboBox;
    m_status->setObjectName(u"Status"_s);
    m_status->setAccessibleName(ui(u"Status"));
    for (const Status status : allCases<Status>())
        m_status->addItem(labelText(status), int(status));
    connect(m_status, &QComboBox::activated, this, [this](int index) {
        const Status status = Status(m_status->itemData(index).toInt());
        change(u"status"_s, ui(u"Change Status"), [status](Invoice& invoice) {
            if (invoice.status != status) {
                invoice.status = status;
                invoice.statusUpdateDate = Clock::nowTimestamp();
            }
        });
    });
    header->addWidget(m_title, 0, 0);
    header->addWidget(m_status, 0, 1, Qt::AlignRight | Qt::AlignVCenter);
    header->addWidget(m_subtitle, 1, 0, 1, 2);
    header->setColumnStretch(0, 1);
    layout->addLayout(header);

    // Recipient.
    auto* recipient = new QFormLayout;
    recipient->setFieldGrowthPolicy(QFormLayout::AllNonFixedFieldsGrow);
    recipient->addRow(ui(u"Name"), lineEdit(u"Recipient name"_s, ui(u"Person to address"),
                                            [](Invoice& i, const QString& v) { i.name = v; }));
    recipient->addRow(ui(u"Business"), lineEdit(u"Recipient business name"_s, ui(u"Company, if any"),
                                                [](Invoice& i, const QString& v) { i.businessName = v; }));
    recipient->addRow(ui(u"Email"), lineEdit(u"Recipient email"_s, ui(u"Where the invoice goes"),
                                             [](Invoice& i, const QString& v) { i.email = v; }));
    recipient->addRow(ui(u"Address"), lineEdit(u"Recipient address line 1"_s, ui(u"Street and number"),
                                               [](Invoice& i, const QString& v) { i.addressLineOne = v; }));
    recipient->addRow(QString(), lineEdit(u"Recipient address line 2"_s, ui(u"Address line 2"),
                                          [](Invoice& i, const QString& v) { i.addressLineTwo = v; }));
    auto* place = new QHBoxLayout;
    QLineEdit* postcode = lineEdit(u"Recipient postcode"_s, ui(u"Postcode"),
                                   [](Invoice& i, const QString& v) { i.addressPostcode = v; });
    postcode->setMaximumWidth(postcode->fontMetrics().horizontalAdvance(u"000000000"_s) + 16);
    place->addWidget(postcode);
    place->addWidget(
        lineEdit(u"Recipient city"_s, ui(u"City"), [](Invoice& i, const QString& v) { i.addressCity = v; }));
    recipient->addRow(ui(u"Postcode, City"), place);
    recipient->addRow(ui(u"State"), lineEdit(u"Recipient state"_s, ui(u"State or region, if needed"),
                                             [](Invoice& i, const QString& v) { i.addressState = v; }));
    m_country = new CodeComboBox(CodeComboBox::Kind::country);
    m_country->setObjectName(u"Recipient country"_s);
    m_fields.insert(u"Recipient country"_s, m_country);
    connect(m_country, &CodeComboBox::codeChosen, this, [this](const QString& code) {
        change(u"country"_s, ui(u"Change Country"), [&](Invoice& i) { i.addressCountry = Country{code}; });
    });
    recipient->addRow(ui(u"Country"), m_country);
    recipient->addRow(ui(u"VAT ID"),
                      lineEdit(u"Recipient VAT ID"_s, ui(u"For reverse charge and deliveries within the EU"),
                               [](Invoice& i, const QString& v) { i.vatNumber = v; }));
    // Where a business or an authority receives e-invoices, when that is not the e-mail above.
    auto* electronic = new QHBoxLayout;
    electronic->addWidget(lineEdit(u"Recipient electronic address"_s,
                                   ui(u"Peppol ID or Leitweg-ID, if not the e-mail"),
                                   [](Invoice& i, const QString& v) { i.electronicAddress = v; }),
                          1);
    QLineEdit* scheme = lineEdit(u"Recipient electronic address scheme"_s, ui(u"Scheme, e.g. 0204"),
                                 [](Invoice& i, const QString& v) { i.electronicAddressScheme = v; });
    scheme->setToolTip(ui(u"The code of the address scheme: 0204 for a Leitweg-ID, 9930 for a German VAT ID, "
                          u"0088 for a GLN, EM for an e-mail address."));
    scheme->setMaximumWidth(scheme->fontMetrics().horizontalAdvance(u"Scheme, e.g. 0204"_s) + 24);
    electronic->addWidget(scheme);
    recipient->addRow(ui(u"E-Invoice Address"), electronic);
    QLineEdit* leitweg = lineEdit(u"Leitweg-ID"_s, ui(u"Public customers only, e.g. 04011000-12345-03"),
                                  [](Invoice& i, const QString& v) { i.leitwegId = v; });
    recipient->addRow(ui(u"Leitweg-ID"), leitweg);
    // The rules of this invoice's e-invoice; automatic shows what it comes to.
    m_eInvoiceProfile = new QComboBox;
    m_eInvoiceProfile->setObjectName(u"E-Invoice Profile"_s);
    m_eInvoiceProfile->setAccessibleName(ui(u"E-Invoice Profile"));
    for (const EInvoiceProfile choice : allCases<EInvoiceProfile>())
        m_eInvoiceProfile->addItem(labelText(choice), int(choice));
    m_eInvoiceProfile->setToolTip(
        ui(u"XRechnung for public customers, EN 16931 for businesses. Automatic follows the profile, and "
           u"else chooses XRechnung when there is a Leitweg-ID."));
    connect(m_eInvoiceProfile, &QComboBox::activated, this, [this](int index) {
        const EInvoiceProfile choice = EInvoiceProfile(m_eInvoiceProfile->itemData(index).toInt());
        change(u"eInvoiceProfile"_s, ui(u"Change E-Invoice Profile"),
               [choice](Invoice& i) { i.eInvoiceProfile = choice; });
    });
    recipient->addRow(ui(u"E-Invoice Profile"), m_eInvoiceProfile);
    layout->addWidget(section(ui(u"Recipient"), recipient));

    // Numbers, dates, payment terms and language.
    auto* details = new QFormLayout;
    details->setFieldGrowthPolicy(QFormLayout::AllNonFixedFieldsGrow);
    auto* numberRow = new QHBoxLayout;
    m_number = new QSpinBox;
    m_number->setObjectName(u"Number"_s);
    m_number->setAccessibleName(ui(u"Number"));
    m_number->setRange(0, 99999999);
    m_number->setToolTip(
        ui(u"The running number; the profile's number format makes the displayed number of it."));
    connect(m_number, &QSpinBox::valueChanged, this, [this](int value) {
        change(u"number"_s, ui(u"Change Number"), [value](Invoice& i) { i.number = value; });
    });
    m_numberVariable = new QLineEdit;
    m_numberVariable->setObjectName(u"NumberVariable"_s);
    m_numberVariable->setPlaceholderText(ui(u"Text for {X}"));
    connect(m_numberVariable, &QLineEdit::textEdited, this, [this](const QString& text) {
        change(u"numberVariable"_s, ui(u"Change Number"), [&](Invoice& i) { i.numberVariable = text; });
    });
    m_numberPreview = secondaryLabel();
    numberRow->addWidget(m_number);
    numberRow->addWidget(m_numberVariable);
    numberRow->addWidget(m_numberPreview, 1);
    details->addRow(ui(u"Number"), numberRow);

    auto makeDate = [](const QString& name) {
        auto* edit = new QDateEdit;
        edit->setObjectName(name);
        edit->setCalendarPopup(true);
        edit->setDisplayFormat(QLocale().dateFormat(QLocale::ShortFormat));
        return edit;
    };
    m_date = makeDate(u"Date"_s);
    connect(m_date, &QDateEdit::dateChanged, this, [this](QDate date) {
        change(u"date"_s, ui(u"Change Date"), [&](Invoice& i) { i.date = i.date.withLocalDate(date); });
    });
    details->addRow(ui(u"Invoice Date"), m_date);

    auto* service = new QHBoxLayout;
    m_serviceStart = makeDate(u"ServiceStart"_s);
    m_serviceStart->setAccessibleName(ui(u"Service Start"));
    connect(m_serviceStart, &QDateEdit::dateChanged, this, [this](QDate date) {
        change(u"serviceStart"_s, ui(u"Change Service Date"),
               [&](Invoice& i) { i.serviceDateStart = i.serviceDateStart.withLocalDate(date); });
    });
    m_hasServiceEnd = new QCheckBox(ui(u"until"));
    m_hasServiceEnd->setObjectName(u"HasServiceEnd"_s);
    connect(m_hasServiceEnd, &QCheckBox::toggled, this, [this](bool on) {
        change(u"serviceEnd"_s, ui(u"Change Service Period"), [&](Invoice& i) {
            if (on)
                i.serviceDateEnd =
                    i.serviceDateEnd.value_or(i.serviceDateStart.withLocalDate(m_serviceEnd->date()));
            else
                i.serviceDateEnd.reset();
        });
    });
    m_serviceEnd = makeDate(u"ServiceEnd"_s);
    m_serviceEnd->setAccessibleName(ui(u"Service End"));
    connect(m_serviceEnd, &QDateEdit::dateChanged, this, [this](QDate date) {
        change(u"serviceEnd"_s, ui(u"Change Service Period"), [&](Invoice& i) {
            i.serviceDateEnd = i.serviceDateEnd.value_or(i.serviceDateStart).withLocalDate(date);
        });
    });
    service->addWidget(m_serviceStart);
    service->addWidget(m_hasServiceEnd);
    service->addWidget(m_serviceEnd);
    service->addStretch();
    details->addRow(ui(u"Service Date"), service);

    auto* payment = new QHBoxLayout;
    m_daysToPay = new QSpinBox;
    m_daysToPay->setObjectName(u"DaysToPay"_s);
    m_daysToPay->setAccessibleName(ui(u"Payment Term"));
    m_daysToPay->setRange(0, 365);
    m_daysToPay->setSuffix(u" "_s + ui(u"days"));
    connect(m_daysToPay, &QSpinBox::valueChanged, this, [this](int days) {
        change(u"daysToPay"_s, ui(u"Change Payment Term"), [days](Invoice& i) { i.daysToPay = days; });
    });
    m_dueDate = secondaryLabel();
    m_dueDate->setObjectName(u"DueDate"_s);
    payment->addWidget(m_daysToPay);
    payment->addWidget(m_dueDate, 1);
    details->addRow(ui(u"Payment Term"), payment);

    // Early-payment discount: a percentage off when paid within some days.
    auto* skonto = new QHBoxLayout;
    m_skontoPercent = new QDoubleSpinBox;
    m_skontoPercent->setObjectName(u"SkontoPercentage"_s);
    m_skontoPercent->setAccessibleName(ui(u"Early Payment Discount"));
    m_skontoPercent->setRange(0, 50);
    m_skontoPercent->setDecimals(2);
    m_skontoPercent->setSingleStep(0.5);
    m_skontoPercent->setSuffix(u" %"_s);
    m_skontoPercent->setSpecialValueText(ui(u"None"));
    m_skontoDays = new QSpinBox;
    m_skontoDays->setObjectName(u"SkontoDays"_s);
    m_skontoDays->setAccessibleName(ui(u"Early Payment Days"));
    m_skontoDays->setRange(1, 365);
    m_skontoDays->setPrefix(ui(u"within") + u' ');
    m_skontoDays->setSuffix(u" "_s + ui(u"days"));
    auto applySkonto = [this] {
        const double percent = m_skontoPercent->value();
        const int days = m_skontoDays->value();
        m_skontoDays->setEnabled(percent > 0);
        change(u"skonto"_s, ui(u"Change Early Payment Discount"), [percent, days](Invoice& i) {
            if (percent > 0) {
                i.skontoPercentage = percent;
                i.skontoDays = days;
            } else {
                i.skontoPercentage.reset();
                i.skontoDays.reset();
            }
        });
    };
    connect(m_skontoPercent, &QDoubleSpinBox::valueChanged, this, applySkonto);
    connect(m_skontoDays, &QSpinBox::valueChanged, this, applySkonto);
    skonto->addWidget(m_skontoPercent);
    skonto->addWidget(m_skontoDays);
    skonto->addStretch();
    details->addRow(ui(u"Early Payment"), skonto);
    m_fields.insert(u"Early-payment discount with percentage and days"_s, m_skontoPercent);

    m_currency = new CodeComboBox(CodeComboBox::Kind::currency);
    m_currency->setObjectName(u"Currency"_s);
    m_fields.insert(u"Currency"_s, m_currency);
    connect(m_currency, &CodeComboBox::codeChosen, this, [this](const QString& code) {
        change(u"currency"_s, ui(u"Change Currency"), [&](Invoice& i) { i.currency = Currency{code}; });
    });
    details->addRow(ui(u"Currency"), m_currency);
    m_language = new QComboBox;
    m_language->setObjectName(u"Language"_s);
    for (const Language language : allCases<Language>())
        m_language->addItem(labelText(language), int(language));
    connect(m_language, &QComboBox::activated, this, [this](int index) {
        const Language language = Language(m_language->itemData(index).toInt());
        change(u"language"_s, ui(u"Change Language"), [language](Invoice& i) { i.language = language; });
    });
    details->addRow(ui(u"Document Language"), m_language);
    details->addRow(ui(u"Reference"), lineEdit(u"Reference"_s, ui(u"The buyer's order number or reference"),
                                               [](Invoice& i, const QString& v) {
                                                   i.reference =
                                                       v.isEmpty() ? std::nullopt : std::optional(v);
                                               }));
    layout->addWidget(section(ui(u"Invoice"), details));

    // Items.
    auto* items = new QVBoxLayout;
    m_itemsModel = new ItemsModel(this);
    m_itemsModel->setEditHandler([this](QList<InvoiceItem> list, int row, int column) {
        onItemsEdited(std::move(list), row, column);
    });
    m_items = new ItemsTable;
    m_items->setObjectName(u"itemsTable"_s);
    m_items->setModel(m_itemsModel);
    m_items->setItemDelegateForColumn(ItemsModel::unitColumn, new UnitDelegate(m_items));
    m_items->setSelectionBehavior(QAbstractItemView::SelectRows);
    m_items->setSelectionMode(QAbstractItemView::ExtendedSelection);
    m_items->setEditTriggers(QAbstractItemView::DoubleClicked | QAbstractItemView::EditKeyPressed |
                             QAbstractItemView::AnyKeyPressed | QAbstractItemView::SelectedClicked);
    m_items->setDragDropMode(QAbstractItemView::InternalMove);
    m_items->setDragEnabled(true);
    m_items->setDropIndicatorShown(true);
    m_items->setWordWrap(false);
    m_items->verticalHeader()->hide();
    m_items->setHorizontalScrollBarPolicy(Qt::ScrollBarAsNeeded);
    m_items->setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    m_items->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
    QHeaderView* columns = m_items->horizontalHeader();
    columns->setSectionResizeMode(ItemsModel::descriptionColumn, QHeaderView::Stretch);
    const QFontMetrics metrics(m_items->font());
    m_items->setColumnWidth(ItemsModel::quantityColumn, metrics.horizontalAdvance(u"Menge"_s) + 16);
    m_items->setColumnWidth(ItemsModel::unitColumn, metrics.horizontalAdvance(u"Pauschale"_s) + 12);
    m_items->setColumnWidth(ItemsModel::priceColumn, metrics.horizontalAdvance(u"00.000,00"_s) + 12);
    m_items->setColumnWidth(ItemsModel::vatColumn, metrics.horizontalAdvance(u"USt. %"_s) + 12);
    m_items->setColumnWidth(ItemsModel::totalColumn, metrics.horizontalAdvance(u"00.000,00 €"_s) + 12);
    for (const auto signal : {&QAbstractItemModel::rowsInserted, &QAbstractItemModel::rowsRemoved})
        connect(m_itemsModel, signal, m_items, &QWidget::updateGeometry);
    connect(m_itemsModel, &QAbstractItemModel::modelReset, m_items, &QWidget::updateGeometry);
    items->addWidget(m_items);

    auto* itemButtons = new QHBoxLayout;
    m_addItem = new QPushButton(ui(u"Add Item"));
    m_addItem->setObjectName(u"addItem"_s);
    m_addItem->setToolTip(ui(u"Add a line (Ctrl+Enter)"));
    m_fields.insert(u"At least one invoice item"_s, m_addItem);
    connect(m_addItem, &QPushButton::clicked, this, &InvoiceEditor::addItem);
    auto* removeItem = new QPushButton(ui(u"Remove"));
    removeItem->setObjectName(u"removeItem"_s);
    connect(removeItem, &QPushButton::clicked, this, &InvoiceEditor::removeSelectedItems);
    itemButtons->addWidget(m_addItem);
    itemButtons->addWidget(removeItem);
    itemButtons->addStretch();
    items->addLayout(itemButtons);
    layout->addWidget(section(ui(u"Items"), items));

    // Prices, discount, VAT exemption and the totals they give.
    auto* pricing = new QFormLayout;
    pricing->setFieldGrowthPolicy(QFormLayout::AllNonFixedFieldsGrow);
    m_priceMode = new QComboBox;
    m_priceMode->setObjectName(u"PriceMode"_s);
    m_priceMode->addItem(ui(u"Net prices (VAT is added)"), false);
    m_priceMode->addItem(ui(u"Gross prices (VAT included)"), true);
    connect(m_priceMode, &QComboBox::activated, this, [this](int index) {
        const bool gross = m_priceMode->itemData(index).toBool();
        change(u"grossPrices"_s, ui(u"Change Prices"), [gross](Invoice& i) { i.grossPrices = gross; });
    });
    pricing->addRow(ui(u"Prices"), m_priceMode);
    auto* discount = new QHBoxLayout;
    m_discountKind = new QComboBox;
    m_discountKind->setObjectName(u"DiscountKind"_s);
    m_discountKind->setAccessibleName(ui(u"Discount"));
    m_discountKind->addItem(ui(u"No discount"));
    m_discountKind->addItem(ui(u"Percentage"));
    m_discountKind->addItem(ui(u"Amount"));
    m_discountValue = new QDoubleSpinBox;
    m_discountValue->setObjectName(u"DiscountValue"_s);
    m_discountValue->setRange(0, 1e9);
    m_discountValue->setDecimals(2);
    m_discountValue->setKeyboardTracking(true);
    auto applyDiscount = [this] {
        const int kind = m_discountKind->currentIndex();
        const double value = m_discountValue->value();
        change(u"discount"_s, ui(u"Change Discount"), [kind, value](Invoice& i) {
            i.discountPercentage = kind == 1 ? std::optional(value) : std::nullopt;
            i.discountAmount = kind == 2 ? std::optional(value) : std::nullopt;
        });
    };
    connect(m_discountKind, &QComboBox::activated, this, applyDiscount);
    connect(m_discountValue, &QDoubleSpinBox::valueChanged, this, applyDiscount);
    discount->addWidget(m_discountKind);
    discount->addWidget(m_discountValue, 1);
    pricing->addRow(ui(u"Discount"), discount);
    m_exemption = new QComboBox;
    m_exemption->setObjectName(u"VAT exemption reason"_s);
    m_fields.insert(u"VAT exemption reason"_s, m_exemption);
    for (const VATExemptionReason reason : allCases<VATExemptionReason>())
        m_exemption->addItem(reason == VATExemptionReason::none ? ui(u"None") : labelText(reason),
                             int(reason));
    m_exemption->setToolTip(ui(u"Why lines at 0 % VAT carry no VAT; e-invoices need a reason for them."));
    connect(m_exemption, &QComboBox::activated, this, [this](int index) {
        const auto reason = VATExemptionReason(m_exemption->itemData(index).toInt());
        change(u"exemption"_s, ui(u"Change VAT Exemption"),
               [reason](Invoice& i) { i.vatExemptionReason = reason; });
    });
    pricing->addRow(ui(u"VAT Exemption"), m_exemption);

    auto* totalsBox = new QWidget;
    totalsBox->setObjectName(u"totals"_s);
    m_totals = new QGridLayout(totalsBox);
    m_totals->setContentsMargins(0, 6, 0, 0);
    m_totals->setHorizontalSpacing(24);
    m_totals->setVerticalSpacing(2);
    m_totals->setColumnStretch(0, 1);
    pricing->addRow(totalsBox);
    layout->addWidget(section(ui(u"Totals"), pricing));

    // Notes.
    auto* notes = new QFormLayout;
    notes->setFieldGrowthPolicy(QFormLayout::AllNonFixedFieldsGrow);
    m_note = new QPlainTextEdit;
    m_note->setObjectName(u"Note"_s);
    m_note->setPlaceholderText(
        ui(u"Shown below the items, for example thanks or payment details. **Bold** works."));
    m_note->setTabChangesFocus(true);
    m_note->setFixedHeight(m_note->fontMetrics().lineSpacing() * 4 + 12);
    connect(m_note, &QPlainTextEdit::textChanged, this, [this] {
        const QString text = m_note->toPlainText();
        change(u"note"_s, ui(u"Edit Note"), [&](Invoice& i) { i.note = text; });
    });
    notes->addRow(ui(u"Note"), m_note);
    notes->addRow(ui(u"Margin Note"), lineEdit(u"Margin note"_s, ui(u"A short line in the side column"),
                                               [](Invoice& i, const QString& v) { i.marginalNote = v; }));
    layout->addWidget(section(ui(u"Notes"), notes));

    // The sender's data as this invoice carries it; usually the profile's, kept with the invoice.
    m_senderToggle = new QToolButton;
    m_senderToggle->setObjectName(u"senderToggle"_s);
    m_senderToggle->setCheckable(true);
    m_senderToggle->setAutoRaise(true);
    m_senderToggle->setArrowType(Qt::RightArrow);
    m_senderToggle->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    m_senderToggle->setText(ui(u"Show"));
    connect(m_senderToggle, &QToolButton::toggled, this, &InvoiceEditor::updateSenderVisibility);
    auto* sender = new QVBoxLayout;
    m_senderSummary = secondaryLabel();
    m_senderSummary->setWordWrap(true);
    sender->addWidget(m_senderSummary);
    m_senderFields = new QWidget;
    auto* senderForm = new QFormLayout(m_senderFields);
    senderForm->setContentsMargins(0, 0, 0, 0);
    senderForm->setFieldGrowthPolicy(QFormLayout::AllNonFixedFieldsGrow);
    senderForm->addRow(ui(u"Name"), lineEdit(u"Sender name"_s, QString(),
                                             [](Invoice& i, const QString& v) { i.senderName = v; }));
    senderForm->addRow(ui(u"Business"),
                       lineEdit(u"Sender business name"_s, QString(),
                                [](Invoice& i, const QString& v) { i.senderBusinessName = v; }));
    senderForm->addRow(ui(u"Address"),
                       lineEdit(u"Sender address line 1"_s, ui(u"Street and number"),
                                [](Invoice& i, const QString& v) { i.senderAddressLineOne = v; }));
    auto* senderPlace = new QHBoxLayout;
    QLineEdit* senderPostcode = lineEdit(u"Sender postcode"_s, ui(u"Postcode"),
                                         [](Invoice& i, const QString& v) { i.senderAddressPostcode = v; });
    senderPostcode->setMaximumWidth(postcode->maximumWidth());
    senderPlace->addWidget(senderPostcode);
    senderPlace->addWidget(lineEdit(u"Sender city"_s, ui(u"City"),
                                    [](Invoice& i, const QString& v) { i.senderAddressCity = v; }));
    senderForm->addRow(ui(u"Postcode, City"), senderPlace);
    m_senderCountry = new CodeComboBox(CodeComboBox::Kind::country);
    m_senderCountry->setObjectName(u"Sender country"_s);
    m_fields.insert(u"Sender country"_s, m_senderCountry);
    connect(m_senderCountry, &CodeComboBox::codeChosen, this, [this](const QString& code) {
        change(u"senderCountry"_s, ui(u"Change Country"),
               [&](Invoice& i) { i.senderAddressCountry = Country{code}; });
    });
    senderForm->addRow(ui(u"Country"), m_senderCountry);
    senderForm->addRow(ui(u"Email"), lineEdit(u"Sender email"_s, QString(),
                                              [](Invoice& i, const QString& v) { i.senderEmail = v; }));
    senderForm->addRow(ui(u"Phone"), lineEdit(u"Sender phone number"_s, QString(),
                                              [](Invoice& i, const QString& v) { i.senderPhone = v; }));
    senderForm->addRow(ui(u"Tax Number"),
                       lineEdit(u"Sender tax number"_s, QString(),
                                [](Invoice& i, const QString& v) { i.senderTaxNumber = v; }));
    senderForm->addRow(ui(u"VAT ID"),
                       lineEdit(u"Sender VAT ID"_s, ui(u"With country prefix, e.g. DE123456789"),
                                [](Invoice& i, const QString& v) { i.senderVatNumber = v; }));
    senderForm->addRow(ui(u"IBAN"), lineEdit(u"Sender IBAN"_s, QString(),
                                             [](Invoice& i, const QString& v) { i.senderIban = v; }));
    senderForm->addRow(ui(u"BIC"), lineEdit(u"Sender BIC"_s, QString(),
                                            [](Invoice& i, const QString& v) { i.senderBic = v; }));
    auto* fromProfile = new QPushButton(ui(u"Update from Profile"));
    fromProfile->setObjectName(u"updateSender"_s);
    fromProfile->setToolTip(ui(u"Takes the sender's data from the profile as it is now."));
    connect(fromProfile, &QPushButton::clicked, this, [this] {
        const Profile p = m_profile;
        change({}, ui(u"Update Sender from Profile"), [&p](Invoice& i) {
            i.senderName = p.name;
            i.senderBusinessName = p.businessName;
            i.senderAddressLineOne = p.addressLineOne;
            i.senderAddressLineTwo = p.addressLineTwo;
            i.senderAddressPostcode = p.addressPostcode;
            i.senderAddressCity = p.addressCity;
            i.senderAddressState = p.addressState;
            i.senderAddressCountry = p.addressCountry;
            i.senderEmail = p.email;
            i.senderPhone = p.phone;
            i.senderWeb = p.website;
            i.senderAdditional = p.additional;
            i.senderIban = p.iban;
            i.senderBic = p.bic;
            i.senderTaxNumber = p.taxNumber;
            i.senderVatNumber = p.vatNumber;
            i.senderAdditionalNumbers = p.additionalNumbers;
        });
    });
    senderForm->addRow(QString(), fromProfile);
    sender->addWidget(m_senderFields);
    layout->addWidget(section(ui(u"Sender"), sender, m_senderToggle));
    updateSenderVisibility(false);
    layout->addStretch();

    // The missing-field entries that name a field under another key.
    m_fields.insert(u"Sender tax number or VAT ID"_s, m_fields.value(u"Sender tax number"_s));
    m_fields.insert(u"Sender VAT ID with country prefix"_s, m_fields.value(u"Sender VAT ID"_s));
    m_fields.insert(u"Leitweg-ID with valid check digits"_s, m_fields.value(u"Leitweg-ID"_s));
    m_fields.insert(u"Recipient in another EU country"_s, m_country);
    m_fields.insert(u"Recipient outside the EU"_s, m_country);
    m_fields.insert(u"VAT exemption note"_s, m_exemption);

    m_lineValues = {
        {u"Recipient name"_s, [](const Invoice& i) { return i.name; }},
        {u"Recipient business name"_s, [](const Invoice& i) { return i.businessName; }},
        {u"Recipient email"_s, [](const Invoice& i) { return i.email; }},
        {u"Recipient address line 1"_s, [](const Invoice& i) { return i.addressLineOne; }},
        {u"Recipient address line 2"_s, [](const Invoice& i) { return i.addressLineTwo; }},
        {u"Recipient postcode"_s, [](const Invoice& i) { return i.addressPostcode; }},
        {u"Recipient city"_s, [](const Invoice& i) { return i.addressCity; }},
        {u"Recipient state"_s, [](const Invoice& i) { return i.addressState; }},
        {u"Recipient VAT ID"_s, [](const Invoice& i) { return i.vatNumber; }},
        {u"Recipient electronic address"_s, [](const Invoice& i) { return i.electronicAddress; }},
        {u"Recipient electronic address scheme"_s,
         [](const Invoice& i) { return i.electronicAddressScheme; }},
        {u"Leitweg-ID"_s, [](const Invoice& i) { return i.leitwegId; }},
        {u"Reference"_s, [](const Invoice& i) { return i.reference.value_or(QString()); }},
        {u"Margin note"_s, [](const Invoice& i) { return i.marginalNote; }},
        {u"Sender name"_s, [](const Invoice& i) { return i.senderName; }},
        {u"Sender business name"_s, [](const Invoice& i) { return i.senderBusinessName; }},
        {u"Sender address line 1"_s, [](const Invoice& i) { return i.senderAddressLineOne; }},
        {u"Sender postcode"_s, [](const Invoice& i) { return i.senderAddressPostcode; }},
        {u"Sender city"_s, [](const Invoice& i) { return i.senderAddressCity; }},
        {u"Sender email"_s, [](const Invoice& i) { return i.senderEmail; }},
        {u"Sender phone number"_s, [](const Invoice& i) { return i.senderPhone; }},
        {u"Sender tax number"_s, [](const Invoice& i) { return i.senderTaxNumber; }},
        {u"Sender VAT ID"_s, [](const Invoice& i) { return i.senderVatNumber; }},
        {u"Sender IBAN"_s, [](const Invoice& i) { return i.senderIban; }},
        {u"Sender BIC"_s, [](const Invoice& i) { return i.senderBic; }},
    };
    alignLabelColumns(form);
    return form;
}

// The sections are forms of their own; one label width for all of them keeps the fields in
// one column down the whole editor.
void InvoiceEditor::alignLabelColumns(QWidget* form)
{
    const QList<QFormLayout*> layouts = form->findChildren<QFormLayout*>();
    QList<QWidget*> labels;
    int width = 0;
    for (QFormLayout* layout : layouts)
        for (int row = 0; row < layout->rowCount(); ++row)
            if (QLayoutItem* item = layout->itemAt(row, QFormLayout::LabelRole); item && item->widget()) {
                labels.append(item->widget());
                width = std::max(width, item->widget()->sizeHint().width());
            }
    for (QWidget* label : labels)
        label->setMinimumWidth(width);
}

void InvoiceEditor::updateSenderVisibility(bool shown)
{
    m_senderFields->setVisible(shown);
    m_senderToggle->setArrowType(shown ? Qt::DownArrow : Qt::RightArrow);
    m_senderToggle->setText(shown ? ui(u"Hide") : ui(u"Show"));
    if (m_senderToggle->isChecked() != shown)
        m_senderToggle->setChecked(shown);
}

void InvoiceEditor::setProfile(const Profile& profile)
{
    m_profile = profile;
    if (m_invoice)
        refreshDerived();
}

void InvoiceEditor::setInvoice(const std::optional<Invoice>& invoice, QUndoStack* undoStack)
{
    const bool sameInvoice = invoice && m_invoice && invoice->id == m_invoice->id;
    m_invoice = invoice;
    m_undoStack = undoStack;
    if (!invoice) {
        m_pages->setCurrentIndex(0);
        return;
    }
    m_pages->setCurrentIndex(1);
    loadWidgets();
    if (!sameInvoice)
        m_scroll->verticalScrollBar()->setValue(0);
}

void InvoiceEditor::replaceInvoice(const Invoice& invoice)
{
    if (!m_invoice || m_invoice->id != invoice.id)
        return;
    m_invoice = invoice;
    loadWidgets();
}

void InvoiceEditor::changeInvoice(const QString& text, const std::function<void(Invoice&)>& mutate)
{
    change({}, text, mutate);
    loadWidgets();
}

void InvoiceEditor::change(const QString& field, const QString& text,
                           const std::function<void(Invoice&)>& mutate)
{
    if (!m_invoice || m_loading)
        return;
    Invoice after = *m_invoice;
    mutate(after);
    if (after == *m_invoice)
        return;
    Invoice before = std::exchange(*m_invoice, after);
    refreshDerived();
    if (m_undoStack) {
        // Merging is per field and per invoice: a new invoice never continues another's step.
        const QString mergeKey = field.isEmpty() ? QString() : after.id.toString() + u'/' + field;
        m_undoStack->push(new EditCommand(std::move(before), after, text, mergeKey,
                                          [this](const Invoice& invoice) { applyFromHistory(invoice); }));
    }
    Q_EMIT edited(after);
}

void InvoiceEditor::applyFromHistory(const Invoice& invoice)
{
    if (!m_invoice || m_invoice->id != invoice.id)
        return;
    m_invoice = invoice;
    loadWidgets();
    Q_EMIT edited(invoice);
}

void InvoiceEditor::loadWidgets()
{
    if (!m_invoice)
        return;
    const Invoice& i = *m_invoice;
    const QScopedValueRollback loading(m_loading, true);
    for (auto it = m_lineValues.constBegin(); it != m_lineValues.constEnd(); ++it) {
        auto* edit = static_cast<QLineEdit*>(m_fields.value(it.key()));
        const QString value = it.value()(i);
        // Only changed text is set, so that the cursor stays where the user types.
        if (edit && edit->text() != value)
            edit->setText(value);
    }
    m_country->setCode(i.addressCountry.code);
    m_senderCountry->setCode(i.senderAddressCountry.code);
    m_currency->setCode(i.currency.code);
    m_language->setCurrentIndex(m_language->findData(int(i.documentLanguage(m_profile))));
    m_eInvoiceProfile->setCurrentIndex(m_eInvoiceProfile->findData(int(i.eInvoiceProfile)));
    m_status->setCurrentIndex(m_status->findData(int(i.status)));
    m_number->setValue(i.number);
    if (m_numberVariable->text() != i.numberVariable)
        m_numberVariable->setText(i.numberVariable);
    m_date->setDate(dateOf(i.date));
    m_serviceStart->setDate(dateOf(i.serviceDateStart));
    m_hasServiceEnd->setChecked(i.serviceDateEnd.has_value());
    m_serviceEnd->setEnabled(i.serviceDateEnd.has_value());
    m_serviceEnd->setDate(dateOf(i.serviceDateEnd.value_or(i.serviceDateStart)));
    m_daysToPay->setValue(i.daysToPay);
    m_skontoPercent->setValue(i.skontoPercentage.value_or(0));
    m_skontoDays->setValue(i.skontoDays.value_or(std::min(14, std::max(1, i.daysToPay))));
    m_skontoDays->setEnabled(i.skontoPercentage.has_value());
    m_priceMode->setCurrentIndex(i.grossPrices ? 1 : 0);
    const int discountKind = i.discountPercentage ? 1 : i.discountAmount ? 2 : 0;
    m_discountKind->setCurrentIndex(discountKind);
    const double discount = i.discountPercentage.value_or(i.discountAmount.value_or(0));
    if (m_discountValue->value() != discount)
        m_discountValue->setValue(discount);
    m_exemption->setCurrentIndex(m_exemption->findData(int(i.vatExemptionReason)));
    if (m_note->toPlainText() != i.note)
        m_note->setPlainText(i.note);
    refreshDerived();
}

void InvoiceEditor::refreshDerived()
{
    if (!m_invoice)
        return;
    const Invoice& i = *m_invoice;
    const Language language = Strings::interfaceLanguage();
    const QString number = NumberFormat::displayNumber(i, m_profile);
    m_title->setText(labelText(i.type) + u' ' + number);
    const QString recipient =
        i.businessName.trimmed().isEmpty() ? i.name.trimmed() : i.businessName.trimmed();
    QStringList subtitle;
    if (!recipient.isEmpty())
        subtitle.append(recipient);
    if (i.isOverdue())
        subtitle.append(
            ui(u"overdue since %1").arg(QLocale().toString(i.dueDate().localDate(), QLocale::ShortFormat)));
    m_subtitle->setText(subtitle.join(u" · "_s));
    m_numberPreview->setText(u"→ "_s + number);
    Invoice automatic = i;
    automatic.eInvoiceProfile = EInvoiceProfile::automatic;
    m_eInvoiceProfile->setItemText(
        m_eInvoiceProfile->findData(int(EInvoiceProfile::automatic)),
        ui(u"Automatic (%1)").arg(labelText(XMLGenerator::chosenProfile(automatic, m_profile))));
    const bool usesVariable =
        NumberFormat::parse(i.numberFormat.value_or(m_profile.numberFormat)).size() > 0 &&
        i.numberFormat.value_or(m_profile.numberFormat).contains(u"{X}"_s);
    m_numberVariable->setVisible(usesVariable);
    m_serviceEnd->setEnabled(i.serviceDateEnd.has_value());
    m_dueDate->setText(ui(u"due %1").arg(QLocale().toString(i.dueDate().localDate(), QLocale::LongFormat)));
    m_discountValue->setEnabled(i.discountPercentage || i.discountAmount);
    m_discountValue->setSuffix(i.discountPercentage ? u" %"_s
                               : i.discountAmount   ? u" "_s + i.currency.code
                                                    : QString());
    m_itemsModel->setInvoice(i);

    // Totals from the same figures as the documents and e-invoices.
    while (QLayoutItem* item = m_totals->takeAt(0)) {
        delete item->widget();
        delete item;
    }
    const Totals::Summary summary = Totals::summarize(i);
    int row = 0;
    auto addLine = [&](const QString& label, double amount, bool strong = false) {
        auto* name = new QLabel(label);
        auto* value = new QLabel(InvoiceDocument::formatAmount(amount, i.currency.code, language));
        value->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
        value->setObjectName(u"total:"_s + label);
        QFont font = value->font();
        font.setBold(strong);
        value->setFont(font);
        name->setFont(font);
        name->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
        m_totals->addWidget(name, row, 0);
        m_totals->addWidget(value, row, 1);
        ++row;
    };
    addLine(ui(u"Net"), summary.netSubtotal);
    if (summary.discountValue != 0) {
        addLine(ui(u"Discount"), -summary.discountValue);
        addLine(ui(u"Net after discount"), summary.taxBasis);
    }
    for (const Totals::VATAmount& vat : summary.vatBreakdown)
        addLine(ui(u"VAT %1 %").arg(LocaleNumbers::plain(vat.rate)), vat.vatAmount);
    addLine(ui(u"Gross"), summary.grossTotal, true);

    const QString senderName = i.senderBusinessName.isEmpty() ? i.senderName : i.senderBusinessName;
    m_senderSummary->setText(QStringList{senderName, i.senderAddressCity, i.senderEmail}.join(u" · "_s));
}

void InvoiceEditor::onItemsEdited(QList<InvoiceItem> items, int row, int column)
{
    const QString field = column < 0 || row < 0 || row >= items.size()
                              ? QString()
                              : u"item:"_s + items[row].id.toString() + u':' + QString::number(column);
    const QString text = column < 0 ? ui(u"Move Item") : ui(u"Edit Item");
    change(field, text, [&](Invoice& i) { i.items = items; });
    if (column < 0 && row >= 0)
        m_items->setCurrentIndex(m_itemsModel->index(row, ItemsModel::descriptionColumn));
}

void InvoiceEditor::addItem()
{
    if (!m_invoice)
        return;
    InvoiceItem item = InvoiceItem::makeNew();
    item.vatPercentage =
        m_invoice->vatExemptionReason == VATExemptionReason::none ? m_profile.vatPercentage : 0;
    insertItem(item);
}

void InvoiceEditor::insertItem(const InvoiceItem& item)
{
    if (!m_invoice)
        return;
    const int current =
        m_items->currentIndex().isValid() ? m_items->currentIndex().row() + 1 : int(m_invoice->items.size());
    const int row = std::clamp(current, 0, int(m_invoice->items.size()));
    change({}, ui(u"Add Item"), [&](Invoice& i) { i.items.insert(row, item); });
    const QModelIndex description = m_itemsModel->index(row, ItemsModel::descriptionColumn);
    m_items->setCurrentIndex(description);
    m_items->setFocus();
    if (item.item.isEmpty())
        m_items->edit(description);
}

void InvoiceEditor::removeSelectedItems()
{
    if (!m_invoice)
        return;
    QList<int> rows;
    for (const QModelIndex& index : m_items->selectionModel()->selectedRows())
        rows.append(index.row());
    if (rows.isEmpty() && m_items->currentIndex().isValid())
        rows.append(m_items->currentIndex().row());
    if (rows.isEmpty())
        return;
    std::sort(rows.begin(), rows.end(), std::greater<>());
    change({}, rows.size() == 1 ? ui(u"Remove Item") : ui(u"Remove Items"), [&](Invoice& i) {
        for (int row : rows)
            if (row < i.items.size())
                i.items.removeAt(row);
    });
    const int next = std::min(rows.last(), int(m_invoice->items.size()) - 1);
    if (next >= 0)
        m_items->setCurrentIndex(m_itemsModel->index(next, ItemsModel::descriptionColumn));
}

void InvoiceEditor::moveCurrentItem(int delta)
{
    if (!m_invoice || !m_items->currentIndex().isValid())
        return;
    const int from = m_items->currentIndex().row();
    const int to = from + delta;
    if (to < 0 || to >= m_invoice->items.size())
        return;
    const int column = m_items->currentIndex().column();
    change({}, ui(u"Move Item"), [&](Invoice& i) { i.items.move(from, to); });
    m_items->setCurrentIndex(m_itemsModel->index(to, column));
}

std::optional<InvoiceItem> InvoiceEditor::currentItem() const
{
    if (!m_invoice || !m_items->currentIndex().isValid() ||
        m_items->currentIndex().row() >= m_invoice->items.size())
        return std::nullopt;
    return m_invoice->items[m_items->currentIndex().row()];
}

bool InvoiceEditor::hasItemFocus() const
{
    return m_items->hasFocus();
}

void InvoiceEditor::focusNumber()
{
    m_number->setFocus(Qt::ShortcutFocusReason);
    m_number->selectAll();
    m_scroll->ensureWidgetVisible(m_number);
}

void InvoiceEditor::focusField(const QString& key, std::optional<int> item)
{
    if (item) {
        const int column =
            key.startsWith(u"VAT rate"_s) ? ItemsModel::vatColumn : ItemsModel::descriptionColumn;
        const QModelIndex index = m_itemsModel->index(*item, column);
        m_scroll->ensureWidgetVisible(m_items);
        m_items->setFocus(Qt::OtherFocusReason);
        m_items->setCurrentIndex(index);
        m_items->edit(index);
        return;
    }
    QWidget* widget = m_fields.value(key);
    if (!widget)
        return;
    if (key.startsWith(u"Sender"_s))
        updateSenderVisibility(true);
    // Laid out first, so that the field can be scrolled into view.
    QTimer::singleShot(0, this, [this, widget] {
        m_scroll->ensureWidgetVisible(widget, 16, 48);
        widget->setFocus(Qt::OtherFocusReason);
    });
}
