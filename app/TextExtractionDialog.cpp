#include "TextExtractionDialog.h"

#include "AppText.h"
#include "LocaleNumbers.h"
#include "WindowMemory.h"
#include "calc/Totals.h"
#include "extraction/OfflineExtractor.h"
#include "l10n/CodeNames.h"
#include "tasks/ExtractTasks.h"

#include <QDate>
#include <QDialogButtonBox>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QSettings>
#include <QSplitter>
#include <QTimer>
#include <QTreeWidget>
#include <QVBoxLayout>

using namespace Qt::Literals::StringLiterals;

namespace {

// "2 Hours", "1 Day", "Lump Sum", as the documents write them.
QString quantityText(double quantity, ExtractedUnit unit)
{
    const bool one = quantity == 1;
    QString name;
    switch (unit) {
    case ExtractedUnit::piece:
        name = one ? ui(u"Piece") : ui(u"Pieces");
        break;
    case ExtractedUnit::hour:
        name = one ? ui(u"Hour") : ui(u"Hours");
        break;
    case ExtractedUnit::day:
        name = one ? ui(u"Day") : ui(u"Days");
        break;
    case ExtractedUnit::week:
        name = one ? ui(u"Week") : ui(u"Weeks");
        break;
    case ExtractedUnit::lumpSum:
        return ui(u"Lump Sum");
    }
    return LocaleNumbers::plain(quantity) + u" "_s + name;
}

QString shownDate(const QString& iso)
{
    const QDate date = QDate::fromString(iso, u"yyyy-MM-dd"_s);
    if (!date.isValid())
        return iso;
    // The locale's short form, with the year in full ("01.03.2026", "3/1/2026").
    QString format = QLocale().dateFormat(QLocale::ShortFormat);
    if (!format.contains(u"yyyy"_s))
        format.replace(u"yy"_s, u"yyyy"_s);
    return QLocale().toString(date, format);
}

} // namespace

TextExtractionDialog::TextExtractionDialog(QSettings& settings, QWidget* parent)
    : QDialog(parent), m_parser(new TextParser(TextParserSettings::load(settings), this)),
      m_text(new QPlainTextEdit), m_fields(new QTreeWidget), m_model(new QLabel), m_source(new QLabel),
      m_modelButton(new QPushButton(ui(u"Read with Language Model"))),
      m_cancelButton(new QPushButton(ui(u"Stop"))), m_create(nullptr), m_typing(new QTimer(this))
{
    setObjectName(u"textExtraction"_s);
    setWindowTitle(ui(u"New Invoice from Text"));
    auto* layout = new QVBoxLayout(this);

    auto* intro = new QLabel(ui(u"Paste an e-mail, a note or an address block. The fields found in it "
                                u"become a new draft invoice; nothing is invented."));
    intro->setWordWrap(true);
    layout->addWidget(intro);

    auto* splitter = new QSplitter(Qt::Horizontal);
    m_text->setObjectName(u"extractionText"_s);
    m_text->setAccessibleName(ui(u"Text"));
    m_text->setPlaceholderText(ui(u"Paste the text here…"));
    m_text->setTabChangesFocus(true);
    splitter->addWidget(m_text);
    m_fields->setObjectName(u"extractedFields"_s);
    m_fields->setAccessibleName(ui(u"Found Fields"));
    m_fields->setColumnCount(2);
    m_fields->setHeaderLabels({ui(u"Field"), ui(u"Found")});
    m_fields->setRootIsDecorated(false);
    m_fields->setSelectionMode(QAbstractItemView::NoSelection);
    m_fields->setFocusPolicy(Qt::NoFocus);
    m_fields->header()->setSectionResizeMode(0, QHeaderView::ResizeToContents);
    splitter->addWidget(m_fields);
    m_fields->setWordWrap(true);
    splitter->setStretchFactor(0, 1);
    splitter->setStretchFactor(1, 1);
    layout->addWidget(splitter, 1);

    // The model's state, and the button that asks it.
    auto* modelRow = new QHBoxLayout;
    m_model->setObjectName(u"modelState"_s);
    m_model->setWordWrap(true);
    m_model->setTextInteractionFlags(Qt::TextSelectableByMouse);
    m_model->setText(ui(u"Looking for a language model on this computer…"));
    m_modelButton->setObjectName(u"extractWithModel"_s);
    m_modelButton->setEnabled(false);
    m_cancelButton->setObjectName(u"stopModel"_s);
    m_cancelButton->hide();
    modelRow->addWidget(m_model, 1);
    modelRow->addWidget(m_cancelButton);
    modelRow->addWidget(m_modelButton);
    layout->addLayout(modelRow);

    m_source->setObjectName(u"extractorName"_s);
    m_source->setForegroundRole(QPalette::PlaceholderText);
    layout->addWidget(m_source);

    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Cancel);
    m_create = buttons->addButton(ui(u"Create Invoice"), QDialogButtonBox::AcceptRole);
    m_create->setObjectName(u"createInvoice"_s);
    m_create->setDefault(true);
    m_create->setEnabled(false);
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    layout->addWidget(buttons);

    // The offline reading follows the typing, a moment after the last key.
    m_typing->setSingleShot(true);
    m_typing->setInterval(250);
    connect(m_typing, &QTimer::timeout, this, &TextExtractionDialog::extractOffline);
    connect(m_text, &QPlainTextEdit::textChanged, this, [this] {
        if (!m_modelRunning)
            m_typing->start();
        m_modelButton->setEnabled(m_modelAvailable && !m_modelRunning &&
                                  !m_text->toPlainText().trimmed().isEmpty());
    });
    connect(m_modelButton, &QPushButton::clicked, this, &TextExtractionDialog::extractWithModel);
    connect(m_cancelButton, &QPushButton::clicked, this, [this] {
        m_parser->cancel();
        setBusy(false);
        extractOffline();
    });

    connect(m_parser, &TextParser::partiallyGenerated, this,
            [this](const PartiallyGeneratedExtractedInvoice& partial) {
                display(partial.snapshot(), ExtractorKind::model);
                m_create->setEnabled(false);
            });
    connect(m_parser, &TextParser::finished, this, [this](const ExtractedInvoice& result) {
        setBusy(false);
        display(result, ExtractorKind::model);
    });
    connect(m_parser, &TextParser::failed, this, [this](const QString& message) {
        // The model's error is shown; the offline reading stays on offer.
        setBusy(false);
        m_model->setText(message);
        extractOffline();
    });

    resize(860, 520);
    WindowMemory::attach(this, u"fromTextDialog"_s);
    display(m_result, ExtractorKind::offline);
    checkAvailability();
}

void TextExtractionDialog::setText(const QString& text)
{
    m_text->setPlainText(text);
    extractOffline();
}

QString TextExtractionDialog::extractorName() const
{
    return ExtractTasks::extractorName(m_kind, m_parser->describe());
}

void TextExtractionDialog::checkAvailability()
{
    m_parser->checkAvailability([this](const TextParserAvailability& availability) {
        m_modelAvailable = availability.available;
        if (availability.available)
            m_model->setText(ui(u"Language model: %1").arg(m_parser->describe()));
        else
            m_model->setText(availability.message + u"\n"_s +
                             ui(u"The offline extractor reads the text meanwhile."));
        m_modelButton->setVisible(availability.available);
        m_modelButton->setEnabled(availability.available && !m_text->toPlainText().trimmed().isEmpty());
    });
}

void TextExtractionDialog::extractWithModel()
{
    const QString text = m_text->toPlainText();
    if (!m_modelAvailable || text.trimmed().isEmpty())
        return;
    m_typing->stop();
    setBusy(true);
    display(ExtractedInvoice{}, ExtractorKind::model);
    m_parser->extract(text);
}

void TextExtractionDialog::extractOffline()
{
    if (m_modelRunning)
        return;
    display(OfflineExtractor::extract(m_text->toPlainText()), ExtractorKind::offline);
}

void TextExtractionDialog::setBusy(bool busy)
{
    m_modelRunning = busy;
    m_cancelButton->setVisible(busy);
    m_modelButton->setEnabled(!busy && m_modelAvailable);
    m_text->setReadOnly(busy);
    if (busy)
        m_model->setText(ui(u"The language model is reading the text…"));
    else if (m_modelAvailable)
        m_model->setText(ui(u"Language model: %1").arg(m_parser->describe()));
}

void TextExtractionDialog::display(const ExtractedInvoice& result, ExtractorKind kind)
{
    m_result = result;
    m_kind = kind;
    m_fields->clear();
    const auto section = [this](const QString& title) {
        auto* item = new QTreeWidgetItem(m_fields, {title});
        QFont bold = item->font(0);
        bold.setBold(true);
        item->setFont(0, bold);
        item->setFirstColumnSpanned(true);
        return item;
    };
    const auto row = [this](const QString& label, const std::optional<QString>& value) {
        if (value)
            new QTreeWidgetItem(m_fields, {label, *value});
    };
    if (const auto& r = result.recipient) {
        section(ui(u"Recipient"));
        row(ui(u"Name"), r->name);
        row(ui(u"Business Name"), r->businessName);
        row(ui(u"E-Mail"), r->email);
        row(ui(u"Address"), r->addressLineOne);
        row(ui(u"Address Line 2"), r->addressLineTwo);
        row(ui(u"Postcode"), r->postcode);
        row(ui(u"City"), r->city);
        row(ui(u"State"), r->state);
        if (r->countryCode)
            row(ui(u"Country"),
                CodeNames::countryName(Country{*r->countryCode}, Strings::interfaceLanguage()));
    }
    const QString currency = result.currencyCode.value_or(QString());
    if (result.items && !result.items->isEmpty()) {
        section(ui(u"Items"));
        for (const ExtractedItem& item : *result.items) {
            // Quantity on the left, where the labels are short; the line's text wraps on the right.
            QStringList parts{item.description.value_or(ui(u"(no description)"))};
            if (item.unitPrice)
                parts.append(currency.isEmpty() ? LocaleNumbers::price(*item.unitPrice)
                                                : Totals::formatMoney(*item.unitPrice, currency,
                                                                      Strings::interfaceLanguage()));
            if (item.vatPercentage)
                parts.append(ui(u"VAT %1 %").arg(LocaleNumbers::plain(*item.vatPercentage)));
            new QTreeWidgetItem(
                m_fields, {quantityText(item.quantity.value_or(1), item.unit.value_or(ExtractedUnit::piece)),
                           parts.join(u" · "_s)});
        }
    }
    if (result.reference || result.currencyCode || result.serviceDateStart || result.note) {
        section(ui(u"Invoice"));
        row(ui(u"Reference"), result.reference);
        row(ui(u"Currency"), result.currencyCode);
        if (result.serviceDateStart)
            row(ui(u"Service Period"),
                result.serviceDateEnd
                    ? shownDate(*result.serviceDateStart) + u" – "_s + shownDate(*result.serviceDateEnd)
                    : shownDate(*result.serviceDateStart));
        row(ui(u"Note"), result.note);
    }
    if (result.isEmpty() && !m_text->toPlainText().trimmed().isEmpty() && !m_modelRunning)
        new QTreeWidgetItem(m_fields, {ui(u"Nothing found yet.")});

    m_source->setText(result.isEmpty() ? QString() : ui(u"Drafted by %1.").arg(extractorName()));
    m_create->setEnabled(!result.isEmpty() && !m_modelRunning);
}
